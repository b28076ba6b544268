#ifndef DRIVERSETTING_H
#define DRIVERSETTING_H

#include <QDataStream>
#include <QString>

// Protocol settings handed between the runtime and a driver. The units of
// timeout and delay belong to the runtime. Only the four numbers are streamed.
class DriverSetting
{
public:
    DriverSetting(int timeout, int retry, int stationid, int delay);
    // The text and the number are accepted for the runtime's sake and ignored.
    DriverSetting(int timeout, int retry, int stationid, int delay, const QString& unusedText,
                  unsigned short unusedNumber);
    // The fifth and sixth arguments are ignored.
    DriverSetting(int timeout, int retry, int stationid, int delay, const QString& unusedText,
                  unsigned short unusedNumber, const QString& optionText, bool optionFlag);

    // Takes the four numbers and optionText; optionFlag stays as it is.
    void copy(const DriverSetting& other);
    // One debug-level line with the four numbers.
    void dump();

    int timeout;
    int retry;
    int stationid;
    int delay;
    QString optionText; // carried for the runtime; not streamed, not printed
    bool optionFlag;    // carried for the runtime; false unless given
};

QDataStream& operator<<(QDataStream& out, const DriverSetting& s);
QDataStream& operator>>(QDataStream& in, DriverSetting& s);

#endif
