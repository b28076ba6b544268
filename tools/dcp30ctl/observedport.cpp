#include "observedport.h"

ObservedPort::ObservedPort(AbstractDeviceInterface* inner, Observers observers)
    : inner(inner), observers(std::move(observers))
{
}

int ObservedPort::readBytes(char* buffer, int maxLength)
{
    const int count = inner->readBytes(buffer, maxLength);
    if (count > 0 && observers.received)
        observers.received(QByteArray(buffer, count));
    return count;
}

int ObservedPort::writeBytes(const char* data, int length)
{
    const int written = inner->writeBytes(data, length);
    if (written > 0 && observers.sent)
        observers.sent(QByteArray(data, written));
    return written;
}
