#include "driver/controllerframes.h"

#include <cstring>

namespace ControllerFrames
{

QString commandText(Command command)
{
    switch (command) {
    case Command::OpenRead:
        return QStringLiteral("0100XFO,%1,R,0");
    case Command::OpenWrite:
        return QStringLiteral("0100XFO,%1,W,0");
    case Command::Read:
        return QStringLiteral("0100XFR,%1,%2");
    case Command::Write:
        return QStringLiteral("0100XFW,%1,%2,%3");
    case Command::Close:
        return QStringLiteral("0100XFC,%1");
    }
    return QString();
}

QString framedTemplate(Command command)
{
    return QString(QChar(STX)) + commandText(command) + QChar(ETX) + QChar(CR) + QChar(LF);
}

QString fillTemplate(const QString& commandTemplate, Command command, int program, int segment,
                     const QString& record)
{
    // One pass over the template, so a record can never be mistaken for a
    // placeholder.
    const QString p = QString::number(program);
    switch (command) {
    case Command::OpenRead:
    case Command::OpenWrite:
    case Command::Close:
        return commandTemplate.arg(p);
    case Command::Read:
        return commandTemplate.arg(p, QString::number(segment));
    case Command::Write:
        return commandTemplate.arg(p, QString::number(segment), record);
    }
    return commandTemplate;
}

QByteArray toWire(const QString& frame)
{
    return frame.toLatin1();
}

QByteArray frame(Command command, int program, int segment, const QString& record)
{
    return toWire(fillTemplate(framedTemplate(command), command, program, segment, record));
}

unsigned long waitMs(Command command)
{
    return command == Command::Read ? FileReadWaitMs : CommandWaitMs;
}

int readLimit(Command command)
{
    return isSegmentCommand(command) ? DataReadLimit : OpenCloseReadLimit;
}

bool isSegmentCommand(Command command)
{
    return command == Command::Read || command == Command::Write;
}

QString getErrorMessageByStatusCodeFromPLC(const QString& statusCode)
{
    struct Entry {
        const char* code;
        const char* message;
    };
    static const Entry table[] = {
        {"40", "Request message is in error."},
        {"41", "The number of data is over 16. (Including read data count of RS request)."},
        {"42", "The data address is not defined. All of message has been cancelled."},
        {"44", "The value of write data is out of the limit. Processing is continued except for "
               "the relevant data address."},
        {"45", "The data cannot be written according to the status of DCP31/32. (Settings can be "
               "changed only READY mode regarding all of setup items and some of event "
               "configuration data) Write is attempted to the write inhibit data address."},
        {"47", "Mode can not be changed."},
        {"48", "Operation keys of console are operated by an operator. Send the request message "
               "after key operation."},
        {"50", "File is already open."},
        {"51", "File is not open yet."},
        {"52", "Program number or segment number is in error. No program in the segment."},
        {"54", "Attribute of File OPEN is violated."},
        {"57", "Block data of File block WRITE is in error."},
        {"58", "The program being run cannot be deleted."},
        {"59", "File OPEN, File block WRITE and File DELETE are inhibited."},
        {"99", "The command is undefined."},
    };
    for (const Entry& e : table) {
        if (statusCode == QLatin1String(e.code))
            return QString::fromLatin1(e.message);
    }
    return QString();
}

QString replyText(const char* buffer, int size)
{
    if (!buffer || size <= 0)
        return QString();
    const void* nul = std::memchr(buffer, 0, size_t(size));
    const int length = nul ? int(static_cast<const char*>(nul) - buffer) : size;
    return QString::fromLatin1(buffer, length);
}

ReplyCheck checkReply(const QString& text)
{
    ReplyCheck check;
    if (text.midRef(1, 5) != QLatin1String(ReplyHeader))
        return check;
    check.statusCode = text.mid(6, 2);
    if (check.statusCode == QLatin1String("00") || check.statusCode == QLatin1String("01")) {
        check.outcome = ReplyOutcome::Accepted;
    } else {
        check.outcome = ReplyOutcome::ControllerError;
        check.message = getErrorMessageByStatusCodeFromPLC(check.statusCode);
    }
    return check;
}

QString controllerErrorLine(Command command, int segment, const QString& message)
{
    if (!isSegmentCommand(command))
        return message;
    return QStringLiteral("Seg%1:").arg(segment) + message;
}

int segmentFieldPosition(int program, int segment)
{
    return 16 + (program > 9 ? 1 : 0) + (segment > 9 ? 1 : 0);
}

int segmentFieldLength(int segment)
{
    return segment == 1 ? LongSegmentFieldLength : ShortSegmentFieldLength;
}

QString segmentField(const QString& text, int program, int segment)
{
    return text.mid(segmentFieldPosition(program, segment));
}

bool answersSegmentRead(const QString& text, int program, int segment)
{
    constexpr int echoStart = 8; // after STX, "0100X" and the status
    const int fieldStart = segmentFieldPosition(program, segment);
    return QStringView(text).mid(echoStart, fieldStart - echoStart) ==
           QStringLiteral(",FR,%1,%2,").arg(program).arg(segment);
}

} // namespace ControllerFrames
