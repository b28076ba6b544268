#ifndef HOST_SERIALPORTDEVICE_H
#define HOST_SERIALPORTDEVICE_H

#include "driver/abstractdeviceinterface.h"
#include "host/serial/serialsettings.h"

#include <QByteArray>
#include <QStringList>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

class QSerialPort;

// The runtime's port object over QSerialPort, callable from any thread.
//
// QSerialPort belongs to the thread it lives in, yet the driver uses the
// port from the runtime's communication thread and from its worker thread.
// So the QSerialPort lives in a private I/O thread with its own event loop:
// received bytes are collected there into a locked inbox that readBytes
// drains without blocking, and every other operation runs in the I/O thread
// as a job that the caller waits for. Jobs are handed over with a standard
// mutex and an eventfd rather than Qt's queued calls, so that the hand-over
// is visible to ThreadSanitizer.
class SerialPortDevice : public AbstractDeviceInterface
{
public:
    static constexpr int DefaultRetryCount = 3;
    static constexpr int InboxLimit = 64 * 1024; // oldest bytes go first beyond this

    explicit SerialPortDevice(const QString& portName, const SerialSettings& settings = {},
                              int retryCount = DefaultRetryCount);
    ~SerialPortDevice() override;
    SerialPortDevice(const SerialPortDevice&) = delete;
    SerialPortDevice& operator=(const SerialPortDevice&) = delete;

    // Takes settings in the string form "RS485,9600,EVEN,8,1"; they apply at
    // the next open. False (settings kept, errorString set) for a bad string.
    bool setSettings(const QString& text);
    SerialSettings settings() const;
    void setRetryCount(int count) { retries = qMax(0, count); }
    // Why the last open, write or settings change failed.
    QString errorString() const;
    // Settings the line refused at the last open that were let pass because
    // the port is a pseudo-terminal (which has no parity and only 8 data bits).
    QStringList warnings() const;

    // Opens with the current settings. False with errorString set for a
    // missing port, a busy port, or a setting a real line refuses.
    bool open() override;
    void close() override;
    bool isOpen() const override { return opened; }
    // Takes up to maxLength received bytes; never waits. Returns the count.
    int readBytes(char* buffer, int maxLength) override;
    QString portName() const override { return name; }
    // Queues the bytes for sending; returns the count accepted, -1 when the
    // port is closed or the write fails.
    int writeBytes(const char* data, int length) override;
    // OptionPrepareCommand (value 0) drops all input not read so far, both
    // what the inbox holds and what waits in the driver.
    // HostPortOptions::WaitForInput blocks the caller (never the I/O thread)
    // until the inbox holds bytes or the time is up. Other options are not
    // supported: false.
    bool setOption(int code, const QVariant& value) override;
    int retryCount() override { return retries; }

private:
    class IoThread;

    // Runs job in the I/O thread and returns when it has run.
    void inIoThread(const std::function<void()>& job);
    bool openInIoThread();
    void onReadyRead();
    void setError(const QString& text);

    const QString name;
    std::unique_ptr<IoThread> io;
    QSerialPort* port = nullptr; // owned by and used in the I/O thread only
    std::atomic<bool> opened{false};
    std::atomic<int> retries;

    mutable std::mutex mutex; // guards everything below
    std::condition_variable inputArrived;
    QByteArray inbox;
    SerialSettings lineSettings;
    QString error;
    QStringList refusedSettings;
};

#endif
