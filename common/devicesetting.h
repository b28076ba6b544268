#ifndef DEVICESETTING_H
#define DEVICESETTING_H

#include <QDataStream>
#include <QList>
#include <QPair>
#include <QString>

// Kind of port. The values belong to the runtime; the records carry them
// without interpreting them. A fixed underlying type keeps every value the
// runtime may hand us (e.g. device_type(64)) a valid value of the enum.
enum device_type : int {
    DefaultSerialDeviceType = 64 // the port kind of the driver's default serial setting
};

// Port settings handed between the runtime and a driver: serial parameters,
// or a list of network endpoints with a current one. Its stream layout is a
// format shared with the runtime.
class DeviceSetting
{
public:
    DeviceSetting(device_type type, const QString& string, int baudrate, int databits, int stopbits,
                  int parity, int extraNumber, const QString& extraText);
    DeviceSetting(device_type type, const QString& string, int baudrate, int databits, int stopbits,
                  int parity);

    // Ignored unless 0 <= index < socketList.size().
    void setCurrentIPIndex(int index);

    // For the four accessors below, index -1 means currentIPIndex. Getters
    // answer 0 / an empty text and setters change nothing when the index lies
    // outside socketList.
    unsigned short port(int index = -1) const;
    QString socketIP(int index = -1) const;
    void setPort(unsigned short port, int index = -1);
    void setSocketIP(const QString& ip, int index = -1);

    // One endpoint per entry (address text, port text). A port text that is
    // not a base-10 number in 0..65535 becomes port 0. currentIPIndex is kept
    // as it is, even when it now lies outside the list.
    void setSocketData(const QList<QPair<QString, QString>>& data);

    // One debug-level line with the port parameters and the current endpoint.
    void dump();

    device_type type;
    QString string;
    int baudrate;
    int databits;
    int stopbits;
    int parity;
    int extraNumber;
    QString extraText; // not streamed, not printed
    int linkID;        // -1: not assigned
    int currentIPIndex;
    QList<QPair<QString, unsigned short>> socketList;

private:
    int resolveIndex(int index) const;
};

QDataStream& operator<<(QDataStream& out, const DeviceSetting& s);
QDataStream& operator>>(QDataStream& in, DeviceSetting& s);

#endif
