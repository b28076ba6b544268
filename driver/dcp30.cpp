#include "driver/dcp30.h"

#include "common/devicesetting.h"
#include "common/driversetting.h"
#include "common/tools.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

#include <QCoreApplication>
#include <QLibrary>
#include <QThread>
#include <mutex>

#include <future>
#include <memory>

namespace
{

const char VersionNumber[] = "1.0.0";
constexpr quint8 MaxSegmentCount = 30;
constexpr quint8 MaxProgramID = 19;
constexpr auto Relaxed = std::memory_order_relaxed;

// Set while this thread creates a companion driver, so that a companion
// path that names this plug-in itself ends in a passive driver instead of
// an endless chain of drivers.
thread_local bool creatingCompanion = false;

// Internal values travel as the first byte of the data; none counts as 0.
quint8 firstByte(const QByteArray& data)
{
    return data.isEmpty() ? 0 : static_cast<quint8>(data.at(0));
}

// Panel values are clamped, never refused: 0 becomes 1.
quint8 clampCount(quint8 value, quint8 max)
{
    return value == 0 ? 1 : qMin(value, max);
}

QByteArray oneByte(quint8 value)
{
    return QByteArray(1, static_cast<char>(value));
}

bool is(const QString& address, const char* name)
{
    return address == QLatin1String(name);
}

} // namespace

DriverDCP30::DriverDCP30() : QObject(nullptr)
{
    const QCoreApplication* app = QCoreApplication::instance();
    if (!app || !app->property("hvx_env").isValid() || creatingCompanion) {
        qCDebug(dcp30Event) << "passive driver: no panel environment";
        return;
    }
    loadCompanionDriver();
    startWorker();
}

DriverDCP30::~DriverDCP30()
{
    delete companionDriver;
    companionDriver = nullptr;
    stopWorker();
}

void DriverDCP30::loadCompanionDriver()
{
    QString path = QCoreApplication::instance()->property(CompanionLibraryProperty).toString();
    if (path.isEmpty())
        path = QString::fromLatin1(CompanionLibraryPath);
    // The library stays loaded for the process's lifetime: the companion's
    // code must outlive every driver it made.
    const auto create =
        reinterpret_cast<CreateDriverFunction>(QLibrary::resolve(path, "CreateDriver"));
    if (!create) {
        qCInfo(dcp30Event) << "companion driver" << path
                           << "not available: internal variables only";
        return;
    }
    creatingCompanion = true;
    companionDriver = create();
    creatingCompanion = false;
}

void DriverDCP30::startWorker()
{
    workerThread = new QThread;
    workerThread->setObjectName(QStringLiteral("DCP30 worker"));
    fileAccessor = new FileAccessor;
    fileAccessor->moveToThread(workerThread);
    setFileAccessorSignalSlot();
    // Wait until the thread runs: its event dispatcher then exists, and the
    // hand-over goes through a promise, which ThreadSanitizer can see (it
    // cannot see Qt's own locking, and would take every later wake-up of
    // the worker's event loop from this thread for a race).
    std::promise<void> running;
    const QMetaObject::Connection started =
        connect(workerThread, &QThread::started, [&running] { running.set_value(); });
    workerThread->start(QThread::InheritPriority);
    running.get_future().wait();
    disconnect(started);
}

void DriverDCP30::setFileAccessorSignalSlot()
{
    // Queued calls copy their arguments through the meta-type system.
    qRegisterMetaType<QList<int>>("QList<int>");
    qRegisterMetaType<quint8>("quint8");

    connect(this, &DriverDCP30::readProgramFileProcess, fileAccessor,
            &FileAccessor::readProgramFileProcess);
    connect(this, &DriverDCP30::writeProgramFileProcess, fileAccessor,
            &FileAccessor::writeProgramFileProcess);
    connect(fileAccessor, &FileAccessor::setRF, this, &DriverDCP30::setRF);
    connect(fileAccessor, &FileAccessor::setWF, this, &DriverDCP30::setWF);
    connect(fileAccessor, &FileAccessor::setWE, this, &DriverDCP30::setWE);
    connect(fileAccessor, &FileAccessor::setRE, this, &DriverDCP30::setRE);
    connect(fileAccessor, &FileAccessor::setErrorInstantMessage, this,
            &DriverDCP30::setErrorInstantMessage);
    connect(fileAccessor, &FileAccessor::setReadProgress, this, &DriverDCP30::setReadProgress);
    connect(fileAccessor, &FileAccessor::setWriteProgress, this, &DriverDCP30::setWriteProgress);
}

// The worker is never deleted inside one of its slots and the thread object
// never while it runs: a transfer is asked to stop at its next wait (one
// controller exchange at most, then one close of the controller's file),
// the thread's event loop is left and joined, and only then are both
// deleted. Requests still queued are dropped. A worker that does not come
// back within WorkerJoinMs is stuck outside the driver's reach; it loses
// the port and deletes itself, with its thread, when it returns.
void DriverDCP30::stopWorker()
{
    if (!workerThread)
        return;
    fileAccessor->requestAbort();
    workerThread->quit();
    if (!workerThread->wait(WorkerJoinMs)) {
        qCWarning(dcp30Event) << "worker still busy after" << WorkerJoinMs
                              << "ms; left to end on its own";
        fileAccessor->setInterface(nullptr);
        FileAccessor* worker = fileAccessor;
        QThread* thread = workerThread;
        // Whoever comes second (the thread ending, or this check after the
        // connection) cleans up; the flag makes sure only one does.
        const auto cleaned = std::make_shared<std::atomic<bool>>(false);
        const auto cleanUp = [worker, thread, cleaned] {
            if (cleaned->exchange(true))
                return;
            delete worker;
            thread->deleteLater();
        };
        connect(thread, &QThread::finished, thread, cleanUp, Qt::DirectConnection);
        if (thread->isFinished())
            cleanUp();
        fileAccessor = nullptr;
        workerThread = nullptr;
        return;
    }
    delete fileAccessor;
    fileAccessor = nullptr;
    delete workerThread;
    workerThread = nullptr;
}

void DriverDCP30::storeDevice(AbstractDeviceInterface* port)
{
    device.store(port, Relaxed);
    if (fileAccessor)
        fileAccessor->setInterface(port);
}

QString DriverDCP30::name()
{
    return QStringLiteral("DCP30");
}

QString DriverDCP30::vender()
{
    return QStringLiteral("Yamatake");
}

QString DriverDCP30::getVersionNumber()
{
    return QString::fromLatin1(VersionNumber);
}

DeviceSetting* DriverDCP30::getDefaultSerialDeviceSetting()
{
    return new DeviceSetting(device_type(64), QStringLiteral("COM1"), 9600, 8, 0, 2);
}

DriverSetting* DriverDCP30::getDefaultDriverSetting()
{
    return new DriverSetting(500, 3, 1, 0);
}

QString DriverDCP30::getStringBasedDefaultDriverSetting()
{
    return QStringLiteral("RS485,9600,EVEN,8,1");
}

QString DriverDCP30::getLastError()
{
    std::lock_guard<std::mutex> lock(lastErrorMutex);
    return lastError;
}

void DriverDCP30::clearError()
{
    if (!errorFlag.load(Relaxed) || errorHoldCount.load(Relaxed) <= 0)
        return;
    if (errorHoldCount.fetch_sub(1, Relaxed) == 1)
        errorFlag.store(false, Relaxed);
}

bool DriverDCP30::mayStart(quint8 value) const
{
    const quint8 id = progID.load(Relaxed);
    const quint8 count = segmentCnt.load(Relaxed);
    return value != 0 && !busy() && id >= 1 && id <= MaxProgramID && count >= 1 &&
           count <= MaxSegmentCount;
}

QByteArray DriverDCP30::read(AbstractDeviceInterface* port, const CommunicatorCommand& command)
{
    clearError();
    storeDevice(port);
    const QString& address = command.address;
    if (is(address, "SegCnt0"))
        return oneByte(segmentCnt.load(Relaxed));
    if (is(address, "ProgramID0"))
        return oneByte(progID.load(Relaxed));
    if (is(address, "StorageType0"))
        return oneByte(storageType.load(Relaxed));
    if (is(address, "ReadProgress0"))
        return oneByte(readProgress.load(Relaxed));
    if (is(address, "WriteProgress0"))
        return oneByte(writeProgress.load(Relaxed));
    if (is(address, "RF0"))
        return oneByte(rf.load(Relaxed));
    if (is(address, "WF0"))
        return oneByte(wf.load(Relaxed));
    if (is(address, "WE0"))
        return oneByte(we.load(Relaxed));
    if (is(address, "RE0"))
        return oneByte(re.load(Relaxed));
    // While a transfer runs the controller line belongs to the worker.
    if (busy() || !companionDriver)
        return QByteArray();
    return companionDriver->read(port, command);
}

bool DriverDCP30::write(AbstractDeviceInterface* port, const CommunicatorCommand& command,
                        const QByteArray& data)
{
    storeDevice(port);
    const QString& address = command.address;
    const quint8 value = firstByte(data);
    if (is(address, "SegCnt0")) {
        segmentCnt.store(clampCount(value, MaxSegmentCount), Relaxed);
        return true;
    }
    if (is(address, "ProgramID0")) {
        progID.store(clampCount(value, MaxProgramID), Relaxed);
        return true;
    }
    if (is(address, "StorageType0")) {
        storageType.store(value == 0 ? 0 : 1, Relaxed);
        return true;
    }
    // The error flags look at the lowest bit only: 2 clears, 1 does nothing.
    if (is(address, "WE0") || is(address, "RE0")) {
        if ((value & 1) == 0)
            (is(address, "WE0") ? we : re).store(false, Relaxed);
        return true;
    }
    if (is(address, "RF0") || is(address, "WF0")) {
        const bool isRead = is(address, "RF0");
        if (!mayStart(value)) {
            if (value != 0)
                qCInfo(dcp30Event) << address << "start refused: a transfer is running";
            return true;
        }
        // Taken now: later changes by the panel do not affect this transfer.
        const int id = progID.load(Relaxed);
        const int count = segmentCnt.load(Relaxed);
        const int medium = storageType.load(Relaxed);
        // The flag goes up before the request leaves, so a second request
        // arriving before the worker has begun is already refused.
        if (isRead) {
            rf.store(true, Relaxed);
            if (fileAccessor)
                fileAccessor->beforePosting();
            emit readProgramFileProcess(id, count, medium);
        } else {
            wf.store(true, Relaxed);
            const QList<int> paras = getWriteParameters();
            if (fileAccessor)
                fileAccessor->beforePosting();
            emit writeProgramFileProcess(paras, id, count, medium);
        }
        return true;
    }
    if (busy() || !companionDriver)
        return false;
    return companionDriver->write(port, command, data);
}

QList<int> DriverDCP30::getWriteParameters()
{
    QList<int> paras;
    if (!companionDriver)
        return paras;
    AbstractDeviceInterface* port = device.load(Relaxed);
    CommunicatorCommand command;
    command.dataType = CommunicatorCommand::DoubleWordKind;
    command.address = QStringLiteral("RAM4509");
    command.count = 2;
    // A short answer would give a made-up limit (the bytes present, or 0):
    // the list stops there instead.
    const QByteArray limits = companionDriver->read(port, command);
    if (limits.size() < 8)
        return paras;
    paras << QByteArrayToInt(limits.mid(0, 4)) << QByteArrayToInt(limits.mid(4, 4));
    command.count = 1;
    for (const char* address : {"RAM3501", "RAM3505", "RAM3509"}) {
        command.address = QString::fromLatin1(address);
        const QByteArray kind = companionDriver->read(port, command);
        if (kind.size() < 4)
            break;
        paras << QByteArrayToInt(kind.left(4));
    }
    return paras;
}

void DriverDCP30::delayClearError()
{
    errorFlag.store(false, Relaxed);
}

void DriverDCP30::setErrorInstantMessage(QString msg)
{
    {
        std::lock_guard<std::mutex> lock(lastErrorMutex);
        lastError = msg;
    }
    errorHoldCount.store(ErrorHoldReads, Relaxed);
    errorFlag.store(true, Relaxed);
}

void DriverDCP30::setRF(bool b)
{
    rf.store(b, Relaxed);
    if (!b)
        readProgress.store(0, Relaxed);
}

void DriverDCP30::setWF(bool b)
{
    wf.store(b, Relaxed);
    if (!b)
        writeProgress.store(0, Relaxed);
}

void DriverDCP30::setWE(bool b)
{
    we.store(b, Relaxed);
}

void DriverDCP30::setRE(bool b)
{
    re.store(b, Relaxed);
}

void DriverDCP30::setReadProgress(quint8 p)
{
    readProgress.store(p, Relaxed);
}

void DriverDCP30::setWriteProgress(quint8 p)
{
    writeProgress.store(p, Relaxed);
}

// The runtime's factory: the caller owns the driver and destroys it through
// DriverInterface's virtual destructor.
extern "C" Q_DECL_EXPORT DriverInterface* CreateDriver()
{
    return new DriverDCP30;
}
