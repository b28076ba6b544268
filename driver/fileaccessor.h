#ifndef FILEACCESSOR_H
#define FILEACCESSOR_H

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>

class AbstractDeviceInterface;

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

public:
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
    // The scale pause() applies, 1..100 (100 = the real waits).
    int waitPercent() const { return waitScalePercent; }

    static constexpr int PauseSliceMs = 10;

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
    // Takes elements 0..4 of paras; a shorter list leaves the rest unchanged.
    void setParameters(QList<qint32> paras);
    // Full path of "PROG_<id>.txt" on the medium of the running transfer, ok
    // true; or an empty string, ok false, after telling the user the medium
    // is missing.
    QString getFileName(int programID, bool& ok);
    // The same for the error log: type 1 names the write log, any other
    // value the read log.
    QString getErrorLogFileName(int type, int programID, bool& ok);

private:
    // Ends a workflow whose error list is not empty: raises the error flag
    // (type 1: write, else read), puts "Program 1:" in front of the list and
    // writes it to the medium's error log, then sync(). Returns true when the
    // log reached the medium; a missing medium has been reported to the user.
    bool writeErrorLog(int type, int programID, QStringList errorList);
    // Full path of name on the medium of the running transfer; see getFileName.
    QString pathOnMedium(const QString& name, bool& ok);
    // The runtime's port object as last handed over; may be null.
    AbstractDeviceInterface* port() const { return device.load(std::memory_order_relaxed); }

    std::atomic<AbstractDeviceInterface*> device{nullptr};
    // Write parameters, used by the cell checks of a program write.
    int spLowLimit = 0;
    int spHighLimit = 0;
    int ev1Type = 0;
    int ev2Type = 0;
    int ev3Type = 0;
    int transferStorageType = 0;

    std::atomic<bool> abortFlag{false};
    int waitScalePercent = 100;
};

#endif
