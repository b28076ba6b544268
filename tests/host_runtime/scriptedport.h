#ifndef TESTS_SCRIPTEDPORT_H
#define TESTS_SCRIPTEDPORT_H

#include "driver/abstractdeviceinterface.h"

#include <QByteArray>
#include <QList>
#include <QStringList>
#include <mutex>

#include <functional>

// In-memory port for unit tests: every request is handed to a responder
// whose answer becomes the input that readBytes delivers, chunk bytes per
// call (0: all at once). Option 12 drops unread input, as our ports do.
// Records what happened, in order, as "option <code>=<value>" and
// "write <bytes>" lines. Usable from any thread.
class ScriptedPort : public AbstractDeviceInterface
{
public:
    std::function<QByteArray(const QByteArray& request)> responder;
    int chunk = 0;
    int retries = 3;

    bool open() override { return true; }
    void close() override {}
    bool isOpen() const override { return true; }
    QString portName() const override { return QStringLiteral("scripted"); }
    int retryCount() override { return retries; }

    int readBytes(char* buffer, int maxLength) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        int n = qMin(maxLength, input.size());
        if (chunk > 0)
            n = qMin(n, chunk);
        memcpy(buffer, input.constData(), size_t(n));
        input.remove(0, n);
        return n;
    }
    int writeBytes(const char* data, int length) override
    {
        const QByteArray request(data, length);
        const QByteArray reply = responder ? responder(request) : QByteArray();
        std::lock_guard<std::mutex> lock(mutex);
        log << QStringLiteral("write ") + QString::fromLatin1(request);
        requestList << request;
        input += reply;
        return length;
    }
    bool setOption(int code, const QVariant& value) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        log << QStringLiteral("option %1=%2").arg(code).arg(value.toString());
        if (code == OptionPrepareCommand)
            input.clear();
        return true;
    }

    QStringList events() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return log;
    }
    QList<QByteArray> requests() const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return requestList;
    }

private:
    mutable std::mutex mutex;
    QByteArray input;
    QStringList log;
    QList<QByteArray> requestList;
};

#endif
