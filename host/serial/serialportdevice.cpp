#include "host/serial/serialportdevice.h"

#include "host/serial/portoptions.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSerialPort>
#include <QSocketNotifier>

#include <condition_variable>
#include <deque>
#include <thread>

#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcSerial, "dcp.host.serial", QtInfoMsg)
Q_LOGGING_CATEGORY(lcSerialWire, "dcp.host.serial.wire", QtWarningMsg)

namespace
{

// UNIX98 pseudo-terminal slaves have majors 136..143. The kernel keeps a
// pty at 8 data bits without parity and refuses other settings with EINVAL.
bool isPseudoTerminal(const QString& path)
{
    struct stat st {
    };
    if (stat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISCHR(st.st_mode))
        return false;
    const unsigned int m = major(st.st_rdev);
    return m >= 136 && m <= 143;
}

QString openErrorText(const QString& path, QSerialPort::SerialPortError code, const QString& detail)
{
    switch (code) {
    case QSerialPort::DeviceNotFoundError:
        return QStringLiteral("Port %1 does not exist.").arg(path);
    case QSerialPort::PermissionError: {
        const QFileInfo info(path);
        if (info.exists() && (!info.isReadable() || !info.isWritable()))
            return QStringLiteral("Port %1: permission denied.").arg(path);
        return QStringLiteral("Port %1 is busy: another program has it open.").arg(path);
    }
    default:
        return QStringLiteral("Port %1 cannot be opened: %2").arg(path, detail);
    }
}

} // namespace

// The I/O thread: owns the QSerialPort and runs the callers' jobs, which
// arrive through a queue and an eventfd watched by its event loop.
class SerialPortDevice::IoThread
{
public:
    explicit IoThread(SerialPortDevice& device) : device(device)
    {
        wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    }
    ~IoThread() { ::close(wakeUp); }

    // Blocks until the thread has created the port.
    void startAndWait()
    {
        thread = std::thread([this] { run(); });
        std::unique_lock<std::mutex> lock(jobMutex);
        jobDone.wait(lock, [this] { return ready; });
    }

    void stop()
    {
        call([this] { eventLoop->quit(); });
        thread.join();
    }

    void call(const std::function<void()>& job)
    {
        if (std::this_thread::get_id() == thread.get_id()) {
            job();
            return;
        }
        Job pending{&job, false};
        std::unique_lock<std::mutex> lock(jobMutex);
        jobs.push_back(&pending);
        const quint64 one = 1;
        const ssize_t ignored = ::write(wakeUp, &one, sizeof one);
        (void)ignored;
        jobDone.wait(lock, [&] { return pending.done; });
    }

private:
    // A plain thread with a Qt event loop of its own (Qt adopts it): joining
    // it is an ordering ThreadSanitizer understands, QThread::wait is not.
    void run()
    {
        QEventLoop loop;
        eventLoop = &loop;
        QSerialPort serial;
        QSocketNotifier notifier(wakeUp, QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, [this] { runJobs(); });
        QObject::connect(&serial, &QSerialPort::readyRead, [this] { device.onReadyRead(); });
        QObject::connect(&serial, &QSerialPort::errorOccurred,
                         [this, &serial](QSerialPort::SerialPortError code) {
                             // The device vanished (USB adapter pulled): the port is gone.
                             if (code == QSerialPort::ResourceError && serial.isOpen()) {
                                 device.setError(QStringLiteral("Port %1 failed: %2")
                                                     .arg(device.name, serial.errorString()));
                                 serial.close();
                                 device.opened = false;
                             }
                         });
        device.port = &serial;
        {
            std::lock_guard<std::mutex> lock(jobMutex);
            ready = true;
        }
        jobDone.notify_all();
        loop.exec();
        serial.close();
        device.port = nullptr;
    }

    struct Job {
        const std::function<void()>* function;
        bool done;
    };

    void runJobs()
    {
        quint64 count = 0;
        const ssize_t ignored = ::read(wakeUp, &count, sizeof count);
        (void)ignored;
        for (;;) {
            Job* job = nullptr;
            {
                std::lock_guard<std::mutex> lock(jobMutex);
                if (jobs.empty())
                    return;
                job = jobs.front();
                jobs.pop_front();
            }
            (*job->function)();
            {
                std::lock_guard<std::mutex> lock(jobMutex);
                job->done = true;
            }
            jobDone.notify_all();
        }
    }

    SerialPortDevice& device;
    int wakeUp = -1;
    std::mutex jobMutex;
    std::condition_variable jobDone;
    std::deque<Job*> jobs;
    bool ready = false;
    std::thread thread;
    QEventLoop* eventLoop = nullptr;
};

SerialPortDevice::SerialPortDevice(const QString& portName, const SerialSettings& settings,
                                   int retryCount)
    : name(portName), io(new IoThread(*this)), retries(qMax(0, retryCount)), lineSettings(settings)
{
    io->startAndWait();
}

SerialPortDevice::~SerialPortDevice()
{
    close();
    io->stop();
}

void SerialPortDevice::inIoThread(const std::function<void()>& job)
{
    io->call(job);
}

void SerialPortDevice::onReadyRead()
{
    // Collect as soon as bytes arrive, so that readBytes sees everything the
    // line has delivered without waiting on this thread.
    const QByteArray data = port->readAll();
    qCDebug(lcSerialWire) << name << "received" << data;
    {
        std::lock_guard<std::mutex> lock(mutex);
        inbox += data;
        if (inbox.size() > InboxLimit)
            inbox.remove(0, inbox.size() - InboxLimit);
    }
    inputArrived.notify_all();
}

bool SerialPortDevice::setSettings(const QString& text)
{
    SerialSettings parsed;
    QString why;
    if (!SerialSettings::parse(text, &parsed, &why)) {
        setError(why);
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex);
    lineSettings = parsed;
    return true;
}

SerialSettings SerialPortDevice::settings() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return lineSettings;
}

QString SerialPortDevice::errorString() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return error;
}

QStringList SerialPortDevice::warnings() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return refusedSettings;
}

void SerialPortDevice::setError(const QString& text)
{
    std::lock_guard<std::mutex> lock(mutex);
    error = text;
}

bool SerialPortDevice::open()
{
    if (opened)
        return true;
    bool ok = false;
    inIoThread([&] { ok = openInIoThread(); });
    return ok;
}

bool SerialPortDevice::openInIoThread()
{
    const SerialSettings s = settings();
    port->setPortName(name);
    port->setBaudRate(s.baudRate);
    port->setStopBits(s.stopBits);
    port->setFlowControl(QSerialPort::NoFlowControl);
    // Open at 8N and ask for the parity and data bits afterwards: QSerialPort
    // fails the whole open when one setting is refused, and a pseudo-terminal
    // refuses parity.
    port->setDataBits(QSerialPort::Data8);
    port->setParity(QSerialPort::NoParity);
    if (!port->open(QIODevice::ReadWrite)) {
        setError(openErrorText(name, port->error(), port->errorString()));
        qCWarning(lcSerial).noquote() << errorString();
        return false;
    }
    QStringList refused;
    if (!port->setDataBits(s.dataBits))
        refused << QStringLiteral("%1 data bits").arg(int(s.dataBits));
    if (!port->setParity(s.parity))
        refused << QStringLiteral("parity %1").arg(s.toString().section(QLatin1Char(','), 2, 2));
    port->clearError();
    if (!refused.isEmpty() && !isPseudoTerminal(name)) {
        setError(
            QStringLiteral("Port %1 refuses %2.").arg(name, refused.join(QStringLiteral(", "))));
        qCWarning(lcSerial).noquote() << errorString();
        port->close();
        return false;
    }
    for (const QString& r : refused)
        qCInfo(lcSerial).noquote() << name << "is a pseudo-terminal: going on without" << r;
    port->clear(QSerialPort::Input);
    {
        std::lock_guard<std::mutex> lock(mutex);
        refusedSettings = refused;
        inbox.clear();
        error.clear();
    }
    opened = true;
    return true;
}

void SerialPortDevice::close()
{
    inIoThread([this] {
        if (port->isOpen())
            port->close();
        opened = false;
        std::lock_guard<std::mutex> lock(mutex);
        inbox.clear();
    });
}

int SerialPortDevice::readBytes(char* buffer, int maxLength)
{
    if (!buffer || maxLength <= 0)
        return 0;
    std::lock_guard<std::mutex> lock(mutex);
    const int n = qMin(maxLength, inbox.size());
    memcpy(buffer, inbox.constData(), size_t(n));
    inbox.remove(0, n);
    return n;
}

int SerialPortDevice::writeBytes(const char* data, int length)
{
    if (!data || length < 0)
        return -1;
    int written = -1;
    inIoThread([&] {
        if (!port->isOpen()) {
            setError(QStringLiteral("Port %1 is not open.").arg(name));
            return;
        }
        written = int(port->write(data, length));
        if (written < 0) {
            setError(QStringLiteral("Port %1: %2").arg(name, port->errorString()));
            return;
        }
        qCDebug(lcSerialWire) << name << "sent" << QByteArray(data, written);
        port->flush();
    });
    return written;
}

bool SerialPortDevice::setOption(int code, const QVariant& value)
{
    if (code == HostPortOptions::WaitForInput) {
        std::unique_lock<std::mutex> lock(mutex);
        inputArrived.wait_for(lock, std::chrono::milliseconds(qMax(0, value.toInt())),
                              [this] { return !inbox.isEmpty(); });
        return true;
    }
    if (code != OptionPrepareCommand || value.toInt() != 0)
        return false;
    inIoThread([this] {
        if (port->isOpen()) {
            port->readAll();
            port->clear(QSerialPort::Input);
        }
        std::lock_guard<std::mutex> lock(mutex);
        inbox.clear();
    });
    return true;
}
