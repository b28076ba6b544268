#ifndef DCP30CTL_OBSERVEDPORT_H
#define DCP30CTL_OBSERVEDPORT_H

#include "driver/abstractdeviceinterface.h"

#include <QByteArray>

#include <functional>

// A port object that lets the tool watch the line: every command the driver
// sends and every reply it reads pass through to the real port and are
// handed to the observers on the way, in the calling (worker) thread.
class ObservedPort : public AbstractDeviceInterface
{
public:
    struct Observers {
        std::function<void(const QByteArray& frame)> sent;
        std::function<void(const QByteArray& bytes)> received;
    };

    // inner is not owned and must outlive this port.
    ObservedPort(AbstractDeviceInterface* inner, Observers observers);

    bool open() override { return inner->open(); }
    void close() override { inner->close(); }
    bool isOpen() const override { return inner->isOpen(); }
    int readBytes(char* buffer, int maxLength) override;
    QString portName() const override { return inner->portName(); }
    int writeBytes(const char* data, int length) override;
    bool setOption(int code, const QVariant& value) override
    {
        return inner->setOption(code, value);
    }
    int retryCount() override { return inner->retryCount(); }

private:
    AbstractDeviceInterface* inner;
    Observers observers;
};

#endif
