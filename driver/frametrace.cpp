#include "driver/frametrace.h"

#include "driver/controllerframes.h"

#include <QList>

namespace
{

const QByteArray FrameEnd("\x03\r\n");
// Longer than any frame of the protocol: what is pending beyond it is noise.
constexpr int MaxPending = 1024;

QString number(const QList<QByteArray>& fields, int index)
{
    return QString::fromLatin1(fields.value(index));
}

} // namespace

FrameTrace::FrameTrace(bool requests, Sink sink) : requests(requests), sink(std::move(sink)) {}

void FrameTrace::feed(const QByteArray& bytes)
{
    pending += bytes;
    for (;;) {
        const int start = pending.indexOf(ControllerFrames::STX);
        if (start != 0) {
            const int noise = start < 0 ? pending.size() : start;
            if (noise > 0 && (start >= 0 || pending.size() > MaxPending)) {
                sink(QString::fromLatin1(pending.left(noise).toHex(' ')),
                     QStringLiteral("bytes outside a frame"));
                pending.remove(0, noise);
                continue;
            }
            if (start < 0)
                return; // may be the start of noise still arriving
        }
        const int end = pending.indexOf(FrameEnd);
        const int restart = pending.indexOf(ControllerFrames::STX, 1);
        if (restart > 0 && (end < 0 || restart < end)) {
            sink(QString::fromLatin1(pending.left(restart).toHex(' ')),
                 QStringLiteral("a frame cut short"));
            pending.remove(0, restart);
            continue;
        }
        if (end < 0) {
            if (pending.size() > MaxPending) {
                sink(QString::fromLatin1(pending.left(32).toHex(' ')) + "...",
                     QStringLiteral("an overlong frame"));
                pending.clear();
            }
            return;
        }
        const QByteArray text = pending.mid(1, end - 1);
        pending.remove(0, end + FrameEnd.size());
        sink(QString::fromLatin1(text), requests ? describeRequest(text) : describeReply(text));
    }
}

QString FrameTrace::describeRequest(const QByteArray& text)
{
    if (!text.startsWith(ControllerFrames::ReplyHeader))
        return QStringLiteral("not for this controller (station 01)");
    const QByteArray mnemonic = text.mid(5, 2);
    const QList<QByteArray> fields = text.mid(8).split(',');
    if (mnemonic == "FO")
        return QStringLiteral("open program %1 for %2")
            .arg(number(fields, 0),
                 fields.value(1) == "W" ? QStringLiteral("write") : QStringLiteral("read"));
    if (mnemonic == "FR")
        return QStringLiteral("read program %1, segment %2")
            .arg(number(fields, 0), number(fields, 1));
    if (mnemonic == "FW")
        return QStringLiteral("write program %1, segment %2 (%3 hex digits)")
            .arg(number(fields, 0), number(fields, 1))
            .arg(fields.value(2).size());
    if (mnemonic == "FC")
        return QStringLiteral("close program %1").arg(number(fields, 0));
    if (mnemonic == "RS")
        return QStringLiteral("read %1 word(s) from %2").arg(number(fields, 1), number(fields, 0));
    if (mnemonic == "WS")
        return QStringLiteral("write %1 word(s) to %2")
            .arg(fields.size() - 1)
            .arg(number(fields, 0));
    return QStringLiteral("unknown command");
}

QString FrameTrace::describeReply(const QByteArray& text)
{
    if (!text.startsWith(ControllerFrames::ReplyHeader) || text.size() < 7)
        return QStringLiteral("not a well-formed reply");
    const QString code = QString::fromLatin1(text.mid(5, 2));
    if (code == QLatin1String("00") || code == QLatin1String("01"))
        return QStringLiteral("status %1: accepted").arg(code);
    const QString message = ControllerFrames::getErrorMessageByStatusCodeFromPLC(code);
    return QStringLiteral("status %1: %2")
        .arg(code, message.isEmpty() ? QStringLiteral("(no message for this code)") : message);
}
