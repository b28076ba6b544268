#ifndef CONTROLLERFRAMES_H
#define CONTROLLERFRAMES_H

#include <QByteArray>
#include <QString>

// The controller's program-file commands as bytes on the line, and the
// checking of its replies. Pure functions: no port, no timers. The worker's
// exchange is a thin loop over them:
//
//   frame = toWire(fillTemplate(template, cmd, program, segment, record))
//   port->setOption(OptionPrepareCommand, 0)
//   if (port->writeBytes(frame) != frame.size())      -> send failure
//   msleep(waitMs(cmd))
//   zero a ReplyBufferSize buffer, port->readBytes(buffer, readLimit(cmd))
//   ReplyCheck check = checkReply(replyText(buffer, ReplyBufferSize))
//   check.outcome: HeaderFailure / ControllerError (check.message) / Accepted
namespace ControllerFrames
{

constexpr char STX = 0x02;
constexpr char ETX = 0x03;
constexpr char CR = 0x0D;
constexpr char LF = 0x0A;

// Station "01", sub-address "00", device code "X": program transfers always
// address station 01.
constexpr char ReplyHeader[] = "0100X";

enum class Command { OpenRead, OpenWrite, Read, Write, Close };

// Fixed pause between sending a command and reading its reply, in ms.
constexpr unsigned long CommandWaitMs = 300;
constexpr unsigned long FileReadWaitMs = 350;
// Most bytes read for a reply: open and close replies are short, segment
// read and write replies carry (or echo) a record.
constexpr int OpenCloseReadLimit = 16;
constexpr int DataReadLimit = 200;
// The worker's receive buffer. Larger than any read limit, so a zeroed
// buffer always leaves the received text NUL-terminated.
constexpr int ReplyBufferSize = 255;

// Length of the segment field cut out of a file-read reply: the record
// (120 or 92 hex digits) followed by ETX CR LF.
constexpr int LongSegmentFieldLength = 123;
constexpr int ShortSegmentFieldLength = 95;

// The command text with its placeholders: "0100XFR,%1,%2" and so on.
QString commandText(Command command);
// The framed template the worker keeps: STX, commandText, ETX, CR, LF.
QString framedTemplate(Command command);
// Fills a (framed or bare) template of the given command: %1 program,
// %2 segment, %3 record, numbers in decimal without padding. Arguments the
// command does not take are ignored. The record is inserted unchanged.
QString fillTemplate(const QString& commandTemplate, Command command, int program, int segment = 0,
                     const QString& record = QString());
// Latin-1 bytes of a filled frame, as handed to writeBytes.
QByteArray toWire(const QString& frame);
// Shorthand: the bytes of the complete frame for one command.
QByteArray frame(Command command, int program, int segment = 0, const QString& record = QString());

unsigned long waitMs(Command command);
int readLimit(Command command);
// True for the commands that name a segment (their controller errors are
// reported behind "Seg%1:").
bool isSegmentCommand(Command command);

// The controller's message for a two-character status code (exact,
// case-sensitive match); an empty string for a code it does not know.
QString getErrorMessageByStatusCodeFromPLC(const QString& statusCode);

enum class ReplyOutcome { Accepted, HeaderFailure, ControllerError };

struct ReplyCheck {
    ReplyOutcome outcome = ReplyOutcome::HeaderFailure;
    // Characters 6..7 of the reply (shorter when the reply is); empty for a
    // header failure.
    QString statusCode;
    // getErrorMessageByStatusCodeFromPLC(statusCode) for a controller error,
    // else empty.
    QString message;
};

// The received text: the buffer's bytes up to the first zero byte (or all
// size bytes if there is none), as Latin-1.
QString replyText(const char* buffer, int size);
// Characters 1..5 must be "0100X" (STX at 0 is not examined; an empty or
// short text fails). Status "00" and "01" accept; anything else, including
// a status cut short by the end of the text, is a controller error.
ReplyCheck checkReply(const QString& text);
// The line the worker's error list gets for a controller error: the bare
// message for open commands, "Seg%1:" and the message for segment commands.
QString controllerErrorLine(Command command, int segment, const QString& message);

// Where the segment field starts in a file-read reply: 16, one later for a
// program above 9, one later again for a segment above 9.
int segmentFieldPosition(int program, int segment);
// The length that field must have: 123 for segment 1, 95 for the others.
int segmentFieldLength(int segment);
// The field itself: from segmentFieldPosition to the end of the text (empty
// when the text is shorter).
QString segmentField(const QString& text, int program, int segment);
// True when a file-read reply echoes the request: the text between the
// status and the segment field reads ",FR,<program>,<segment>,".
bool answersSegmentRead(const QString& text, int program, int segment);

} // namespace ControllerFrames

#endif
