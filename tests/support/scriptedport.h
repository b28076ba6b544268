#ifndef SCRIPTEDPORT_H
#define SCRIPTEDPORT_H

#include "driver/abstractdeviceinterface.h"

#include <QByteArray>
#include <QList>
#include <QMutexLocker>
#include <QStringList>
#include <QVariant>

#include <atomic>
#include <functional>

// An in-memory port for unit tests and fuzzing: it logs every call and
// answers each written command (the text between STX and ETX) from a script.
// A rule's key matches a command equal to it or starting with key + ",", so
// "0100XFR,1,1" is the read of segment 1, not of 10; an empty key matches
// all. Rules are tried in the order added, each `times` times (or Forever);
// an unmatched command gets the responder's answer, else the default answer.
// A reply joins the unread input, which setOption(OptionPrepareCommand)
// drops, as the runtime's ports do; readBytes hands out at most maxLength
// (and the read chunk) bytes. Thread-safe: the worker's thread calls it
// while the test scripts and inspects it.
class ScriptedPort : public AbstractDeviceInterface
{
public:
    struct Answer {
        enum class Kind { Reply, NoReply, ShortWrite };
        Kind kind = Kind::NoReply;
        QByteArray reply;
        int emptyReadsBefore = 0; // reads that find nothing before the reply
        int writtenCount = 0;     // what writeBytes returns for a short write

        static Answer withReply(const QByteArray& bytes, int emptyReadsBefore = 0)
        {
            return {Kind::Reply, bytes, emptyReadsBefore, 0};
        }
        static Answer noReply() { return {}; }
        static Answer shortWrite(int count) { return {Kind::ShortWrite, {}, 0, count}; }
    };

    static constexpr int Forever = -1;
    // Gets the whole frame; called without the port's lock, in the writer's
    // thread, so it may call back into the port or the code under test.
    using Responder = std::function<Answer(const QByteArray& frame)>;

    static QByteArray framed(const QByteArray& text); // STX text ETX CR LF

    void addAnswer(const QByteArray& key, const Answer& answer, int times = 1)
    {
        QMutexLocker lock(&mutex);
        rules.append(Rule{key, answer, times});
    }
    void setDefaultAnswer(const Answer& answer)
    {
        QMutexLocker lock(&mutex);
        defaultAnswer = answer;
    }
    // A null responder restores the default answer.
    void setResponder(Responder r)
    {
        QMutexLocker lock(&mutex);
        responder = std::move(r);
    }
    void setRetryCount(int count) { retries = count; }
    // Most bytes per read, as a slow line delivers them (0: only maxLength).
    void setReadChunk(int bytes) { readChunk = qMax(0, bytes); }
    void reset(); // forgets script, log and input

    // What the port was asked, in order: "option 12=0 (int)" (code, value and
    // its type), "write <frame in hex>", "read <maxLength>".
    QStringList trace() const;
    QList<QByteArray> sentFrames() const;
    QList<QByteArray> sentCommands() const; // text between STX and ETX

    bool open() override { return true; }
    void close() override {}
    bool isOpen() const override { return true; }
    int readBytes(char* buffer, int maxLength) override;
    QString portName() const override { return QStringLiteral("scripted"); }
    int writeBytes(const char* data, int length) override;
    bool setOption(int code, const QVariant& value) override;
    int retryCount() override { return retries; }

private:
    struct Rule {
        QByteArray key;
        Answer answer;
        int remaining;
    };
    mutable QMutex mutex;
    QList<Rule> rules;
    Answer defaultAnswer;
    Responder responder;
    std::atomic<int> readChunk{0};
    QStringList log;
    QByteArray pendingInput;
    int pendingEmptyReads = 0;
    std::atomic<int> retries{0};
};

#endif
