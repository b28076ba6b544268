#ifndef HOST_SERIALSETTINGS_H
#define HOST_SERIALSETTINGS_H

#include <QSerialPort>
#include <QString>

// A port's line settings in the runtime's string form "RS485,9600,EVEN,8,1":
// line type, baud rate, parity, data bits, stop bits.
struct SerialSettings {
    QString lineType = QStringLiteral("RS485"); // RS232, RS422 or RS485
    qint32 baudRate = 9600;
    QSerialPort::Parity parity = QSerialPort::EvenParity;
    QSerialPort::DataBits dataBits = QSerialPort::Data8;
    QSerialPort::StopBits stopBits = QSerialPort::OneStop;

    // Parses the string form. Exactly five comma-separated fields; words are
    // accepted in any case, numbers must be plain digits. On failure returns
    // false, leaves settings unchanged and sets error to a sentence that
    // names the field at fault.
    static bool parse(const QString& text, SerialSettings* settings, QString* error);
    QString toString() const;
};

#endif
