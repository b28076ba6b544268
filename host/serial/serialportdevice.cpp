#include "host/serial/serialportdevice.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <QMutexLocker>
#include <QSerialPort>

#include <sys/stat.h>
#include <sys/sysmacros.h>

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

SerialPortDevice::SerialPortDevice(const QString& portName, const SerialSettings& settings,
                                   int retryCount)
    : name(portName), retries(qMax(0, retryCount)), lineSettings(settings)
{
    ioContext = new QObject;
    port = new QSerialPort(ioContext);
    ioContext->moveToThread(&ioThread);
    // Collect in the I/O thread, as soon as bytes arrive, so that readBytes
    // sees everything the line has delivered without waiting on that thread.
    QObject::connect(port, &QSerialPort::readyRead, ioContext, [this] {
        const QByteArray data = port->readAll();
        qCDebug(lcSerialWire) << name << "received" << data;
        QMutexLocker lock(&mutex);
        inbox += data;
        if (inbox.size() > InboxLimit)
            inbox.remove(0, inbox.size() - InboxLimit);
    });
    QObject::connect(
        port, &QSerialPort::errorOccurred, ioContext, [this](QSerialPort::SerialPortError code) {
            // The device vanished (USB adapter pulled): the port is gone.
            if (code == QSerialPort::ResourceError && port->isOpen()) {
                setError(QStringLiteral("Port %1 failed: %2").arg(name, port->errorString()));
                port->close();
                opened = false;
            }
        });
    ioThread.setObjectName(QStringLiteral("serial-io"));
    ioThread.start();
}

SerialPortDevice::~SerialPortDevice()
{
    close();
    ioThread.quit();
    ioThread.wait();
    delete ioContext; // its thread has ended: no event can reach it any more
}

template <typename F> void SerialPortDevice::inIoThread(F&& function)
{
    if (QThread::currentThread() == &ioThread)
        function();
    else
        QMetaObject::invokeMethod(ioContext, std::forward<F>(function),
                                  Qt::BlockingQueuedConnection);
}

bool SerialPortDevice::setSettings(const QString& text)
{
    SerialSettings parsed;
    QString why;
    if (!SerialSettings::parse(text, &parsed, &why)) {
        setError(why);
        return false;
    }
    QMutexLocker lock(&mutex);
    lineSettings = parsed;
    return true;
}

SerialSettings SerialPortDevice::settings() const
{
    QMutexLocker lock(&mutex);
    return lineSettings;
}

QString SerialPortDevice::errorString() const
{
    QMutexLocker lock(&mutex);
    return error;
}

QStringList SerialPortDevice::warnings() const
{
    QMutexLocker lock(&mutex);
    return refusedSettings;
}

void SerialPortDevice::setError(const QString& text)
{
    QMutexLocker lock(&mutex);
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
        QMutexLocker lock(&mutex);
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
        QMutexLocker lock(&mutex);
        inbox.clear();
    });
}

int SerialPortDevice::readBytes(char* buffer, int maxLength)
{
    if (!buffer || maxLength <= 0)
        return 0;
    QMutexLocker lock(&mutex);
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
    if (code != OptionPrepareCommand || value.toInt() != 0)
        return false;
    inIoThread([this] {
        if (port->isOpen()) {
            port->readAll();
            port->clear(QSerialPort::Input);
        }
        QMutexLocker lock(&mutex);
        inbox.clear();
    });
    return true;
}
