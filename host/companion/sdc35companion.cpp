#include "host/companion/sdc35companion.h"

#include "common/devicesetting.h"
#include "common/driversetting.h"
#include "driver/abstractdeviceinterface.h"
#include "host/serial/portoptions.h"

#include <QElapsedTimer>
#include <QThread>

namespace
{

const char Stx = '\x02';
const QByteArray Terminator("\x03\r\n");
const QByteArray Header("0100X");

} // namespace

int Sdc35Companion::registerNumber(const QString& address)
{
    if (!address.startsWith(QLatin1String("RAM")) || address.size() == 3)
        return -1;
    const QStringRef digits = address.midRef(3);
    for (const QChar c : digits)
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return -1;
    bool ok = false;
    const int number = digits.toInt(&ok);
    return ok && number <= 65535 ? number : -1;
}

int Sdc35Companion::wordCount(const CommunicatorCommand& command)
{
    qint64 words = -1;
    if (command.dataType == CommunicatorCommand::WordKind)
        words = command.count;
    else if (command.dataType == CommunicatorCommand::DoubleWordKind)
        words = 2 * qint64(command.count);
    return words >= 1 && words <= MaxWords ? int(words) : -1;
}

QByteArray Sdc35Companion::frame(const QByteArray& text)
{
    return Stx + text + Terminator;
}

QByteArray Sdc35Companion::acceptedBody(const QByteArray& reply)
{
    const int start = reply.indexOf(Stx);
    const int end = reply.indexOf('\x03', start + 1);
    if (start < 0 || end < 0)
        return QByteArray();
    const QByteArray body = reply.mid(start + 1, end - start - 1);
    if (!body.startsWith(Header) || body.size() < 7)
        return QByteArray();
    const QByteArray status = body.mid(5, 2);
    return status == "00" || status == "01" ? body : QByteArray();
}

QVector<quint16> Sdc35Companion::parseWords(const QByteArray& body, int expected)
{
    const QList<QByteArray> fields = body.split(',');
    if (fields.size() != expected + 1)
        return {};
    QVector<quint16> words;
    for (int i = 1; i < fields.size(); ++i) {
        const QByteArray& field = fields.at(i);
        bool ok = !field.isEmpty();
        for (const char c : field)
            ok = ok && c >= '0' && c <= '9';
        const uint value = ok ? field.toUInt(&ok) : 0;
        if (!ok || value > 65535)
            return {};
        words << quint16(value);
    }
    return words;
}

QByteArray Sdc35Companion::exchange(AbstractDeviceInterface* device, const QByteArray& text)
{
    if (!device)
        return QByteArray();
    device->setOption(AbstractDeviceInterface::OptionPrepareCommand, QVariant(0));
    const QByteArray request = frame(text);
    if (device->writeBytes(request.constData(), request.size()) != request.size())
        return QByteArray();
    QByteArray reply;
    char buffer[256];
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        // Woken by the reply's bytes where the port can wait; polled where not.
        const qint64 left = qMax<qint64>(0, ReplyTimeoutMs - clock.elapsed());
        if (!device->setOption(HostPortOptions::WaitForInput, QVariant(int(left))))
            QThread::msleep(PollMs);
        const int n = device->readBytes(buffer, int(sizeof buffer));
        if (n > 0)
            reply.append(buffer, n);
        if (reply.contains(Terminator))
            return reply;
        if (clock.elapsed() >= ReplyTimeoutMs)
            return QByteArray();
    }
}

QByteArray Sdc35Companion::read(AbstractDeviceInterface* device, const CommunicatorCommand& command)
{
    const int address = registerNumber(command.address);
    const int words = wordCount(command);
    if (address < 0 || words < 0)
        return QByteArray();
    const QByteArray body = acceptedBody(
        exchange(device, QStringLiteral("0100XRS,%1W,%2").arg(address).arg(words).toLatin1()));
    const QVector<quint16> values = parseWords(body, words);
    QByteArray data;
    for (const quint16 v : values)
        data.append(char(v & 0xFF)).append(char(v >> 8));
    return data;
}

bool Sdc35Companion::write(AbstractDeviceInterface* device, const CommunicatorCommand& command,
                           const QByteArray& data)
{
    const int address = registerNumber(command.address);
    const int words = wordCount(command);
    if (address < 0 || words < 0 || data.size() < 2 * words)
        return false;
    QByteArray text = QByteArrayLiteral("0100XWS,") + QByteArray::number(address) + 'W';
    for (int i = 0; i < words; ++i) {
        const uint v = uchar(data.at(2 * i)) | uint(uchar(data.at(2 * i + 1))) << 8;
        text += ',' + QByteArray::number(v);
    }
    const QByteArray body = acceptedBody(exchange(device, text));
    return !body.isNull();
}

DeviceSetting* Sdc35Companion::getDefaultSerialDeviceSetting()
{
    return new DeviceSetting(device_type(64), QStringLiteral("COM1"), 9600, 8, 0, 2);
}

DriverSetting* Sdc35Companion::getDefaultDriverSetting()
{
    return new DriverSetting(500, 3, 1, 0);
}

// The factory the DCP30 driver resolves; the caller owns the driver.
extern "C" Q_DECL_EXPORT DriverInterface* CreateDriver()
{
    return new Sdc35Companion;
}
