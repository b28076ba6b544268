// How the worker waits for a controller's reply. By default it waits the
// protocol's fixed time and then reads once, as a panel always has. Line
// pacing, asked for through an application property, reads while the reply
// arrives and goes on as soon as its frame is complete; the fixed time stays
// the limit, so a late or cut reply fails exactly as it does without pacing.
#include "driver/abstractdeviceinterface.h"
#include "driver/fileaccessor.h"
#include "driver/logging.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QVariant>

#include <algorithm>
#include <cstring>

namespace
{

constexpr int MaxGuardMs = 1000;

bool frameComplete(const char* bytes, int size)
{
    static const char end[] = {ControllerFrames::ETX, ControllerFrames::CR, ControllerFrames::LF};
    return std::search(bytes, bytes + size, end, end + sizeof end) != bytes + size;
}

} // namespace

int FileAccessor::linePacingFromApplication()
{
    const QCoreApplication* app = QCoreApplication::instance();
    const QVariant value = app ? app->property(LinePacingProperty) : QVariant();
    if (!value.isValid())
        return -1;
    bool ok = false;
    const int guardMs = value.toInt(&ok);
    if (!ok || guardMs < 0 || guardMs > MaxGuardMs) {
        qCWarning(dcp30Event) << LinePacingProperty << value << "is not 0.." << MaxGuardMs
                              << "ms; using the fixed waits";
        return -1;
    }
    qCInfo(dcp30Event) << "line-paced exchange, guard gap" << guardMs << "ms";
    return guardMs;
}

bool FileAccessor::awaitReply(ControllerFrames::Command command, bool abortable)
{
    const auto wait = [this, abortable](int ms) {
        if (abortable)
            return pause(ms);
        QThread::msleep(static_cast<unsigned long>(scaledWaitMs(ms)));
        return true;
    };
    const int waitMs = int(ControllerFrames::waitMs(command));
    const int limit = ControllerFrames::readLimit(command);
    std::memset(replyBuffer, 0, sizeof replyBuffer);
    if (pacedGuardMs < 0) {
        if (!wait(waitMs))
            return false;
        if (AbstractDeviceInterface* reader = port())
            reader->readBytes(replyBuffer, limit);
        return true;
    }

    // The same scaled limit as pause(waitMs); the polling step is about one
    // character time at 9600 baud.
    const qint64 limitMs = scaledWaitMs(waitMs);
    QElapsedTimer clock;
    clock.start();
    int received = 0;
    for (;;) {
        if (AbstractDeviceInterface* reader = port())
            received += qMax(0, reader->readBytes(replyBuffer + received, limit - received));
        if (frameComplete(replyBuffer, received))
            break;
        if (clock.elapsed() >= limitMs)
            return true; // checked as it is, as after a fixed wait
        if (!wait(1))
            return false;
    }
    // The controller gets a few character times of quiet line before the
    // next command.
    return wait(pacedGuardMs);
}
