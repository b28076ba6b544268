// The program write of the FileAccessor worker: "PROG_<id>.txt" on the medium
// -> checked segment records -> controller, with retries on two levels,
// progress and the write error log.
#include "csv/kcsvloader.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

#include <QMap>

using ControllerFrames::Command;

void FileAccessor::writeProgramFileProcess(QList<int> paras, int progID, int segmentCnt,
                                           int storageType)
{
    if (abortRequested()) // queued before the driver went: nobody waits for it
        return;
    transferStorageType = storageType;
    bool ok = false;
    getFileName(progID, ok); // only tests the medium
    if (!ok) {
        emit setWF(false);
        return;
    }
    setParameters(paras);
    KCSVLoader* csv = loader();

    const QString fileName = getFileName(progID, ok);
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
    emit setWF(false);
    if (!finished) {
        qCInfo(dcp30Event) << "program write of" << progID << "aborted";
        return;
    }
    if (!errorList.isEmpty())
        writeErrorLog(1, progID, errorList);
}

bool FileAccessor::openFileForWrite(int programID, int segmentCnt, QList<QStringList> datas,
                                    QStringList& errorList)
{
    initRWCommand();
    const ExchangeResult opened = exchange(Command::OpenWrite, programID);
    switch (opened.outcome) {
    case ExchangeOutcome::Aborted:
        return false;
    case ExchangeOutcome::SendFailure:
        errorList
            << QStringLiteral("Opening the Program %1 file fail. Error Code 13.").arg(programID);
        return false;
    case ExchangeOutcome::HeaderFailure:
        errorList
            << QStringLiteral("Opening the Program %1 file fail. Error Code 11.").arg(programID);
        return false;
    case ExchangeOutcome::ControllerError:
        errorList << opened.errorLine;
        return true;
    case ExchangeOutcome::Accepted:
        break;
    }

    // Every row is checked before the first one is sent, so that the log
    // names all bad rows even when the line fails later.
    QMap<int, QString> records;
    for (int segment = 1; segment <= segmentCnt; ++segment) {
        if (datas.size() < segment) {
            errorList << QStringLiteral("Segment %1 has no data in the csv file. Please check it.")
                             .arg(segment);
            continue;
        }
        QString record;
        QStringList segmentErrors;
        if (validateDataRow(segment, datas, record, segmentErrors)) {
            records.insert(segment, record);
            continue;
        }
        errorList << QStringLiteral("\n\tSegment %1 has following format error : ").arg(segment);
        for (const QString& problem : qAsConst(segmentErrors))
            errorList << QStringLiteral("\t\t%1").arg(problem);
    }
    if (segmentCnt >= 1 && records.isEmpty()) {
        closeFile(programID);
        if (abortRequested())
            return false;
        errorList << QStringLiteral(
            "\nThere is no data to write out. Maybe the format of all segments are incorrect.");
        return true;
    }

    const int total = records.size();
    int done = 0;
    for (auto it = records.cbegin(); it != records.cend(); ++it) {
        const int segment = it.key();
        if (!writeFile(programID, segment, it.value(), errorList)) {
            for (int r = 1; r <= retries(); ++r) {
                if (abortRequested())
                    return false;
                if (writeFile(programID, segment, it.value(), errorList))
                    break;
                if (r == retries()) {
                    // Left open: the whole attempt starts again from the open.
                    errorList << QStringLiteral("\nThe retry time of writing the Program %1 file "
                                                "is over %2 times.")
                                     .arg(programID)
                                     .arg(retries());
                    return false;
                }
            }
        }
        if (abortRequested())
            return false;
        emit setWriteProgress(progressPercent(++done, total));
    }
    closeFile(programID);
    return !abortRequested();
}

bool FileAccessor::writeFile(int programID, int segment, QString outputData, QStringList& errorList)
{
    const ExchangeResult reply = exchange(Command::Write, programID, segment, outputData);
    switch (reply.outcome) {
    case ExchangeOutcome::Aborted:
        return false;
    case ExchangeOutcome::SendFailure:
        errorList << QStringLiteral("Write File Fail. Error Code 22.");
        return false;
    case ExchangeOutcome::HeaderFailure:
        errorList << QStringLiteral("Write File Fail. Error Code 21.");
        return false;
    case ExchangeOutcome::ControllerError:
        errorList << reply.errorLine; // final: the controller will not take it
        return true;
    case ExchangeOutcome::Accepted:
        break;
    }
    return true;
}
