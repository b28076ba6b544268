// The controller exchange of the FileAccessor worker: command templates, one
// command on the line, the close command and the status messages. Framing,
// reply checks and the message table live in ControllerFrames; this file
// adds the port and the worker's buffer; the wait is fileaccessor_reply.cpp.
#include "driver/abstractdeviceinterface.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

#include <QThread>
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
                                                    const QString& record, OnAbort onAbort)
{
    ExchangeResult result;
    const bool giveUp = onAbort == OnAbort::GiveUp;
    if (giveUp && abortRequested()) {
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
    transferFresh = false;
    // Once the whole frame is out, the controller may act on it whether or
    // not its reply comes back.
    const bool opening = command == Command::OpenRead || command == Command::OpenWrite;
    if (opening && written == frame.size())
        openProgram = programID;
    if (written != frame.size()) {
        result.outcome = ExchangeOutcome::SendFailure;
        return result;
    }

    if (!awaitReply(command, giveUp)) {
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
        result.statusCode = check.statusCode;
        result.errorLine = ControllerFrames::controllerErrorLine(command, segment, check.message);
        qCInfo(dcp30Event) << "controller refused" << frame.mid(1, frame.size() - 4)
                           << "with status" << check.statusCode;
        break;
    }
    // The controller heard this command: a refused open opened nothing, and
    // a close answered in any way leaves no file of ours open.
    if (result.outcome != ExchangeOutcome::HeaderFailure) {
        if (opening && result.outcome == ExchangeOutcome::ControllerError)
            openProgram = 0;
        if (command == Command::Close)
            openProgram = 0;
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

FileAccessor::ExchangeResult FileAccessor::openControllerFile(Command command, int programID,
                                                              QStringList& errorList,
                                                              const QString& sendFailure,
                                                              const QString& headerFailure)
{
    static const QString alreadyOpen = QStringLiteral("50");
    const bool firstOfTransfer = transferFresh;
    QStringList openErrors;
    ExchangeResult opened =
        reportedExchange(command, programID, 0, QString(), openErrors, sendFailure, headerFailure);
    if (firstOfTransfer && opened.outcome == ExchangeOutcome::ControllerError &&
        opened.statusCode == alreadyOpen) {
        qCInfo(dcp30Event) << "program" << programID
                           << "file already open at the start: closing it once";
        QStringList closeErrors; // a failed close shows in the open that follows
        closeControllerFile(programID, closeErrors);
        openErrors.clear();
        opened = reportedExchange(command, programID, 0, QString(), openErrors, sendFailure,
                                  headerFailure);
    }
    if (opened.outcome == ExchangeOutcome::ControllerError && opened.statusCode == alreadyOpen)
        openErrors << QStringLiteral("The Program %1 file is held open by another client of the "
                                     "controller; it was not closed by this panel.")
                          .arg(programID);
    errorList << openErrors;
    return opened;
}

bool FileAccessor::closeControllerFile(int programID, QStringList& errorList)
{
    for (int attempt = 0; attempt <= retries(); ++attempt) {
        const ExchangeResult reply = exchange(Command::Close, programID);
        if (reply.outcome == ExchangeOutcome::Accepted ||
            reply.outcome == ExchangeOutcome::ControllerError)
            return true;
        if (reply.outcome == ExchangeOutcome::Aborted)
            return false; // the take-down sends its own close
    }
    qCWarning(dcp30Event) << "close of program" << programID << "never answered";
    errorList << QStringLiteral("Closing the Program %1 file fail. The file may still be open "
                                "in the controller.")
                     .arg(programID);
    return false;
}

void FileAccessor::closeFile(int programID)
{
    QStringList unreported;
    closeControllerFile(programID, unreported);
}

void FileAccessor::releaseControllerFile(QStringList& errorList)
{
    if (openProgram == 0)
        return;
    if (!abortRequested()) {
        closeControllerFile(openProgram, errorList);
        return;
    }
    // The driver is going: one close, whose wait the abort does not cut
    // short, and nobody left to read a complaint.
    qCInfo(dcp30Event) << "take-down: closing the file of program" << openProgram;
    exchange(Command::Close, openProgram, 0, QString(), OnAbort::CarryOn);
}
