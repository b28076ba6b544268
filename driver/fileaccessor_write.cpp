// The program write of the FileAccessor worker: "PROG_<id>.txt" on the medium
// -> checked segment records -> controller, with retries on two levels,
// progress and the write error log.
#include "csv/kcsvloader.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

using ControllerFrames::Command;

void FileAccessor::writeProgramFileProcess(QList<int> paras, int progID, int segmentCnt,
                                           int storageType)
{
    if (abortRequested()) // queued before the driver went: nobody waits for it
        return;
    if (!mediumReady(progID, storageType)) {
        emit setWF(false);
        return;
    }
    setParameters(paras);
    const QString parametersMissing = parameterReadFailure(paras, progID);
    if (!parametersMissing.isEmpty()) {
        // The cell checks would run against values nobody read: neither the
        // file nor the controller is touched.
        finishTransfer(1, progID, true, {parametersMissing});
        return;
    }
    KCSVLoader* csv = loader();

    bool ok = false;
    const QString fileName = getFileName(progID, ok);
    const QString fileProblem = ok ? programFileProblem(fileName) : QString();
    if (!fileProblem.isEmpty()) {
        tellUser(fileProblem);
        emit setWF(false);
        return;
    }
    QList<QStringList> rows;
    if (!ok || !csv->openFile(fileName) || (rows = csv->fileContent()).isEmpty()) {
        // Asked once more, the loader adds the outcome of its latest load
        // to its messages; those are all the user learns. Nothing was sent.
        csv->fileContent();
        tellUser(csv->errorMessageList().join(QLatin1Char('\n')));
        emit setWF(false);
        return;
    }
    rows.removeFirst(); // the header: row s - 1 is now segment s

    QStringList errorList;
    const bool finished = runAttempts(
        [&](QStringList& attemptList) {
            return openFileForWrite(progID, segmentCnt, rows, attemptList);
        },
        errorList, QStringLiteral("Write File retry time is over %1 times."));
    finishTransfer(1, progID, finished, errorList);
}

bool FileAccessor::openFileForWrite(int programID, int segmentCnt, QList<QStringList> datas,
                                    QStringList& errorList)
{
    initRWCommand();
    const QString opening = QStringLiteral("Opening the Program %1 file fail. Error Code %2.");
    const ExchangeResult opened =
        openControllerFile(Command::OpenWrite, programID, errorList, opening.arg(programID).arg(13),
                           opening.arg(programID).arg(11));
    if (opened.outcome != ExchangeOutcome::Accepted)
        return opened.outcome == ExchangeOutcome::ControllerError; // a refusal is final

    // Every row is checked before the first one is sent, so that the log
    // names all bad rows even when the line fails later.
    const QMap<int, QString> records =
        SegmentCodec::checkSegments(writeParameters(), datas, segmentCnt, errorList);
    if (segmentCnt >= 1 && records.isEmpty()) {
        closeControllerFile(programID, errorList);
        return !abortRequested();
    }

    const int total = records.size();
    int done = 0;
    for (auto it = records.cbegin(); it != records.cend(); ++it) {
        const int segment = it.key();
        const bool segmentDone = retrySegment(
            [&] { return writeFile(programID, segment, it.value(), errorList); }, programID,
            errorList,
            QStringLiteral("\nThe retry time of writing the Program %1 file is over %2 times."));
        if (!segmentDone)
            return false;
        emit setWriteProgress(progressPercent(++done, total));
    }
    // Every segment went through; a close that goes unanswered is reported
    // (the controller may hold the file open), not repeated as an attempt.
    closeControllerFile(programID, errorList);
    return !abortRequested();
}

bool FileAccessor::writeFile(int programID, int segment, QString outputData, QStringList& errorList)
{
    const ExchangeResult reply =
        reportedExchange(Command::Write, programID, segment, outputData, errorList,
                         QStringLiteral("Write File Fail. Error Code 22."),
                         QStringLiteral("Write File Fail. Error Code 21."));
    // A refusal is final: the controller will not take this record.
    return reply.outcome == ExchangeOutcome::Accepted ||
           reply.outcome == ExchangeOutcome::ControllerError;
}
