#include "tests/support/scriptedport.h"

#include <QMutexLocker>

#include <cstring>

namespace
{
constexpr char STX = 0x02;
constexpr char ETX = 0x03;

// The text between STX and ETX of a frame (the whole frame if it is not one).
QByteArray commandOf(const QByteArray& frame)
{
    const int start = frame.indexOf(STX);
    const int end = frame.indexOf(ETX, start + 1);
    if (start < 0 || end < 0)
        return frame;
    return frame.mid(start + 1, end - start - 1);
}
} // namespace

QByteArray ScriptedPort::framed(const QByteArray& text)
{
    return STX + text + ETX + "\r\n";
}

void ScriptedPort::addAnswer(const QByteArray& key, const Answer& answer, int times)
{
    QMutexLocker lock(&mutex);
    rules.append(Rule{key, answer, times});
}

void ScriptedPort::setDefaultAnswer(const Answer& answer)
{
    QMutexLocker lock(&mutex);
    defaultAnswer = answer;
}

void ScriptedPort::setRetryCount(int count)
{
    QMutexLocker lock(&mutex);
    retries = count;
}

void ScriptedPort::setResponder(Responder r)
{
    QMutexLocker lock(&mutex);
    responder = std::move(r);
}

void ScriptedPort::setReadChunk(int bytes)
{
    QMutexLocker lock(&mutex);
    readChunk = qMax(0, bytes);
}

void ScriptedPort::reset()
{
    QMutexLocker lock(&mutex);
    rules.clear();
    defaultAnswer = Answer();
    responder = nullptr;
    readChunk = 0;
    log.clear();
    pendingInput.clear();
    pendingEmptyReads = 0;
}

QStringList ScriptedPort::trace() const
{
    QMutexLocker lock(&mutex);
    return log;
}

QList<QByteArray> ScriptedPort::sentFrames() const
{
    QList<QByteArray> frames;
    for (const QString& entry : trace()) {
        if (entry.startsWith(QLatin1String("write ")))
            frames << QByteArray::fromHex(entry.mid(6).toLatin1());
    }
    return frames;
}

QList<QByteArray> ScriptedPort::sentCommands() const
{
    QList<QByteArray> commands;
    for (const QByteArray& frame : sentFrames())
        commands << commandOf(frame);
    return commands;
}

QList<int> ScriptedPort::readLimits() const
{
    QList<int> limits;
    for (const QString& entry : trace()) {
        if (entry.startsWith(QLatin1String("read ")))
            limits << entry.mid(5).toInt();
    }
    return limits;
}

int ScriptedPort::readBytes(char* buffer, int maxLength)
{
    QMutexLocker lock(&mutex);
    log << QStringLiteral("read %1").arg(maxLength);
    if (pendingEmptyReads > 0) {
        --pendingEmptyReads;
        return 0;
    }
    if (!buffer || maxLength <= 0)
        return 0;
    const QByteArray data =
        pendingInput.left(readChunk > 0 ? qMin(maxLength, readChunk) : maxLength);
    pendingInput.remove(0, data.size());
    std::memcpy(buffer, data.constData(), size_t(data.size()));
    return data.size();
}

QString ScriptedPort::portName() const
{
    return QStringLiteral("scripted");
}

int ScriptedPort::writeBytes(const char* data, int length)
{
    QMutexLocker lock(&mutex);
    const QByteArray frame = (data && length > 0) ? QByteArray(data, length) : QByteArray();
    log << QStringLiteral("write ") + QString::fromLatin1(frame.toHex());

    Answer answer = defaultAnswer;
    if (!ruleAnswer(commandOf(frame), &answer) && responder) {
        const Responder respond = responder;
        lock.unlock();
        answer = respond(frame);
        lock.relock();
    }
    if (answer.kind == Answer::Kind::Reply) {
        pendingInput += answer.reply;
        pendingEmptyReads = answer.emptyReadsBefore;
    }
    return answer.kind == Answer::Kind::ShortWrite ? answer.writtenCount : frame.size();
}

bool ScriptedPort::setOption(int code, const QVariant& value)
{
    QMutexLocker lock(&mutex);
    log << QStringLiteral("option %1=%2 (%3)").arg(code).arg(value.toString(), value.typeName());
    if (code == OptionPrepareCommand) {
        pendingInput.clear();
        pendingEmptyReads = 0;
    }
    return true;
}

int ScriptedPort::retryCount()
{
    QMutexLocker lock(&mutex);
    return retries;
}

// Called with the mutex held.
bool ScriptedPort::ruleAnswer(const QByteArray& command, Answer* answer)
{
    for (int i = 0; i < rules.size(); ++i) {
        Rule& rule = rules[i];
        const bool matches =
            rule.key.isEmpty() || command == rule.key || command.startsWith(rule.key + ',');
        if (!matches)
            continue;
        *answer = rule.answer;
        if (rule.remaining != Forever && --rule.remaining <= 0)
            rules.removeAt(i);
        return true;
    }
    return false;
}
