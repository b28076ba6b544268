#include "common/devicesetting.h"

#include <QDebug>

DeviceSetting::DeviceSetting(device_type type, const QString& string, int baudrate, int databits,
                             int stopbits, int parity, int extraNumber, const QString& extraText)
    : type(type), string(string), baudrate(baudrate), databits(databits), stopbits(stopbits),
      parity(parity), extraNumber(extraNumber), extraText(extraText), linkID(-1), currentIPIndex(0)
{
}

DeviceSetting::DeviceSetting(device_type type, const QString& string, int baudrate, int databits,
                             int stopbits, int parity)
    : DeviceSetting(type, string, baudrate, databits, stopbits, parity, 0, QString())
{
}

void DeviceSetting::setCurrentIPIndex(int index)
{
    if (index >= 0 && index < socketList.size())
        currentIPIndex = index;
}

// The list position that index names, or -1 when there is no such endpoint.
int DeviceSetting::resolveIndex(int index) const
{
    if (index == -1)
        index = currentIPIndex;
    return index >= 0 && index < socketList.size() ? index : -1;
}

unsigned short DeviceSetting::port(int index) const
{
    const int i = resolveIndex(index);
    return i < 0 ? 0 : socketList.at(i).second;
}

QString DeviceSetting::socketIP(int index) const
{
    const int i = resolveIndex(index);
    return i < 0 ? QString() : socketList.at(i).first;
}

void DeviceSetting::setPort(unsigned short port, int index)
{
    const int i = resolveIndex(index);
    if (i >= 0)
        socketList[i].second = port;
}

void DeviceSetting::setSocketIP(const QString& ip, int index)
{
    const int i = resolveIndex(index);
    if (i >= 0)
        socketList[i].first = ip;
}

void DeviceSetting::setSocketData(const QList<QPair<QString, QString>>& data)
{
    QList<QPair<QString, unsigned short>> list;
    list.reserve(data.size());
    for (const auto& entry : data) {
        bool ok = false;
        const unsigned short p = entry.second.toUShort(&ok, 10);
        list.append(qMakePair(entry.first, ok ? p : static_cast<unsigned short>(0)));
    }
    socketList = list;
}

void DeviceSetting::dump()
{
    qDebug() << "type:" << static_cast<unsigned int>(type) << "string:" << string
             << "baudrate:" << baudrate << "databits:" << databits << "stopbits:" << stopbits
             << "parity:" << parity << "linkID:" << linkID << "current ip:" << socketIP(-1)
             << "current port:" << port(-1);
}

QDataStream& operator<<(QDataStream& out, const DeviceSetting& s)
{
    out << qint32(s.type) << s.string << qint32(s.baudrate) << qint32(s.databits)
        << qint32(s.stopbits) << qint32(s.parity) << qint32(s.extraNumber) << qint32(s.linkID)
        << qint32(s.currentIPIndex);
    out << quint32(s.socketList.size());
    for (const auto& endpoint : s.socketList)
        out << endpoint.first << quint16(endpoint.second);
    return out;
}

// The fixed fields are read into temporaries and taken over only when all of
// them arrived: a stream cut short in the header leaves the record as it was
// (the stream's status reports the failure). A stream cut short inside the
// endpoint list keeps the complete pairs read so far. The count is not trusted
// for pre-allocation, so a corrupt count cannot exhaust memory.
QDataStream& operator>>(QDataStream& in, DeviceSetting& s)
{
    qint32 type = 0, baudrate = 0, databits = 0, stopbits = 0, parity = 0, extraNumber = 0,
           linkID = 0, index = 0;
    QString string;
    in >> type >> string >> baudrate >> databits >> stopbits >> parity >> extraNumber >> linkID >>
        index;
    if (in.status() != QDataStream::Ok)
        return in;
    s.type = static_cast<device_type>(type);
    s.string = string;
    s.baudrate = baudrate;
    s.databits = databits;
    s.stopbits = stopbits;
    s.parity = parity;
    s.extraNumber = extraNumber;
    s.linkID = linkID;

    QList<QPair<QString, unsigned short>> list;
    quint32 count = 0;
    in >> count;
    for (quint32 i = 0; i < count && in.status() == QDataStream::Ok; ++i) {
        QString ip;
        quint16 port = 0;
        in >> ip >> port;
        if (in.status() != QDataStream::Ok)
            break;
        list.append(qMakePair(ip, static_cast<unsigned short>(port)));
        if (in.atEnd())
            break;
    }
    s.socketList = list;
    s.setCurrentIPIndex(index);
    return in;
}
