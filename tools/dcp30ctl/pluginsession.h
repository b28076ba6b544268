#ifndef DCP30CTL_PLUGINSESSION_H
#define DCP30CTL_PLUGINSESSION_H

#include "observedport.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class AbstractDeviceInterface;
class CommunicatorCommand;
class DeviceObject;
class DriverInterface;
class MessageCentre;
class SerialPortDevice;

// What a session needs to know. Empty paths mean the libraries beside the
// executable (PluginLocation::besideExecutable: lib/dcp30 or lib).
struct PluginSessionOptions {
    QString pluginPath;
    QString companionPath;
    QString portName;
    QString settings = QStringLiteral("RS485,9600,EVEN,8,1");
    int retries = 3;
    // Directories standing for the media; empty means "not mounted".
    QString usbDirectory;
    QString sdDirectory;
    // Leave the message centre's own printing on (stderr, "DCP30: text").
    bool printMessages = false;
    // Line-paced transfers with this guard gap in ms; negative: the fixed
    // waits, as on a panel.
    int pacedGuardMs = -1;
};

// The dcp30 plug-in hosted the way the panel runtime hosts it: the library
// loaded and checked with QPluginLoader, the runtime's objects published as
// application properties ("hvx_env", "KDevice", "MessageCenter", and the
// companion library override), a driver made through CreateDriver in this
// thread (which must be the application's main thread and runs the event
// loop the driver's slots need), a serial port object, and a communication
// thread of its own from which the driver's read and write are called.
//
// Needs a QCoreApplication. Usage: load(), openPort(), then
// runOnCommunicationThread() with jobs that use the calls marked "on the
// communication thread".
class PluginSession
{
public:
    // The interface identifier the runtime accepts.
    static constexpr const char* InterfaceId = "com.quorvex.drivers.DriverInterface/1.1";

    explicit PluginSession(const PluginSessionOptions& options);
    // Takes the driver down first (a transfer in progress stops at its next
    // wait), then the port, then the runtime objects, and withdraws the
    // application properties.
    ~PluginSession();
    PluginSession(const PluginSession&) = delete;
    PluginSession& operator=(const PluginSession&) = delete;

    static QString defaultPluginPath();
    static QString defaultCompanionPath();

    // Loads and checks the plug-in (metadata IID, the interface, CreateDriver),
    // publishes the runtime objects and creates the driver. False with a
    // one-line reason in error.
    bool load(QString* error);
    // Opens the serial port with the options' settings and retry count. False
    // with a one-line reason (missing port, busy port, bad settings, a setting
    // a real line refuses).
    bool openPort(QString* error);
    // Settings the port let pass because it is a pseudo-terminal.
    QStringList portWarnings() const;

    const PluginSessionOptions& options() const { return opts; }
    DriverInterface* driver() const { return driverObject; }
    // The port the driver is handed: the serial port, or its observed form.
    AbstractDeviceInterface* port() const;
    // After openPort: from now on the driver talks through a port that hands
    // every command sent and every reply read to observers (in the worker's
    // thread). Call before the first transfer.
    void observeLine(const ObservedPort::Observers& observers);
    MessageCentre& messageCentre() { return *centre; }
    DeviceObject& deviceObject() { return *device; }

    // Runs job on the communication thread and returns when it has returned;
    // meanwhile this thread runs its event loop, so the driver's slots and
    // the message centre are served. Call from the thread that made the
    // session, one job at a time.
    void runOnCommunicationThread(const std::function<void()>& job);

    // On the communication thread: the driver's read and write with the
    // session's port.
    QByteArray read(const CommunicatorCommand& command);
    bool write(const CommunicatorCommand& command, const QByteArray& data);
    // On the communication thread: an internal one-byte variable ("RF0",
    // "ReadProgress0", ...), or -1 when the driver answers anything but one
    // byte.
    int readVariable(const QString& name);
    bool writeVariable(const QString& name, quint8 value);
    // On the communication thread: the five controller parameters a program
    // write hands to the worker (SP1 low and high limit, kinds of events 1..3),
    // read the way the driver reads them: double words at "RAM4509" (two),
    // "RAM3501", "RAM3505" and "RAM3509", through the driver, which forwards
    // them to the companion. A short answer gives the value of the bytes
    // present; ok (when given) is false if any answer was short.
    QList<int> readWriteParameters(bool* ok = nullptr);

private:
    class CommunicationThread;

    PluginSessionOptions opts;
    std::unique_ptr<DeviceObject> device;
    std::unique_ptr<MessageCentre> centre;
    std::unique_ptr<SerialPortDevice> serial;
    std::unique_ptr<ObservedPort> observed;
    std::unique_ptr<CommunicationThread> communication;
    DriverInterface* driverObject = nullptr;
};

#endif
