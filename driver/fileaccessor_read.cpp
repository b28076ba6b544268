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
    transferStorageType = storageType;
    bool ok = false;
    getFileName(progID, ok); // only tests the medium; the workflow names its files itself
    if (!ok) {
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
    emit setRF(false);
    if (!finished) {
        // The driver is being destroyed: no log, nobody left to read it.
        qCInfo(dcp30Event) << "program read of" << progID << "aborted";
        return;
    }
    if (!errorList.isEmpty())
        writeErrorLog(0, progID, errorList);
}

bool FileAccessor::openFileForRead(int programID, int segmentCnt, QList<QStringList>& datas,
                                   QStringList& errorList)
{
    initRWCommand();
    const ExchangeResult opened = exchange(Command::OpenRead, programID);
    switch (opened.outcome) {
    case ExchangeOutcome::Aborted:
        return false;
    case ExchangeOutcome::SendFailure:
        errorList
            << QStringLiteral("Opening the Program %1 file fail. Error Code 3.").arg(programID);
        return false;
    case ExchangeOutcome::HeaderFailure:
        errorList
            << QStringLiteral("Opening the Program %1 file fail. Error Code 1.").arg(programID);
        return false;
    case ExchangeOutcome::ControllerError:
        // Final: the controller said no; nothing to close, nothing to save.
        errorList << opened.errorLine;
        return true;
    case ExchangeOutcome::Accepted:
        break;
    }

    generalHead(datas);
    for (int segment = 1; segment <= segmentCnt; ++segment) {
        if (!readFile(programID, segment, datas, errorList)) {
            for (int r = 1; r <= retries(); ++r) {
                if (abortRequested())
                    return false;
                if (readFile(programID, segment, datas, errorList))
                    break;
                if (r == retries()) {
                    // The file stays open and nothing is saved: the whole
                    // attempt is repeated from the open.
                    errorList << QStringLiteral(
                                     "The retry time of reading the Program %1 file is over %2 "
                                     "times.")
                                     .arg(programID)
                                     .arg(retries());
                    return false;
                }
            }
        }
        if (abortRequested())
            return false;
        emit setReadProgress(progressPercent(segment, segmentCnt));
    }
    closeFile(programID);
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
    const ExchangeResult reply = exchange(Command::Read, programID, segment);
    switch (reply.outcome) {
    case ExchangeOutcome::Aborted:
        return false;
    case ExchangeOutcome::SendFailure:
        errorList
            << QStringLiteral("Reading the Program %1 file fail. Error Code 4.").arg(programID);
        return false;
    case ExchangeOutcome::HeaderFailure:
        errorList
            << QStringLiteral("Reading the Program %1 file fail. Error Code 1.").arg(programID);
        return false;
    case ExchangeOutcome::ControllerError: {
        errorList << reply.errorLine;
        // A refused segment keeps its place: row n must stay segment n, since
        // a later write takes the file's rows by position. The placeholder
        // carries the label the segment would have had and "----" in every
        // other cell. TIME has no "not set" form, so the row can never pass
        // the checks of a write: written back, the segment is reported as a
        // format error (a visible gap) instead of being filled with another
        // segment's data or with unset values.
        QStringList placeholder{QStringLiteral("SEG%1").arg(segment)};
        for (int cell = 1; cell < SegmentCodec::ColumnCount; ++cell)
            placeholder << QStringLiteral("----");
        datas << placeholder;
        return true;
    }
    case ExchangeOutcome::Accepted:
        break;
    }

    QString field = ControllerFrames::segmentField(reply.text, programID, segment);
    if (field.size() != ControllerFrames::segmentFieldLength(segment)) {
        errorList
            << QStringLiteral("Reading the Program %1 file fail. Error Code 2.").arg(programID);
        return false;
    }
    HEX2CSV(segment, field, datas);
    return true;
}
