#include "common/driversetting.h"

#include <QDebug>

DriverSetting::DriverSetting(int timeout, int retry, int stationid, int delay)
    : timeout(timeout), retry(retry), stationid(stationid), delay(delay), optionFlag(false)
{
}

DriverSetting::DriverSetting(int timeout, int retry, int stationid, int delay, const QString&,
                             unsigned short)
    : DriverSetting(timeout, retry, stationid, delay)
{
}

DriverSetting::DriverSetting(int timeout, int retry, int stationid, int delay, const QString&,
                             unsigned short, const QString& optionText, bool optionFlag)
    : timeout(timeout), retry(retry), stationid(stationid), delay(delay), optionText(optionText),
      optionFlag(optionFlag)
{
}

void DriverSetting::copy(const DriverSetting& other)
{
    timeout = other.timeout;
    retry = other.retry;
    stationid = other.stationid;
    delay = other.delay;
    optionText = other.optionText;
}

void DriverSetting::dump()
{
    qDebug() << "timeout:" << timeout << "retry:" << retry << "stationid:" << stationid
             << "delay:" << delay;
}

QDataStream& operator<<(QDataStream& out, const DriverSetting& s)
{
    return out << qint32(s.timeout) << qint32(s.retry) << qint32(s.stationid) << qint32(s.delay);
}

// A stream cut short leaves the record as it was; its status reports why.
QDataStream& operator>>(QDataStream& in, DriverSetting& s)
{
    qint32 timeout = 0, retry = 0, stationid = 0, delay = 0;
    in >> timeout >> retry >> stationid >> delay;
    if (in.status() == QDataStream::Ok) {
        s.timeout = timeout;
        s.retry = retry;
        s.stationid = stationid;
        s.delay = delay;
    }
    return in;
}
