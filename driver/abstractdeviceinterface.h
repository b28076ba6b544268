#ifndef ABSTRACTDEVICEINTERFACE_H
#define ABSTRACTDEVICEINTERFACE_H

#include <QString>
#include <QVariant>

// The runtime's port object as this driver sees it. The worker uses
// readBytes, writeBytes, setOption and retryCount, which keep that order
// among the virtual operations; the others are what a port also offers.
// Implementations: the host tool's serial port (host/) and the scripted
// in-memory port of the tests.
class AbstractDeviceInterface
{
public:
    // setOption code sent before every controller command with the value 0:
    // prepare the port for a new command (our ports drop stale input).
    static constexpr int OptionPrepareCommand = 12;

    virtual ~AbstractDeviceInterface() = default;

    virtual bool open() = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    // Reads what has arrived, at most maxLength bytes; returns the count.
    virtual int readBytes(char* buffer, int maxLength) = 0;
    virtual QString portName() const = 0;
    // Sends length bytes; returns how many were accepted (-1 on error).
    virtual int writeBytes(const char* data, int length) = 0;
    virtual bool setOption(int code, const QVariant& value) = 0;
    // The retry setting of the port's communication settings.
    virtual int retryCount() = 0;
};

#endif
