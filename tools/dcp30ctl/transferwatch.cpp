#include "transferwatch.h"

#include <QDateTime>
#include <QList>

#include <cstdio>

namespace
{

FrameTrace::Sink printer(const char* arrow)
{
    return [arrow](const QString& shown, const QString& meaning) {
        const QString line =
            QStringLiteral("%1 %2 %3 %4\n")
                .arg(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz")),
                     QLatin1String(arrow), shown.leftJustified(24), meaning);
        std::fputs(qUtf8Printable(line), stderr);
        std::fflush(stderr);
    };
}

// The text of a framed command: between STX and ETX.
QByteArray commandText(const QByteArray& frame)
{
    const int end = frame.indexOf('\x03');
    return frame.mid(1, end < 0 ? -1 : end - 1);
}

} // namespace

TransferWatch::TransferWatch(bool trace)
    : tracing(trace), requests(true, printer("->")), replies(false, printer("<-"))
{
}

ObservedPort::Observers TransferWatch::observers()
{
    return {[this](const QByteArray& frame) { sent(frame); },
            [this](const QByteArray& bytes) { received(bytes); }};
}

void TransferWatch::reset()
{
    std::lock_guard<std::mutex> lock(mutex);
    current = State();
    lastCommand.clear();
    opened = false;
}

TransferWatch::State TransferWatch::state() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return current;
}

void TransferWatch::sent(const QByteArray& frame)
{
    const QByteArray text = commandText(frame);
    {
        std::lock_guard<std::mutex> lock(mutex);
        // "0100XFR,p,s" and "0100XFW,p,s,record" name a segment.
        const QByteArray mnemonic = text.mid(5, 2);
        if (mnemonic == "FR" || mnemonic == "FW")
            current.segment = text.mid(8).split(',').value(1).toInt();
        // The same command again, or a second open: the driver repeats a
        // segment, a close, or the whole attempt.
        current.retrying = text == lastCommand || (mnemonic == "FO" && opened);
        if (current.retrying)
            ++current.retries;
        opened = opened || mnemonic == "FO";
        lastCommand = text;
    }
    if (tracing)
        requests.feed(frame);
}

void TransferWatch::received(const QByteArray& bytes)
{
    if (tracing)
        replies.feed(bytes);
}

QString errorCodeMeaning(int code)
{
    switch (code) {
    case 1:
        return QStringLiteral("the controller's reply was missing, cut short or garbled");
    case 2:
        return QStringLiteral("the segment's reply had the wrong length or named another "
                              "segment");
    case 3:
    case 13:
        return QStringLiteral("the open command could not be sent in full");
    case 4:
        return QStringLiteral("the read command could not be sent in full");
    case 11:
        return QStringLiteral("the reply to the open was missing or garbled");
    case 21:
        return QStringLiteral("the reply to the segment write was missing or garbled");
    case 22:
        return QStringLiteral("the write command could not be sent in full");
    default:
        return QString();
    }
}
