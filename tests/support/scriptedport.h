#ifndef SCRIPTEDPORT_H
#define SCRIPTEDPORT_H

#include "driver/abstractdeviceinterface.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QStringList>
#include <QVariant>

#include <functional>

// An in-memory port object for unit tests and fuzzing: it records every
// call the worker makes and answers each command from a script.
//
// A command is the text between STX and ETX of a written frame. A script
// rule's key matches a command that equals it or starts with key + ",", so
// "0100XFR,1,1" matches the read of segment 1 but not of segment 10, and
// "0100XFR" matches every read; an empty key matches every command. Rules
// are tried in the order they were added; each answers a limited number of
// times (or for ever) and is then used up. A command no rule matches gets
// the default answer (no reply unless set otherwise), or the responder's.
//
// Input handling: an answer's reply becomes the pending input, appended to
// whatever input is still unread; setOption(OptionPrepareCommand, ...)
// drops unread input, as the runtime's ports do. readBytes hands out at
// most maxLength bytes and keeps the rest for the next read.
//
// Thread-safe: the worker calls the port from its own thread while the test
// thread scripts it and inspects the log.
class ScriptedPort : public AbstractDeviceInterface
{
public:
    struct Answer {
        enum class Kind { Reply, NoReply, ShortWrite };
        Kind kind = Kind::NoReply;
        QByteArray reply;
        // Reads that find nothing before the reply is there.
        int emptyReadsBefore = 0;
        // What writeBytes returns for a short write.
        int writtenCount = 0;

        static Answer withReply(const QByteArray& bytes, int emptyReadsBefore = 0)
        {
            return {Kind::Reply, bytes, emptyReadsBefore, 0};
        }
        static Answer noReply() { return {}; }
        // writeBytes returns count instead of the frame's length; the
        // controller answers nothing.
        static Answer shortWrite(int count) { return {Kind::ShortWrite, {}, 0, count}; }
    };

    static constexpr int Forever = -1;

    // Answers a written frame (the whole frame, as sent) that no rule
    // matches. Called without the port's lock held, in the writer's thread,
    // so it may call back into the port or into the code under test.
    using Responder = std::function<Answer(const QByteArray& frame)>;

    // Frames: STX text ETX CR LF, handy for building replies.
    static QByteArray framed(const QByteArray& text);

    void addAnswer(const QByteArray& key, const Answer& answer, int times = 1);
    void setDefaultAnswer(const Answer& answer);
    void setRetryCount(int count);
    // Replaces the default answer; a null responder restores it.
    void setResponder(Responder responder);
    // At most bytes per readBytes call, as a slow line delivers them
    // (0: only maxLength limits).
    void setReadChunk(int bytes);
    // Forgets the script, the log and any pending input.
    void reset();

    // What the port was asked, in order: "option 12=0 (int)" (code, value
    // and its type), "write <the frame in hex>", "read <maxLength>".
    QStringList trace() const;
    // The frames written, in order, whatever their answer.
    QList<QByteArray> sentFrames() const;
    // The text between STX and ETX of each sent frame.
    QList<QByteArray> sentCommands() const;
    // maxLength of every readBytes call, in order.
    QList<int> readLimits() const;

    bool open() override { return true; }
    void close() override {}
    bool isOpen() const override { return true; }
    int readBytes(char* buffer, int maxLength) override;
    QString portName() const override;
    int writeBytes(const char* data, int length) override;
    bool setOption(int code, const QVariant& value) override;
    int retryCount() override;

private:
    struct Rule {
        QByteArray key;
        Answer answer;
        int remaining = 1;
    };

    // The first matching rule's answer (using it up); false when none matches.
    bool ruleAnswer(const QByteArray& command, Answer* answer);

    mutable QMutex mutex;
    QList<Rule> rules;
    Answer defaultAnswer;
    Responder responder;
    int readChunk = 0;
    QStringList log;
    QByteArray pendingInput;
    int pendingEmptyReads = 0;
    int retries = 0;
};

#endif
