// The program read of the FileAccessor worker: controller program -> program
// table -> "PROG_<id>.txt" on the medium, with retries on two levels, progress
// and the read error log.
#include "csv/kcsvloader.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

#include <unistd.h>

using ControllerFrames::Command;

void FileAccessor::readProgramFileProcess(int progID, int segmentCnt, int storageType)
{
    if (abortRequested()) // queued before the driver went: nobody waits for it
        return;
    if (!mediumReady(progID, storageType)) {
        emit setRF(false);
        return;
    }
    saver();

    QList<QStringList> table;
    QStringList errorList;
    const bool finished = runAttempts(
        [&](QStringList& attemptList) {
            // Every attempt starts from an empty table. A failed attempt has
            // already put a header row and some segment rows into it; kept,
            // they would reach the file as a second header and duplicate
            // rows, and the write workflow takes rows by position.
            table.clear();
            return openFileForRead(progID, segmentCnt, table, attemptList);
        },
        errorList, QStringLiteral("Read File retry time is over %1 times."));
    finishTransfer(0, progID, finished, errorList);
}

bool FileAccessor::openFileForRead(int programID, int segmentCnt, QList<QStringList>& datas,
                                   QStringList& errorList)
{
    initRWCommand();
    const QString opening = QStringLiteral("Opening the Program %1 file fail. Error Code %2.");
    const ExchangeResult opened =
        openControllerFile(Command::OpenRead, programID, errorList, opening.arg(programID).arg(3),
                           opening.arg(programID).arg(1));
    if (opened.outcome != ExchangeOutcome::Accepted) {
        // A refusal is final: nothing to close, nothing to save.
        return opened.outcome == ExchangeOutcome::ControllerError;
    }

    generalHead(datas);
    for (int segment = 1; segment <= segmentCnt; ++segment) {
        const int rowsBefore = datas.size();
        const bool segmentDone = retrySegment(
            [&] { return readFile(programID, segment, datas, errorList); }, programID, errorList,
            QStringLiteral("The retry time of reading the Program %1 file is over %2 times."));
        if (!segmentDone)
            return false; // nothing is saved on this path
        // Refused, or lost with no retries left: row n must stay segment n,
        // since a later write takes the file's rows by position.
        if (datas.size() == rowsBefore)
            datas << placeholderRow(segment);
        emit setReadProgress(progressPercent(segment, segmentCnt));
    }
    // Every segment is in the table: a close that goes unanswered is
    // reported, but the table is saved all the same.
    closeControllerFile(programID, errorList);
    if (abortRequested())
        return false;

    bool ok = false;
    const QString fileName = getFileName(programID, ok);
    if (!ok)
        return true; // the medium has gone; the user has been told
    KCSVSaver* csv = saver();
    if (csv->saveFile(datas, fileName)) {
        ::sync(); // the user may pull the medium as soon as the flag drops
    } else {
        tellUser(csv->errorMessageList().join(QLatin1Char('\n')));
        emit setRF(false);
    }
    return true;
}

bool FileAccessor::readFile(int programID, int segment, QList<QStringList>& datas,
                            QStringList& errorList)
{
    const QString reading = QStringLiteral("Reading the Program %1 file fail. Error Code %2.");
    const ExchangeResult reply =
        reportedExchange(Command::Read, programID, segment, QString(), errorList,
                         reading.arg(programID).arg(4), reading.arg(programID).arg(1));
    if (reply.outcome == ExchangeOutcome::ControllerError)
        return true; // the segment gets no row of its own; the caller marks its place
    if (reply.outcome != ExchangeOutcome::Accepted)
        return false;

    // A reply for another segment (a late one, say) may have the right
    // length: only the echoed program and segment numbers tell.
    QString field = ControllerFrames::segmentField(reply.text, programID, segment);
    if (field.size() != ControllerFrames::segmentFieldLength(segment) ||
        !ControllerFrames::answersSegmentRead(reply.text, programID, segment)) {
        errorList
            << QStringLiteral("Reading the Program %1 file fail. Error Code 2.").arg(programID);
        return false;
    }
    HEX2CSV(segment, field, datas);
    return true;
}
