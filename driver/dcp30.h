#ifndef DCP30_H
#define DCP30_H

#include "driver/driverinterface.h"

#include <QList>
#include <QObject>
#include <QString>
#include <mutex>

#include <atomic>

class FileAccessor;
class QThread;

// The DCP30 program controller driver. It serves nine internal variables
// that let the panel's screens start program transfers, and forwards all
// other addresses to the companion driver of the controller's register
// protocol. Transfers run in a FileAccessor worker on a thread of its own.
//
// Threads: read() and write() come from the runtime's communication thread;
// the slots run in the thread that created the driver, which must run an
// event loop; the worker runs in workerThread. Values that cross threads are
// atomics (relaxed: each is a value of its own, nothing is published
// through them).
class DriverDCP30 : public QObject, public DriverInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "com.quorvex.drivers.DriverInterface/1.1")
    Q_INTERFACES(DriverInterface)
    friend class DriverCoreTest; // unit tests reach the worker

public:
    // Where the companion driver of the register protocol is installed on
    // the panel. A host or a test points the driver at another build of it
    // through the application property named by CompanionLibraryProperty
    // (a QString path), set before the driver is created; the default path
    // is used when the property is absent or empty.
    static constexpr const char* CompanionLibraryPath = "/home/dest/drivers/libsdc35.so";
    static constexpr const char* CompanionLibraryProperty = "DCP30CompanionLibrary";
    // How many read() calls keep hasError() raised after a message.
    static constexpr int ErrorHoldReads = 100;
    // How long take-down waits for the worker's thread. A worker stuck in a
    // call that never returns (a hung medium, a port that blocks) is left to
    // finish on its own rather than holding up the runtime for good.
    static constexpr int WorkerJoinMs = 2000;

    // Passive unless the application object carries the property "hvx_env":
    // then the companion driver is loaded (if it can be) and the worker
    // thread started.
    DriverDCP30();
    ~DriverDCP30() override;

    int totalSize() override { return 65535; }
    bool write(AbstractDeviceInterface* device, const CommunicatorCommand& command,
               const QByteArray& data) override;
    QByteArray read(AbstractDeviceInterface* device, const CommunicatorCommand& command) override;
    bool initialize(AbstractDeviceInterface*) override { return true; }
    bool validation(const QString&) override { return true; }
    QString name() override;
    QString vender() override;
    QString getVersionNumber() override;
    DeviceSetting* getDefaultSerialDeviceSetting() override;
    DriverSetting* getDefaultDriverSetting() override;
    QString getStringBasedDefaultDriverSetting() override;
    int supportedCommunicationFlags() override { return 64; }
    void setDebugMode(bool on) override { debugMode.store(on, std::memory_order_relaxed); }
    int getBlockAccessSize() override { return 0; }
    int getBitBlockAccessSize() override { return 0; }
    bool hasError() override { return errorFlag.load(std::memory_order_relaxed); }
    QString getLastError() override;
    QObject* getThisObject() override { return this; }

    // One step of the error hold-down; read() runs it first on every call.
    void clearError();
    // The five controller parameters a program write needs, read through the
    // companion driver with the latest port: SP1 low and high limit, kinds of
    // events 1 to 3. Only values that came back in full count: the list ends
    // before the first read that was answered short or not at all (empty
    // without a companion), and the worker refuses a write that lacks any.
    QList<int> getWriteParameters();

signals:
    void readProgramFileProcess(int progID, int segmentCnt, int storageType);
    void writeProgramFileProcess(QList<int> paras, int progID, int segmentCnt, int storageType);

private slots:
    void delayClearError();
    void setErrorInstantMessage(QString msg);
    void setRF(bool b);
    void setWF(bool b);
    void setWE(bool b);
    void setRE(bool b);
    void setReadProgress(quint8 p);
    void setWriteProgress(quint8 p);

private:
    void loadCompanionDriver();
    void startWorker();
    void setFileAccessorSignalSlot();
    void stopWorker();
    void storeDevice(AbstractDeviceInterface* port);
    bool busy() const
    {
        return rf.load(std::memory_order_relaxed) || wf.load(std::memory_order_relaxed);
    }
    // Start rules of "RF0"/"WF0": a non-zero byte, nothing running, numbers in range.
    bool mayStart(quint8 value) const;

    std::atomic<bool> errorFlag{false};
    std::atomic<bool> debugMode{false};
    // The text is no single value: guard it. A std::mutex, not a QMutex:
    // ThreadSanitizer sees through the former only.
    mutable std::mutex lastErrorMutex;
    QString lastError;
    std::atomic<AbstractDeviceInterface*> device{nullptr};
    DriverInterface* companionDriver = nullptr;
    std::atomic<bool> rf{false};
    std::atomic<bool> wf{false};
    std::atomic<bool> we{false};
    std::atomic<bool> re{false};
    std::atomic<quint8> progID{1};
    std::atomic<quint8> readProgress{0};
    std::atomic<quint8> writeProgress{0};
    std::atomic<quint8> storageType{0};
    std::atomic<quint8> segmentCnt{1};
    QThread* workerThread = nullptr;
    FileAccessor* fileAccessor = nullptr;
    std::atomic<int> errorHoldCount{ErrorHoldReads};
};

#endif
