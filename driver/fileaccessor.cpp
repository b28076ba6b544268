#include "driver/fileaccessor.h"

#include "common/durablefile.h"
#include "csv/kcsvloader.h"
#include "driver/logging.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>
#include <QThread>
#include <QVariant>

#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace
{

const char MessageTitle[] = "DCP30";

// Test-only speed-up of the fixed waits: DCP30_WAIT_PERCENT=1..100 (percent
// of the real waits). Anything else means the real waits.
int waitPercentFromEnvironment()
{
    const QByteArray text = qgetenv("DCP30_WAIT_PERCENT");
    if (text.isEmpty())
        return 100;
    bool ok = false;
    const int percent = text.trimmed().toInt(&ok);
    if (!ok || percent < 1 || percent > 100) {
        qCWarning(dcp30Event) << "DCP30_WAIT_PERCENT" << text
                              << "is not 1..100; using the real waits";
        return 100;
    }
    return percent;
}

// The runtime publishes its objects as application properties holding the
// object's address as an unsigned integer. Null when the property is absent
// or does not convert.
QObject* applicationObject(const char* property)
{
    const QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        return nullptr;
    bool ok = false;
    const qulonglong address = app->property(property).toULongLong(&ok);
    if (!ok || address == 0)
        return nullptr;
    return reinterpret_cast<QObject*>(static_cast<quintptr>(address));
}

} // namespace

FileAccessor::FileAccessor(QObject* parent)
    : QObject(parent), waitScalePercent(waitPercentFromEnvironment())
{
    if (QObject* centre = applicationObject("MessageCenter")) {
        // Automatic connection: queued into the message centre's thread once
        // this worker lives in its own thread.
        if (!connect(this, SIGNAL(showMessage(QString, QString, bool)), centre,
                     SLOT(showMessageAsync(QString, QString, bool))))
            qCWarning(dcp30Event)
                << "message centre has no slot showMessageAsync(QString,QString,bool)";
    } else {
        qCInfo(dcp30Event) << "no message centre: the worker's messages go nowhere";
    }
}

FileAccessor::~FileAccessor()
{
    delete csvLoader;
    delete csvSaver;
}

KCSVSaver* FileAccessor::saver()
{
    if (!csvSaver)
        csvSaver = new KCSVSaver(nullptr);
    return csvSaver;
}

KCSVLoader* FileAccessor::loader()
{
    if (!csvLoader)
        csvLoader = new KCSVLoader(nullptr);
    return csvLoader;
}

void FileAccessor::beforePosting() const
{
#if defined(__SANITIZE_THREAD__)
    __tsan_release(const_cast<FileAccessor*>(this));
#endif
}

bool FileAccessor::event(QEvent* e)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(this);
#endif
    return QObject::event(e);
}

void FileAccessor::setInterface(AbstractDeviceInterface* port)
{
    device.store(port, std::memory_order_relaxed);
}

void FileAccessor::requestAbort()
{
    abortFlag.store(true, std::memory_order_relaxed);
}

bool FileAccessor::abortRequested() const
{
    return abortFlag.load(std::memory_order_relaxed);
}

qint64 FileAccessor::scaledWaitMs(int ms) const
{
    return ms <= 0 ? 0 : qMax<qint64>(1, qint64(ms) * waitScalePercent / 100);
}

bool FileAccessor::pause(int ms)
{
    const qint64 total = scaledWaitMs(ms);
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        if (abortRequested())
            return false;
        const qint64 left = total - clock.elapsed();
        if (left <= 0)
            return true;
        QThread::msleep(static_cast<unsigned long>(qMin<qint64>(left, PauseSliceMs)));
    }
}

QString FileAccessor::getStorageMountPath(int storageType)
{
    QObject* deviceObject = applicationObject("KDevice");
    if (!deviceObject)
        return QString();
    // The device object numbers the media from 1 (USB stick); every code
    // above 0 is the SD card family, passed on as code + 1.
    const int medium = storageType > 0 ? storageType + 1 : 1;
    QString path;
    // Direct call in this thread: the device object must tolerate callers
    // from foreign threads.
    if (!QMetaObject::invokeMethod(deviceObject, "getMount", Qt::DirectConnection,
                                   Q_RETURN_ARG(QString, path), Q_ARG(int, medium))) {
        qCWarning(dcp30Event) << "device object has no invokable getMount(int)";
        return QString();
    }
    return path;
}

void FileAccessor::setParameters(QList<qint32> paras)
{
    int* const targets[] = {&spLowLimit, &spHighLimit, &ev1Type, &ev2Type, &ev3Type};
    if (paras.size() < 5)
        qCWarning(dcp30Event) << "write parameters: expected 5, got" << paras.size();
    for (int i = 0; i < 5 && i < paras.size(); ++i)
        *targets[i] = paras.at(i);
}

void FileAccessor::tellUser(const QString& text)
{
    emit showMessage(QString::fromLatin1(MessageTitle), text, true);
}

QString FileAccessor::pathOnMedium(const QString& name, bool& ok)
{
    ok = true;
    const QString mount = getStorageMountPath(transferStorageType);
    if (!mount.isEmpty())
        return mount + QDir::separator() + name;
    ok = false;
    const QString medium =
        transferStorageType > 0 ? QStringLiteral("SD Card") : QStringLiteral("USB Stick");
    qCInfo(dcp30Event) << medium << "not mounted";
    tellUser(QStringLiteral("The system can't not detect the %1.").arg(medium));
    return QString();
}

QString FileAccessor::getFileName(int programID, bool& ok)
{
    return pathOnMedium(QStringLiteral("PROG_%1.txt").arg(programID), ok);
}

QString FileAccessor::getErrorLogFileName(int type, int programID, bool& ok)
{
    const QString kind = type == 1 ? QStringLiteral("WRITE") : QStringLiteral("READ");
    return pathOnMedium(QStringLiteral("%1_PROG_%2_ERROR.txt").arg(kind).arg(programID), ok);
}

QString FileAccessor::retryLabel(int retry)
{
    if (retry == 1)
        return QStringLiteral("First retry.");
    if (retry == 2)
        return QStringLiteral("Second retry.");
    return QStringLiteral("%1 st retry.").arg(retry);
}

quint8 FileAccessor::progressPercent(int done, int total)
{
    if (total <= 0)
        return 0;
    // Single precision on purpose: the panel shows what the controller
    // family's panels have always shown (1 of 3 is 33, 2 of 3 is 66).
    const float fraction = static_cast<float>(done) / static_cast<float>(total);
    const float percent = fraction * 100.0f;
    return static_cast<quint8>(qBound(0.0f, percent, 255.0f));
}

bool FileAccessor::runAttempts(const std::function<bool(QStringList&)>& attempt,
                               QStringList& errorList, const QString& overMessage)
{
    // An attempt that did not end regularly may leave the controller's file
    // open; closed before the next attempt (or the end), the repeated open
    // is not refused for a file this panel itself left open.
    const auto release = [this](QStringList& list) {
        if (!abortRequested())
            releaseControllerFile(list);
    };
    bool done = attempt(errorList);
    if (!done)
        release(errorList);
    // The retry count is asked anew at every comparison: the runtime may
    // change the port's settings while a transfer runs.
    for (int r = 1; !done && !abortRequested() && r <= retries(); ++r) {
        QStringList attemptList;
        done = attempt(attemptList);
        if (!done)
            release(attemptList);
        if (abortRequested())
            break;
        if (done) {
            // A repeat that went through cleanly leaves nothing behind; one
            // that ended with messages (a refused open, say) keeps them, or
            // the log would not tell how the transfer ended.
            if (!attemptList.isEmpty()) {
                attemptList.prepend(retryLabel(r));
                errorList << attemptList;
            }
            break;
        }
        if (r < retries()) {
            attemptList.prepend(retryLabel(r));
            errorList << attemptList;
        }
        if (r == retries()) {
            attemptList << overMessage.arg(r);
            errorList << attemptList;
            break;
        }
    }
    if (abortRequested()) {
        releaseControllerFile(errorList);
        return false;
    }
    return true;
}

QStringList FileAccessor::placeholderRow(int segment)
{
    // TIME has no "not set" form, so the row can never pass the checks of a
    // write: written back, the segment is reported as a format error (a
    // visible gap) instead of being filled with another segment's data.
    QStringList row{QStringLiteral("SEG%1").arg(segment)};
    for (int cell = 1; cell < SegmentCodec::ColumnCount; ++cell)
        row << QStringLiteral("----");
    return row;
}

QString FileAccessor::parameterReadFailure(const QList<int>& paras, int programID)
{
    struct Read {
        const char* address;
        const char* meaning;
    };
    static const Read reads[] = {{"RAM4509", "SP1 low limit"},
                                 {"RAM4509", "SP1 high limit"},
                                 {"RAM3501", "kind of event 1"},
                                 {"RAM3505", "kind of event 2"},
                                 {"RAM3509", "kind of event 3"}};
    if (paras.size() >= 5)
        return QString();
    const Read& failed = reads[qMax(0, int(paras.size()))];
    return QStringLiteral("Reading %1 (%2) from the controller fail. The Program %3 file was not "
                          "written, nothing was checked against made-up limits.")
        .arg(QLatin1String(failed.address), QLatin1String(failed.meaning))
        .arg(programID);
}

QString FileAccessor::programFileProblem(const QString& fileName)
{
    const QString name = QFileInfo(fileName).fileName();
    QString what;
    if (!DurableFile::isRegularOrAbsent(fileName, &what))
        return QStringLiteral("%1 is %2, not a program file. It was not opened.").arg(name, what);
    const qint64 size = QFileInfo(fileName).size();
    if (size > MaxProgramFileBytes)
        return QStringLiteral("%1 is too large for a program file (%2 bytes, at most %3). It was "
                              "not loaded.")
            .arg(name)
            .arg(size)
            .arg(MaxProgramFileBytes);
    return QString();
}

bool FileAccessor::retrySegment(const std::function<bool()>& step, int programID,
                                QStringList& errorList, const QString& overMessage)
{
    if (step())
        return !abortRequested();
    for (int r = 1; r <= retries(); ++r) {
        if (abortRequested())
            return false;
        if (step())
            return !abortRequested();
        if (r == retries()) {
            // The controller's file stays open: the caller gives up the
            // whole attempt, which starts again from the open.
            errorList << overMessage.arg(programID).arg(retries());
            return false;
        }
    }
    return !abortRequested();
}

bool FileAccessor::mediumReady(int programID, int storageType)
{
    transferStorageType = storageType;
    transferFresh = true;
    bool ok = false;
    getFileName(programID, ok); // only tests the medium; the workflows name their files later
    return ok;
}

void FileAccessor::finishTransfer(int type, int programID, bool finished,
                                  const QStringList& errorList)
{
    if (type == 1)
        emit setWF(false);
    else
        emit setRF(false);
    if (!finished) {
        // The driver is being destroyed: no log, nobody left to read it.
        qCInfo(dcp30Event) << (type == 1 ? "program write of" : "program read of") << programID
                           << "aborted";
        return;
    }
    if (!errorList.isEmpty())
        writeErrorLog(type, programID, errorList);
}

bool FileAccessor::writeErrorLog(int type, int programID, QStringList errorList)
{
    if (type == 1)
        emit setWE(true);
    else
        emit setRE(true);
    // The first line names no program: the panel's log viewer expects it as is.
    errorList.prepend(QStringLiteral("Program 1:"));
    bool ok = false;
    const QString fileName = getErrorLogFileName(type, programID, ok);
    if (!ok)
        return false;
    // Replaced whole or not at all: a full medium keeps the previous log
    // rather than leaving an empty one.
    QSaveFile file(fileName);
    if (!DurableFile::isRegularOrAbsent(fileName) ||
        !file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        // Nobody to tell beyond the flag already raised: the medium refuses.
        qCWarning(dcp30Event) << "cannot write error log" << fileName << file.errorString();
        return false;
    }
    {
        QTextStream stream(&file);
        stream << errorList.join(QLatin1Char('\n'));
    }
    const bool written = DurableFile::commit(file);
    if (!written)
        qCWarning(dcp30Event) << "error log" << fileName << "not written:" << file.errorString();
    // The panel's user may pull the medium as soon as the flag shows.
    ::sync();
    return written;
}
