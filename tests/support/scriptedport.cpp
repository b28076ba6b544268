#include "tests/support/scriptedport.h"

#include <QRegularExpression>

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
    return start < 0 || end < 0 ? frame : frame.mid(start + 1, end - start - 1);
}
} // namespace

QByteArray ScriptedPort::framed(const QByteArray& text)
{
    return STX + text + ETX + "\r\n";
}

void ScriptedPort::reset()
{
    QMutexLocker lock(&mutex);
    rules.clear();
    defaultAnswer = Answer();
    responder = nullptr;
    readChunk = pendingEmptyReads = 0;
    log.clear();
    pendingInput.clear();
}

QStringList ScriptedPort::trace() const
{
    QMutexLocker lock(&mutex);
    return log;
}

QList<QByteArray> ScriptedPort::sentFrames() const
{
    QList<QByteArray> frames;
    for (const QString& entry : trace().filter(QRegularExpression("^write ")))
        frames << QByteArray::fromHex(entry.mid(6).toLatin1());
    return frames;
}

QList<QByteArray> ScriptedPort::sentCommands() const
{
    QList<QByteArray> commands;
    for (const QByteArray& frame : sentFrames())
        commands << commandOf(frame);
    return commands;
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
    const int chunk = readChunk;
    const QByteArray data = pendingInput.left(chunk > 0 ? qMin(maxLength, chunk) : maxLength);
    pendingInput.remove(0, data.size());
    std::memcpy(buffer, data.constData(), size_t(data.size()));
    return data.size();
}

int ScriptedPort::writeBytes(const char* data, int length)
{
    QMutexLocker lock(&mutex);
    const QByteArray frame = (data && length > 0) ? QByteArray(data, length) : QByteArray();
    log << QStringLiteral("write ") + QString::fromLatin1(frame.toHex());

    const QByteArray command = commandOf(frame);
    Answer answer = defaultAnswer;
    bool ruled = false;
    for (int i = 0; i < rules.size() && !ruled; ++i) {
        Rule& rule = rules[i];
        ruled = rule.key.isEmpty() || command == rule.key || command.startsWith(rule.key + ',');
        if (!ruled)
            continue;
        answer = rule.answer;
        if (rule.remaining != Forever && --rule.remaining <= 0)
            rules.removeAt(i);
    }
    if (!ruled && responder) {
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
