#include "pluginsession.h"
#include "pluginlocation.h"

#include "driver/abstractdeviceinterface.h"
#include "driver/communicatorcommand.h"
#include "driver/driverinterface.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/runtime/runtimeproperties.h"
#include "host/serial/serialportdevice.h"
#include "host/serial/serialsettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonObject>
#include <QLibrary>
#include <QPluginLoader>
#include <QTimer>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace
{

// Little-endian, as the driver decodes the companion's answers: four bytes
// make a signed 32-bit value, fewer give the value of the bytes present.
int littleEndianValue(const QByteArray& bytes)
{
    quint32 value = 0;
    for (int i = 0; i < 4 && i < bytes.size(); ++i)
        value |= quint32(quint8(bytes.at(i))) << (8 * i);
    return qint32(value);
}

CommunicatorCommand doubleWords(const char* address, unsigned int count)
{
    CommunicatorCommand command;
    command.dataType = CommunicatorCommand::DoubleWordKind;
    command.address = QString::fromLatin1(address);
    command.count = count;
    return command;
}

} // namespace

// The runtime's communication thread: one plain thread that runs the jobs
// handed to it, one at a time, for the session's lifetime.
class PluginSession::CommunicationThread
{
public:
    CommunicationThread() : thread([this] { loop(); }) {}
    ~CommunicationThread()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        thread.join();
    }

    void post(std::function<void()> job)
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            jobs.push_back(std::move(job));
        }
        wake.notify_all();
    }

private:
    void loop()
    {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock<std::mutex> lock(mutex);
                wake.wait(lock, [this] { return stopping || !jobs.empty(); });
                if (jobs.empty())
                    return;
                job = std::move(jobs.front());
                jobs.pop_front();
            }
            job();
        }
    }

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> jobs;
    bool stopping = false;
    std::thread thread;
};

PluginSession::PluginSession(const PluginSessionOptions& options)
    : opts(options), device(new DeviceObject), centre(new MessageCentre),
      communication(new CommunicationThread)
{
    centre->setQuiet(!opts.printMessages);
    device->setMountDirectory(DeviceObject::UsbStick, opts.usbDirectory);
    device->setMountDirectory(DeviceObject::SdCard, opts.sdDirectory);
}

PluginSession::~PluginSession()
{
    // The driver's worker may be inside an exchange on the port and sends
    // its messages to the centre: it goes first.
    delete driverObject;
    driverObject = nullptr;
    communication.reset();
    observed.reset();
    serial.reset();
    RuntimeProperties::setPanelEnvironment(false);
    RuntimeProperties::publishDevice(nullptr);
    RuntimeProperties::publishMessageCentre(nullptr);
    RuntimeProperties::setCompanionLibrary(QString());
    RuntimeProperties::setLinePacing(-1);
}

QString PluginSession::defaultPluginPath()
{
    return PluginLocation::besideExecutable(QStringLiteral("libdcp30.so"));
}

QString PluginSession::defaultCompanionPath()
{
    return PluginLocation::besideExecutable(QStringLiteral("libsdc35.so"));
}

bool PluginSession::load(QString* error)
{
    const QString path = opts.pluginPath.isEmpty() ? defaultPluginPath() : opts.pluginPath;
    const QString companion =
        opts.companionPath.isEmpty() ? defaultCompanionPath() : opts.companionPath;
    if (!QFileInfo::exists(path)) {
        *error = QStringLiteral("plug-in %1 not found").arg(path);
        return false;
    }
    if (!QFileInfo::exists(companion)) {
        *error = QStringLiteral("companion library %1 not found").arg(companion);
        return false;
    }

    // Qt's loader checks only its own version in the metadata: the
    // interface identifier is ours to check, before anything is created.
    QPluginLoader loader(path);
    const QJsonObject meta = loader.metaData();
    if (meta.isEmpty()) {
        *error = QStringLiteral("%1 is not a Qt plug-in: %2").arg(path, loader.errorString());
        return false;
    }
    const QString iid = meta.value(QStringLiteral("IID")).toString();
    if (iid != QLatin1String(InterfaceId)) {
        *error = QStringLiteral("%1 implements \"%2\", not \"%3\"")
                     .arg(path, iid, QLatin1String(InterfaceId));
        return false;
    }
    // The plug-in instance is made before "hvx_env" is published, so it stays
    // a passive driver: no second worker thread, no second companion.
    QObject* instance = loader.instance();
    if (!instance) {
        *error = QStringLiteral("%1 cannot be loaded: %2").arg(path, loader.errorString());
        return false;
    }
    if (!qobject_cast<DriverInterface*>(instance)) {
        *error = QStringLiteral("%1 does not implement DriverInterface").arg(path);
        return false;
    }
    const auto create =
        reinterpret_cast<CreateDriverFunction>(QLibrary::resolve(path, "CreateDriver"));
    if (!create) {
        *error = QStringLiteral("%1 exports no CreateDriver").arg(path);
        return false;
    }

    RuntimeProperties::publishDevice(device.get());
    RuntimeProperties::publishMessageCentre(centre.get());
    RuntimeProperties::setCompanionLibrary(companion);
    RuntimeProperties::setLinePacing(opts.pacedGuardMs);
    RuntimeProperties::setPanelEnvironment(true);
    driverObject = create();
    if (!driverObject) {
        *error = QStringLiteral("CreateDriver of %1 returned no driver").arg(path);
        return false;
    }
    return true;
}

bool PluginSession::openPort(QString* error)
{
    if (opts.portName.isEmpty()) {
        *error = QStringLiteral("no port given");
        return false;
    }
    SerialSettings settings;
    QString why;
    if (!SerialSettings::parse(opts.settings, &settings, &why)) {
        *error = QStringLiteral("bad line settings \"%1\": %2").arg(opts.settings, why);
        return false;
    }
    serial.reset(new SerialPortDevice(opts.portName, settings, opts.retries));
    if (!serial->open()) {
        *error = serial->errorString();
        serial.reset();
        return false;
    }
    return true;
}

QStringList PluginSession::portWarnings() const
{
    return serial ? serial->warnings() : QStringList();
}

void PluginSession::observeLine(const ObservedPort::Observers& observers)
{
    if (serial)
        observed = std::make_unique<ObservedPort>(serial.get(), observers);
}

AbstractDeviceInterface* PluginSession::port() const
{
    if (observed)
        return observed.get();
    return serial.get();
}

void PluginSession::runOnCommunicationThread(const std::function<void()>& job)
{
    std::atomic<bool> done{false};
    communication->post([&job, &done] {
        job();
        done.store(true, std::memory_order_release);
    });
    // Polled rather than signalled: the wake-up then needs no queued call
    // from a thread Qt does not know, and a few milliseconds do not matter.
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(2);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done.load(std::memory_order_acquire))
            loop.quit();
    });
    poll.start();
    if (!done.load(std::memory_order_acquire))
        loop.exec();
}

QByteArray PluginSession::read(const CommunicatorCommand& command)
{
    return driverObject ? driverObject->read(port(), command) : QByteArray();
}

bool PluginSession::write(const CommunicatorCommand& command, const QByteArray& data)
{
    return driverObject && driverObject->write(port(), command, data);
}

int PluginSession::readVariable(const QString& name)
{
    CommunicatorCommand command;
    command.dataType = CommunicatorCommand::ByteKind;
    command.address = name;
    const QByteArray answer = read(command);
    return answer.size() == 1 ? int(quint8(answer.at(0))) : -1;
}

bool PluginSession::writeVariable(const QString& name, quint8 value)
{
    CommunicatorCommand command;
    command.dataType = CommunicatorCommand::ByteKind;
    command.address = name;
    return write(command, QByteArray(1, char(value)));
}

QList<int> PluginSession::readWriteParameters(bool* ok)
{
    bool complete = true;
    const QByteArray limits = read(doubleWords("RAM4509", 2));
    complete = complete && limits.size() >= 8;
    QList<int> values{littleEndianValue(limits.mid(0, 4)), littleEndianValue(limits.mid(4, 4))};
    for (const char* address : {"RAM3501", "RAM3505", "RAM3509"}) {
        const QByteArray kind = read(doubleWords(address, 1));
        complete = complete && kind.size() >= 4;
        values << littleEndianValue(kind.left(4));
    }
    if (ok)
        *ok = complete;
    return values;
}
