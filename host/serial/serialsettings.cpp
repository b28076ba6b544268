#include "host/serial/serialsettings.h"

#include <QStringList>

namespace
{

const qint32 standardRates[] = {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};

struct ParityName {
    QSerialPort::Parity parity;
    const char* name;
};
const ParityName parityNames[] = {{QSerialPort::NoParity, "NONE"},
                                  {QSerialPort::EvenParity, "EVEN"},
                                  {QSerialPort::OddParity, "ODD"}};

bool isDigits(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}

} // namespace

bool SerialSettings::parse(const QString& text, SerialSettings* settings, QString* error)
{
    const auto fail = [&](const QString& why) {
        if (error)
            *error = QStringLiteral("Bad port settings \"%1\": %2").arg(text, why);
        return false;
    };
    const QStringList f = text.split(QLatin1Char(','));
    if (f.size() != 5)
        return fail(QStringLiteral("expected 5 fields TYPE,BAUD,PARITY,DATABITS,STOPBITS "
                                   "(e.g. RS485,9600,EVEN,8,1), found %1.")
                        .arg(f.size()));
    SerialSettings s;
    s.lineType = f.at(0).toUpper();
    if (s.lineType != QLatin1String("RS232") && s.lineType != QLatin1String("RS422") &&
        s.lineType != QLatin1String("RS485"))
        return fail(QStringLiteral("line type \"%1\" is not RS232, RS422 or RS485.").arg(f.at(0)));

    s.baudRate = isDigits(f.at(1)) ? f.at(1).toInt() : 0;
    if (std::find(std::begin(standardRates), std::end(standardRates), s.baudRate) ==
        std::end(standardRates))
        return fail(QStringLiteral("baud rate \"%1\" is not one of 1200, 2400, 4800, 9600, "
                                   "19200, 38400, 57600, 115200.")
                        .arg(f.at(1)));

    bool parityKnown = false;
    for (const ParityName& p : parityNames) {
        if (f.at(2).toUpper() == QLatin1String(p.name)) {
            s.parity = p.parity;
            parityKnown = true;
        }
    }
    if (!parityKnown)
        return fail(QStringLiteral("parity \"%1\" is not NONE, EVEN or ODD.").arg(f.at(2)));

    if (f.at(3) == QLatin1String("7"))
        s.dataBits = QSerialPort::Data7;
    else if (f.at(3) == QLatin1String("8"))
        s.dataBits = QSerialPort::Data8;
    else
        return fail(QStringLiteral("data bits \"%1\" are not 7 or 8.").arg(f.at(3)));

    if (f.at(4) == QLatin1String("1"))
        s.stopBits = QSerialPort::OneStop;
    else if (f.at(4) == QLatin1String("2"))
        s.stopBits = QSerialPort::TwoStop;
    else
        return fail(QStringLiteral("stop bits \"%1\" are not 1 or 2.").arg(f.at(4)));

    *settings = s;
    return true;
}

QString SerialSettings::toString() const
{
    QString parityName;
    for (const ParityName& p : parityNames) {
        if (p.parity == parity)
            parityName = QLatin1String(p.name);
    }
    return QStringLiteral("%1,%2,%3,%4,%5")
        .arg(lineType)
        .arg(baudRate)
        .arg(parityName)
        .arg(dataBits == QSerialPort::Data7 ? 7 : 8)
        .arg(stopBits == QSerialPort::TwoStop ? 2 : 1);
}
