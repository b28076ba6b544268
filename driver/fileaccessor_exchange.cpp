// The controller exchange of the FileAccessor worker: command templates, one
// command on the line, the close command and the status messages. Framing,
// reply checks and the message table live in ControllerFrames; this file
// adds the port and the worker's buffer; the wait is fileaccessor_reply.cpp.
#include "driver/abstractdeviceinterface.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

#include <QVariant>

using ControllerFrames::Command;

QString FileAccessor::getErrorMessageByStatusCodeFromPLC(QString statusCode)
{
    return ControllerFrames::getErrorMessageByStatusCodeFromPLC(statusCode);
}

void FileAccessor::initRWCommand()
{
    const Command commands[] = {Command::OpenRead, Command::OpenWrite, Command::Read,
                                Command::Write, Command::Close};
    for (Command command : commands) {
        QString& text = commandTemplate(command);
        if (text.isEmpty())
            text = ControllerFrames::framedTemplate(command);
    }
}

QString& FileAccessor::commandTemplate(Command command)
{
    switch (command) {
    case Command::OpenRead:
        return openReadCommand;
    case Command::OpenWrite:
        return openWriteCommand;
    case Command::Read:
        return readCommand;
    case Command::Write:
        return writeCommand;
    case Command::Close:
        break;
    }
    return closeCommand;
}

int FileAccessor::retries()
{
    AbstractDeviceInterface* p = port();
    return p ? p->retryCount() : 0;
}

FileAccessor::ExchangeResult FileAccessor::exchange(Command command, int programID, int segment,
                                                    const QString& record)
{
    ExchangeResult result;
    if (abortRequested()) {
        result.outcome = ExchangeOutcome::Aborted;
        return result;
    }
    const QByteArray frame = ControllerFrames::toWire(ControllerFrames::fillTemplate(
        commandTemplate(command), command, programID, segment, record));

    // The runtime may hand over another port between any two steps; each
    // step uses the one current then. No port at all counts as a send that
    // did not go through.
    if (AbstractDeviceInterface* p = port())
        p->setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
    AbstractDeviceInterface* p = port();
    const int written = p ? p->writeBytes(frame.constData(), frame.size()) : -1;
    qCDebug(dcp30Wire) << "sent" << frame.toHex(' ') << "accepted" << written;
    if (written != frame.size()) {
        result.outcome = ExchangeOutcome::SendFailure;
        return result;
    }

    if (!awaitReply(command)) {
        result.outcome = ExchangeOutcome::Aborted;
        return result;
    }
    result.text = ControllerFrames::replyText(replyBuffer, int(sizeof replyBuffer));
    qCDebug(dcp30Wire) << "received" << result.text.toLatin1().toHex(' ');

    const ControllerFrames::ReplyCheck check = ControllerFrames::checkReply(result.text);
    switch (check.outcome) {
    case ControllerFrames::ReplyOutcome::Accepted:
        result.outcome = ExchangeOutcome::Accepted;
        break;
    case ControllerFrames::ReplyOutcome::HeaderFailure:
        result.outcome = ExchangeOutcome::HeaderFailure;
        break;
    case ControllerFrames::ReplyOutcome::ControllerError:
        result.outcome = ExchangeOutcome::ControllerError;
        result.errorLine = ControllerFrames::controllerErrorLine(command, segment, check.message);
        qCInfo(dcp30Event) << "controller refused" << frame.mid(1, frame.size() - 4)
                           << "with status" << check.statusCode;
        break;
    }
    return result;
}

FileAccessor::ExchangeResult FileAccessor::reportedExchange(Command command, int programID,
                                                            int segment, const QString& record,
                                                            QStringList& errorList,
                                                            const QString& sendFailure,
                                                            const QString& headerFailure)
{
    const ExchangeResult result = exchange(command, programID, segment, record);
    switch (result.outcome) {
    case ExchangeOutcome::SendFailure:
        errorList << sendFailure;
        break;
    case ExchangeOutcome::HeaderFailure:
        errorList << headerFailure;
        break;
    case ExchangeOutcome::ControllerError:
        errorList << result.errorLine;
        break;
    case ExchangeOutcome::Accepted:
    case ExchangeOutcome::Aborted: // nobody will read the list
        break;
    }
    return result;
}

void FileAccessor::closeFile(int programID)
{
    // The controller's answer changes nothing: the transfer is over either way.
    exchange(Command::Close, programID);
}
