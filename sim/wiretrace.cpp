#include "sim/wiretrace.h"

#include <QDateTime>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcSimWire, "dcp.sim.wire", QtWarningMsg)

namespace
{

FrameTrace::Sink printer(bool incoming)
{
    return [incoming](const QString& shown, const QString& meaning) {
        qCDebug(lcSimWire).noquote()
            << QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"))
            << (incoming ? "<-" : "->") << shown.leftJustified(24) << meaning;
    };
}

} // namespace

WireTrace::WireTrace() : fromPanel(true, printer(true)), toPanel(false, printer(false)) {}

void WireTrace::received(const QByteArray& bytes)
{
    if (lcSimWire().isDebugEnabled())
        fromPanel.feed(bytes);
}

void WireTrace::sent(const QByteArray& bytes)
{
    if (lcSimWire().isDebugEnabled())
        toPanel.feed(bytes);
}
