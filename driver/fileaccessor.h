#ifndef FILEACCESSOR_H
#define FILEACCESSOR_H

#include "driver/controllerframes.h"
#include "driver/segmentcodec.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>

class AbstractDeviceInterface;
class KCSVLoader;
class KCSVSaver;

// The worker that carries out program transfers between the controller and a
// program file on the panel's removable storage. The driver creates one
// without parent, moves it to a thread of its own and talks to it only
// through queued signals; every slot runs in that thread, one transfer at a
// time. Only setInterface, requestAbort and abortRequested may be called from
// other threads.
class FileAccessor : public QObject
{
    Q_OBJECT
    friend class FileAccessorTest; // unit tests reach the private helpers
    friend class DriverCoreTest;
    friend class ExchangeTest;
    friend struct ReplyHandlingFuzz;

public:
    // The largest program file a write loads: far above any program file
    // (30 rows of 26 short cells in UTF-16 take about 12 KiB), far below
    // what would strain a panel's memory.
    static constexpr qint64 MaxProgramFileBytes = 1 << 20;

    explicit FileAccessor(QObject* parent = nullptr);
    ~FileAccessor() override;

    // Stores the runtime's port object (not owned). Called by the driver from
    // the runtime's communication thread before every start request; the
    // exchange takes the pointer that is current at each step.
    void setInterface(AbstractDeviceInterface* port);

    // Asks a running transfer to give up at its next wait. Used when the
    // driver is destroyed; there is no way back, the worker is about to go.
    void requestAbort();
    bool abortRequested() const;

    // The interruptible form of the fixed waits between a command and its
    // reply: sleeps ms milliseconds, scaled by the DCP30_WAIT_PERCENT
    // setting, in slices of at most PauseSliceMs. Returns true when the full
    // time has passed, false as soon as an abort is requested (also when it
    // was requested before the call).
    bool pause(int ms);
    // ms scaled by the DCP30_WAIT_PERCENT setting (at least 1 for ms > 0).
    qint64 scaledWaitMs(int ms) const;
    // The scale pause() applies, 1..100 (100 = the real waits).
    int waitPercent() const { return waitScalePercent; }

    static constexpr int PauseSliceMs = 10;

    // Application property that turns line pacing on: its value is the
    // guard gap in ms (0..1000) kept before the next command. Unset, the
    // exchange keeps the fixed waits.
    static constexpr const char* LinePacingProperty = "DCP30LinePacing";

    // Queued calls reach the worker through Qt's post-event queue, whose
    // locking ThreadSanitizer cannot see. Whoever posts to the worker calls
    // beforePosting() first, and event() picks the hand-over up, so that
    // what the poster did before (building a parameter list, say) is
    // ordered before the worker's slot. No-ops in other builds.
    void beforePosting() const;

protected:
    bool event(QEvent* e) override;

signals:
    // Title, text and flag for the runtime's message centre; the title is
    // always "DCP30" and the flag always true.
    void showMessage(QString title, QString text, bool flag);
    // Wired to the driver; the transfers report through the flags instead.
    void setErrorInstantMessage(QString msg);
    // Only false: the read (write) has ended.
    void setRF(bool b);
    void setWF(bool b);
    // Only true: the write (read) left messages in its error log.
    void setWE(bool b);
    void setRE(bool b);
    // Percentage of segments done, 1..100.
    void setReadProgress(quint8 p);
    void setWriteProgress(quint8 p);

public slots:
    // storageType: 0 (or less) is the USB stick, above 0 the SD card.
    void readProgramFileProcess(int progID, int segmentCnt, int storageType);
    // paras: the driver's five write parameters (SP1 low and high limit,
    // kinds of events 1 to 3).
    void writeProgramFileProcess(QList<int> paras, int progID, int segmentCnt, int storageType);

private slots:
    // Mount directory of the medium from the runtime's device object, or an
    // empty string (no device object, failed call, medium not mounted).
    QString getStorageMountPath(int storageType);
    // The controller's message for a two-character status code; empty for a
    // code it does not know.
    QString getErrorMessageByStatusCodeFromPLC(QString statusCode);
    // Range check of one cell under the write parameters stored last.
    bool checkValueRange(QString cellTitle, qint32 value, QString& error);
    // Takes elements 0..4 of paras; a shorter list leaves the rest unchanged.
    void setParameters(QList<qint32> paras);
    // Full path of "PROG_<id>.txt" on the medium of the running transfer, ok
    // true; or an empty string, ok false, after telling the user the medium
    // is missing.
    QString getFileName(int programID, bool& ok);
    // The same for the error log: type 1 names the write log, any other
    // value the read log.
    QString getErrorLogFileName(int type, int programID, bool& ok);

    // The codec under the worker's write parameters (fileaccessor_codec.cpp).
    void HEX2CSV(int segment, QString& indata, QList<QStringList>& datas);
    bool CSV2HEX(int segment, QStringList& inDatas, QString& outData, QStringList& errorList);
    bool CSVCell2HEX(QStringList& inDatas, QString& outData, QStringList& errorList, bool& noError,
                     const QString& cellTitle, qint32& decCellIntValue);
    void generalHead(QList<QStringList>& datas);

    // Builds the command templates that are still empty; the open operations
    // call it, the others use the templates as they are.
    void initRWCommand();
    // One whole read attempt: open, every segment, close, save. False when
    // worth repeating (communication failure, segment retries used up, or
    // an abort); true when the attempt has ended, messages or not.
    bool openFileForRead(int programID, int segmentCnt, QList<QStringList>& datas,
                         QStringList& errorList);
    // One whole write attempt over the segment rows (header removed): open,
    // check every row, write the valid ones, close. False as for a read.
    bool openFileForWrite(int programID, int segmentCnt, QList<QStringList> datas,
                          QStringList& errorList);
    // Reads one segment and appends its row. False when worth repeating.
    bool readFile(int programID, int segment, QList<QStringList>& datas, QStringList& errorList);
    // Writes one segment record. False when worth repeating.
    bool writeFile(int programID, int segment, QString outputData, QStringList& errorList);
    // Checks row segment - 1 of datas (no header row) and encodes it.
    bool validateDataRow(int segment, QList<QStringList>& datas, QString& outputData,
                         QStringList& errorList);
    // Sends the close command until the controller answers it (see
    // closeControllerFile); reports nothing.
    void closeFile(int programID);

private:
    enum class ExchangeOutcome { Accepted, SendFailure, HeaderFailure, ControllerError, Aborted };
    struct ExchangeResult {
        ExchangeOutcome outcome = ExchangeOutcome::SendFailure;
        // The received text (up to the first zero byte) once a reply was read.
        QString text;
        // The controller's status code after a controller error.
        QString statusCode;
        // The line for the caller's error list after a controller error:
        // "Seg<n>:" and the controller's message for the segment commands.
        QString errorLine;
    };

    // Whether an exchange gives way to an abort. Only the one close sent
    // while the driver is being taken down does not.
    enum class OnAbort { GiveUp, CarryOn };
    // One command on the line: option 12 with 0, send, the reply (see
    // awaitReply), header and status check. Sends
    // nothing once an abort is requested; an abort during the wait ends it
    // without reading. Each step takes the port pointer current at that step.
    // Keeps openProgram up to date.
    ExchangeResult exchange(ControllerFrames::Command command, int programID, int segment = 0,
                            const QString& record = QString(), OnAbort onAbort = OnAbort::GiveUp);
    // exchange() with its outcome filed in errorList: sendFailure or
    // headerFailure for those failures, the controller's line for a refusal.
    ExchangeResult reportedExchange(ControllerFrames::Command command, int programID, int segment,
                                    const QString& record, QStringList& errorList,
                                    const QString& sendFailure, const QString& headerFailure);
    // Fills replyBuffer with the command's reply: after the fixed wait, or,
    // line-paced, as soon as the frame is complete (the fixed wait still the
    // limit), followed by the guard gap. False when an abort came first.
    // Not abortable: the take-down's close waits its time out.
    bool awaitReply(ControllerFrames::Command command, bool abortable = true);
    // The guard gap that LinePacingProperty asks for, or -1 (fixed waits).
    static int linePacingFromApplication();
    QString& commandTemplate(ControllerFrames::Command command);
    // The open command of both workflows, filed like reportedExchange. An
    // open refused with status 50 as the first exchange of a transfer gets
    // one close and one more open first: a session that died with the
    // controller's file open must not lock the controller for good. A
    // refusal with status 50 then means another client holds the file, and
    // errorList says so after the controller's message.
    ExchangeResult openControllerFile(ControllerFrames::Command command, int programID,
                                      QStringList& errorList, const QString& sendFailure,
                                      const QString& headerFailure);
    // The close command, repeated (up to the retry count) until a reply
    // with the controller's header comes back; any status counts, since the
    // controller heard it ("not open" included). False after the last try,
    // with a line in errorList saying the controller's file may still be
    // open.
    bool closeControllerFile(int programID, QStringList& errorList);
    // After an attempt that did not end regularly: closes the controller's
    // file if the attempt may have left it open, so that the next attempt
    // or transfer can open it. During a take-down, one close at most.
    void releaseControllerFile(QStringList& errorList);
    // The port's retry count, asked anew at every call; 0 without a port.
    int retries();
    // "First retry.", "Second retry.", "<r> st retry.".
    static QString retryLabel(int retry);
    // done / total * 100 in single precision, truncated.
    static quint8 progressPercent(int done, int total);
    // The outer retry level shared by both workflows: runs attempt once into
    // errorList and, while it asks to be repeated, again up to the retry
    // count into labelled attempt lists; overMessage (with %1) closes the
    // last one. False when an abort cut the attempts short.
    bool runAttempts(const std::function<bool(QStringList&)>& attempt, QStringList& errorList,
                     const QString& overMessage);
    // A read's row for a segment that ended without data (refused by the
    // controller, or lost on the line with no retries left): its label and
    // "----" in every other cell, so that row n stays segment n.
    static QStringList placeholderRow(int segment);
    // Before a write touches the controller, the five write parameters must
    // all have come back in full: the driver hands over the values it read
    // completely, in order, and stops at the first short answer. Empty when
    // all five are there; else the log line naming the read that failed.
    static QString parameterReadFailure(const QList<int>& paras, int programID);
    // The program file may be loaded: absent (the loader reports that) or a
    // regular file of at most MaxProgramFileBytes. Else the user's message;
    // a FIFO, a device or a directory is never opened.
    static QString programFileProblem(const QString& fileName);

    // First steps of both transfers: remembers the medium and tests it (the
    // user is told when it is missing). False: the transfer ends here.
    bool mediumReady(int programID, int storageType);
    // Last steps of both transfers (type 1: write, else read): the running
    // flag drops, then the error log is written when there are messages and
    // the transfer was not aborted.
    void finishTransfer(int type, int programID, bool finished, const QStringList& errorList);
    // The inner retry level shared by both workflows: runs step once and,
    // while it asks to be repeated, again up to the retry count. False when
    // the retries are used up (overMessage, filled with the program number
    // and the retry count, closes the list) or an abort came; true when the
    // step went through or, with no retries left to try, the workflow goes on.
    bool retrySegment(const std::function<bool()>& step, int programID, QStringList& errorList,
                      const QString& overMessage);
    SegmentCodec::WriteParameters writeParameters() const;
    // csvSaver / csvLoader, created on first use in the calling (worker)
    // thread, so that they never count as GUI objects.
    KCSVSaver* saver();
    KCSVLoader* loader();

    // Ends a workflow whose error list is not empty: raises the error flag
    // (type 1: write, else read), puts "Program 1:" in front of the list and
    // writes it to the medium's error log, then sync(). Returns true when the
    // log reached the medium; a missing medium has been reported to the user.
    bool writeErrorLog(int type, int programID, QStringList errorList);
    // showMessage with the worker's title and flag.
    void tellUser(const QString& text);
    // Full path of name on the medium of the running transfer; see getFileName.
    QString pathOnMedium(const QString& name, bool& ok);
    // The runtime's port object as last handed over; may be null.
    AbstractDeviceInterface* port() const { return device.load(std::memory_order_relaxed); }

    // Owned, created on the first write (read) without parent widget and
    // kept with their settings and messages for later transfers.
    KCSVLoader* csvLoader = nullptr;
    KCSVSaver* csvSaver = nullptr;
    // Framed command templates, built on the first open.
    QString openReadCommand;
    QString openWriteCommand;
    QString readCommand;
    QString writeCommand;
    QString closeCommand;
    std::atomic<AbstractDeviceInterface*> device{nullptr};
    // Receives one reply per command; zeroed before each read, which is
    // bounded well below its size, so the text always ends in a zero byte.
    char replyBuffer[ControllerFrames::ReplyBufferSize] = {};
    // Write parameters, used by the cell checks of a program write.
    int spLowLimit = 0;
    int spHighLimit = 0;
    int ev1Type = 0;
    int ev2Type = 0;
    int ev3Type = 0;
    int transferStorageType = 0;

    // The program whose file the controller may hold open for this worker:
    // an open command went out and no close has been answered since. 0 when
    // none.
    int openProgram = 0;
    // True until the first exchange of the running transfer has gone out.
    bool transferFresh = false;

    std::atomic<bool> abortFlag{false};
    int waitScalePercent = 100;
    const int pacedGuardMs = linePacingFromApplication();
};

#endif
