#ifndef SCRIPTEDPORT_H
#define SCRIPTEDPORT_H

#include "driver/abstractdeviceinterface.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QStringList>
#include <QVariant>

#include <atomic>
#include <cstring>

// An in-memory port that logs every call and answers a command (the text
// between STX and ETX) by the first rule whose key is empty, equals it or
// starts it followed by ","; unread replies go at the prepare option.
class ScriptedPort : public AbstractDeviceInterface
{
public:
    struct Answer {
        QByteArray reply;
        int emptyReadsBefore = 0; // reads that find nothing before the reply
        int writtenCount = -1;    // what writeBytes returns; -1: the whole frame

        static Answer withReply(const QByteArray& bytes, int empty = 0) { return {bytes, empty}; }
        static Answer noReply() { return {}; }
        static Answer shortWrite(int count) { return {{}, 0, count}; }
    };
    static constexpr int Forever = -1;

    static QByteArray framed(const QByteArray& text) { return '\x02' + text + "\x03\r\n"; }
    void addAnswer(const QByteArray& key, const Answer& answer, int times = 1)
    {
        QMutexLocker lock(&mutex);
        rules.append(Rule{key, answer, times});
    }
    void setRetryCount(int count) { retries = count; }
    void reset() // forgets script, log and input
    {
        QMutexLocker lock(&mutex);
        rules.clear();
        log.clear();
        commands.clear();
        pending.clear();
        emptyReads = 0;
    }

    // In order: "option 12=0 (int)", "write <frame in hex>", "read <maxLength>".
    QStringList trace() const
    {
        QMutexLocker lock(&mutex);
        return log;
    }
    QList<QByteArray> sentCommands() const
    {
        QMutexLocker lock(&mutex);
        return commands;
    }

    bool open() override { return true; }
    void close() override {}
    bool isOpen() const override { return true; }
    QString portName() const override { return QStringLiteral("scripted"); }
    int retryCount() override { return retries; }
    int readBytes(char* buffer, int maxLength) override
    {
        QMutexLocker lock(&mutex);
        log << QStringLiteral("read %1").arg(maxLength);
        if ((emptyReads > 0 && emptyReads--) || !buffer || maxLength <= 0)
            return 0;
        const QByteArray data = pending.left(maxLength);
        pending.remove(0, data.size());
        std::memcpy(buffer, data.constData(), size_t(data.size()));
        return data.size();
    }
    int writeBytes(const char* data, int length) override
    {
        const QByteArray frame = (data && length > 0) ? QByteArray(data, length) : QByteArray();
        const QByteArray command = commandOf(frame);
        QMutexLocker lock(&mutex);
        log << QStringLiteral("write ") + QString::fromLatin1(frame.toHex());
        commands << command;
        Answer answer;
        for (int i = 0; i < rules.size(); ++i) {
            const QByteArray& key = rules[i].key;
            if (key.isEmpty() || command == key || command.startsWith(key + ',')) {
                answer = rules[i].answer;
                if (rules[i].remaining != Forever && --rules[i].remaining <= 0)
                    rules.removeAt(i);
                break;
            }
        }
        pending += answer.reply;
        emptyReads = answer.emptyReadsBefore;
        return answer.writtenCount < 0 ? frame.size() : answer.writtenCount;
    }
    bool setOption(int code, const QVariant& value) override
    {
        QMutexLocker lock(&mutex);
        log << QString("option %1=%2 (%3)").arg(code).arg(value.toString(), value.typeName());
        if (code == OptionPrepareCommand) {
            pending.clear();
            emptyReads = 0;
        }
        return true;
    }

private:
    static QByteArray commandOf(const QByteArray& frame)
    {
        const int start = frame.indexOf('\x02'), end = frame.indexOf('\x03', start + 1);
        return start < 0 || end < 0 ? frame : frame.mid(start + 1, end - start - 1);
    }
    struct Rule {
        QByteArray key;
        Answer answer;
        int remaining;
    };
    mutable QMutex mutex;
    QList<Rule> rules;
    QStringList log;
    QList<QByteArray> commands;
    QByteArray pending;
    int emptyReads = 0;
    std::atomic<int> retries{0};
};

#endif
