// The worker object: medium look-up and file names, messages, start slots'
// first steps, write parameters, the error log, and the interruptible wait.
#include "driver/fileaccessor.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"

#include <QtTest>

#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <memory>

namespace
{

QByteArray fileContent(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Lives in the test's thread: the worker's signals reach it queued, so the
// spies on it are only ever touched by the test's thread.
class SignalProxy : public QObject
{
    Q_OBJECT

public:
    explicit SignalProxy(FileAccessor* worker)
    {
        connect(worker, &FileAccessor::setRF, this, &SignalProxy::rf);
        connect(worker, &FileAccessor::setWF, this, &SignalProxy::wf);
    }

signals:
    void rf(bool b);
    void wf(bool b);
};

} // namespace

class FileAccessorTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void fileNames_data();
    void fileNames();
    void missingMedium_data();
    void missingMedium();
    void messagesCrossToMessageCentre();
    void messageCentreLookedUpOnce();
    void startSlotsStopWithoutMedium_data();
    void startSlotsStopWithoutMedium();
    void writeStartStoresParameters();
    void setParameters_data();
    void setParameters();
    void errorLog_data();
    void errorLog();
    void errorLogWithoutMedium();
    void errorLogOnFullMedium();
    void pauseRunsItsTime();
    void pauseEndsOnAbort();
    void waitPercent_data();
    void waitPercent();

private:
    static void setStorage(FileAccessor& worker, int storageType)
    {
        worker.transferStorageType = storageType;
    }
    static QList<int> parameters(const FileAccessor& worker)
    {
        return {worker.spLowLimit, worker.spHighLimit, worker.ev1Type, worker.ev2Type,
                worker.ev3Type};
    }
    static bool writeLog(FileAccessor& worker, int type, int programID, const QStringList& errors)
    {
        return worker.writeErrorLog(type, programID, errors);
    }
    static QString fileName(FileAccessor& worker, int programID, bool& ok)
    {
        return worker.getFileName(programID, ok);
    }

    QTemporaryDir media{QDir::tempPath() + "/dcp30-media-XXXXXX"};
    DeviceObject device;
    MessageCentre centre;
    QString usb, sd;
};

void FileAccessorTest::init()
{
    // Every test starts with empty media.
    QVERIFY(media.isValid());
    for (const QString& entry :
         QDir(media.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        QVERIFY(QDir(media.filePath(entry)).removeRecursively());
    usb = media.filePath("usb");
    sd = media.filePath("sd");
    QVERIFY(QDir().mkpath(usb) && QDir().mkpath(sd));
    device.setMountDirectory(DeviceObject::UsbStick, usb);
    device.setMountDirectory(DeviceObject::SdCard, sd);
    centre.setQuiet(true);
    centre.clear();
    RuntimeProperties::publishDevice(&device);
    RuntimeProperties::publishMessageCentre(&centre);
}

void FileAccessorTest::cleanup()
{
    RuntimeProperties::publishDevice(nullptr);
    RuntimeProperties::publishMessageCentre(nullptr);
    qunsetenv("DCP30_WAIT_PERCENT");
}

void FileAccessorTest::fileNames_data()
{
    QTest::addColumn<int>("storageType");
    QTest::addColumn<int>("programID");
    QTest::addColumn<QString>("medium"); // directory below the temporary media
    QTest::newRow("program 3 on the USB stick") << 0 << 3 << "usb";
    QTest::newRow("program 12 on the SD card") << 1 << 12 << "sd";
    QTest::newRow("storage code 5 asks for medium 6") << 5 << 19 << "m6";
    QTest::newRow("negative storage code is the USB stick") << -1 << 1 << "usb";
}

void FileAccessorTest::fileNames()
{
    QFETCH(int, storageType);
    QFETCH(int, programID);
    QFETCH(QString, medium);
    const QString mount = media.filePath(medium);
    QVERIFY(QDir().mkpath(mount));
    device.setMountDirectory(6, mount);
    FileAccessor worker;
    setStorage(worker, storageType);
    bool ok = false;
    QString name;
    // By name, as the meta-object system reaches the private slots.
    QVERIFY(QMetaObject::invokeMethod(&worker, "getFileName", Qt::DirectConnection,
                                      Q_RETURN_ARG(QString, name), Q_ARG(int, programID),
                                      Q_ARG(bool&, ok)));
    QVERIFY(ok);
    QCOMPARE(name, mount + QStringLiteral("/PROG_%1.txt").arg(programID));
    const QList<QPair<int, QString>> logs{{0, "READ"}, {1, "WRITE"}, {2, "READ"}, {-1, "READ"}};
    for (const auto& log : logs) {
        ok = false;
        QVERIFY(QMetaObject::invokeMethod(&worker, "getErrorLogFileName", Qt::DirectConnection,
                                          Q_RETURN_ARG(QString, name), Q_ARG(int, log.first),
                                          Q_ARG(int, programID), Q_ARG(bool&, ok)));
        QVERIFY(ok);
        QCOMPARE(name,
                 mount + QStringLiteral("/%1_PROG_%2_ERROR.txt").arg(log.second).arg(programID));
    }
    QVERIFY(centre.messages().isEmpty());
    // A mount path that ends in a separator still gets one more.
    device.setMountDirectory(DeviceObject::UsbStick, usb + "/");
    setStorage(worker, 0);
    QCOMPARE(fileName(worker, 4, ok), usb + "//PROG_4.txt");
}

void FileAccessorTest::missingMedium_data()
{
    QTest::addColumn<QString>("situation");
    QTest::addColumn<int>("storageType");
    QTest::addColumn<QString>("mediumName");
    const QStringList situations{"no device object", "not mounted", "directory removed",
                                 "device object without getMount", "property does not convert"};
    for (const QString& situation : situations) {
        QTest::newRow(qPrintable(situation + ", USB")) << situation << 0 << "USB Stick";
        QTest::newRow(qPrintable(situation + ", SD")) << situation << 1 << "SD Card";
    }
}

void FileAccessorTest::missingMedium()
{
    QFETCH(QString, situation);
    QFETCH(int, storageType);
    QFETCH(QString, mediumName);
    QObject plainObject;
    if (situation == "no device object") {
        RuntimeProperties::publishDevice(nullptr);
    } else if (situation == "not mounted") {
        device.setMountDirectory(DeviceObject::UsbStick, QString());
        device.setMountDirectory(DeviceObject::SdCard, QString());
    } else if (situation == "directory removed") {
        QVERIFY(QDir(usb).removeRecursively() && QDir(sd).removeRecursively());
    } else if (situation == "device object without getMount") {
        RuntimeProperties::publishDevice(&plainObject);
    } else {
        qApp->setProperty("KDevice", QStringLiteral("not an address"));
    }
    FileAccessor worker;
    setStorage(worker, storageType);
    bool ok = true;
    QVERIFY(fileName(worker, 3, ok).isEmpty());
    QVERIFY(!ok);
    ok = true;
    QString name;
    QVERIFY(QMetaObject::invokeMethod(&worker, "getErrorLogFileName", Qt::DirectConnection,
                                      Q_RETURN_ARG(QString, name), Q_ARG(int, 1), Q_ARG(int, 3),
                                      Q_ARG(bool&, ok)));
    QVERIFY(name.isEmpty());
    QVERIFY(!ok);
    // Same thread: the message arrives at once, one per failed look-up.
    const QList<MessageCentre::Message> messages = centre.messages();
    QCOMPARE(messages.size(), 2);
    for (const MessageCentre::Message& message : messages) {
        QCOMPARE(message.title, QStringLiteral("DCP30"));
        QCOMPARE(message.text,
                 QStringLiteral("The system can't not detect the %1.").arg(mediumName));
        QCOMPARE(message.flag, true);
    }
}

void FileAccessorTest::messagesCrossToMessageCentre()
{
    device.setMountDirectory(DeviceObject::SdCard, QString());
    QThread thread;
    FileAccessor* worker = new FileAccessor;
    worker->moveToThread(&thread);
    SignalProxy proxy(worker);
    QSignalSpy rf(&proxy, &SignalProxy::rf);
    thread.start();
    worker->beforePosting();
    QMetaObject::invokeMethod(worker, "readProgramFileProcess", Qt::QueuedConnection, Q_ARG(int, 2),
                              Q_ARG(int, 5), Q_ARG(int, 1));
    QTRY_COMPARE(rf.count(), 1);
    QCOMPARE(rf.at(0).at(0).toBool(), false);
    QTRY_COMPARE(centre.texts(), QStringList{"The system can't not detect the SD Card."});
    thread.quit();
    QVERIFY(thread.wait(5000));
    delete worker;
}

void FileAccessorTest::messageCentreLookedUpOnce()
{
    RuntimeProperties::publishMessageCentre(nullptr);
    RuntimeProperties::publishDevice(nullptr);
    FileAccessor worker; // works without a message centre; its messages are lost
    RuntimeProperties::publishMessageCentre(&centre);
    bool ok = true;
    QVERIFY(fileName(worker, 1, ok).isEmpty());
    QVERIFY(!ok);
    QVERIFY(centre.messages().isEmpty());
    // A message centre without the slot is refused at construction.
    QObject plainObject;
    RuntimeProperties::publishMessageCentre(&plainObject);
    FileAccessor other;
    QVERIFY(fileName(other, 1, ok).isEmpty());
    QVERIFY(centre.messages().isEmpty());
}

void FileAccessorTest::startSlotsStopWithoutMedium_data()
{
    QTest::addColumn<bool>("isRead");
    QTest::addColumn<int>("storageType");
    QTest::newRow("read, USB") << true << 0;
    QTest::newRow("read, SD") << true << 1;
    QTest::newRow("write, USB") << false << 0;
    QTest::newRow("write, SD") << false << 1;
}

void FileAccessorTest::startSlotsStopWithoutMedium()
{
    QFETCH(bool, isRead);
    QFETCH(int, storageType);
    device.setMountDirectory(storageType + 1, QString());
    FileAccessor worker;
    QSignalSpy rf(&worker, &FileAccessor::setRF);
    QSignalSpy wf(&worker, &FileAccessor::setWF);
    QSignalSpy re(&worker, &FileAccessor::setRE);
    QSignalSpy we(&worker, &FileAccessor::setWE);
    if (isRead)
        worker.readProgramFileProcess(4, 3, storageType);
    else
        worker.writeProgramFileProcess({1, 2, 3, 4, 5}, 4, 3, storageType);
    QCOMPARE(rf.count(), isRead ? 1 : 0);
    QCOMPARE(wf.count(), isRead ? 0 : 1);
    QCOMPARE((isRead ? rf : wf).at(0).at(0).toBool(), false);
    QCOMPARE(re.count() + we.count(), 0); // no error flag, no log
    QCOMPARE(centre.messages().size(), 1);
    QCOMPARE(worker.transferStorageType, storageType);
    QCOMPARE(parameters(worker), (QList<int>{0, 0, 0, 0, 0}));
    QCOMPARE(QDir(usb).entryList(QDir::Files) + QDir(sd).entryList(QDir::Files), QStringList());
}

void FileAccessorTest::writeStartStoresParameters()
{
    FileAccessor worker;
    worker.writeProgramFileProcess({-200, 1370, 1, 2, 0}, 4, 3, 1);
    QCOMPARE(parameters(worker), (QList<int>{-200, 1370, 1, 2, 0}));
    QCOMPARE(worker.transferStorageType, 1);
    // Stored before the program file is looked for (there is none here).
    QCOMPARE(centre.texts(), QStringList{"File cannot be opened.\nPlease select the right file."});
}

void FileAccessorTest::setParameters_data()
{
    QTest::addColumn<QList<qint32>>("paras");
    QTest::addColumn<QList<int>>("stored");
    QTest::newRow("five") << QList<qint32>{-5, 5, 1, 2, 3} << QList<int>{-5, 5, 1, 2, 3};
    QTest::newRow("extra ignored")
        << QList<qint32>{1, 2, 3, 4, 5, 6, 7} << QList<int>{1, 2, 3, 4, 5};
    // A short list changes what it covers and keeps the rest.
    QTest::newRow("three") << QList<qint32>{7, 8, 9} << QList<int>{7, 8, 9, 40, 50};
    QTest::newRow("none") << QList<qint32>{} << QList<int>{10, 20, 30, 40, 50};
}

void FileAccessorTest::setParameters()
{
    QFETCH(QList<qint32>, paras);
    QFETCH(QList<int>, stored);
    FileAccessor worker;
    QVERIFY(QMetaObject::invokeMethod(&worker, "setParameters", Qt::DirectConnection,
                                      Q_ARG(QList<qint32>, (QList<qint32>{10, 20, 30, 40, 50}))));
    QVERIFY(QMetaObject::invokeMethod(&worker, "setParameters", Qt::DirectConnection,
                                      Q_ARG(QList<qint32>, paras)));
    QCOMPARE(parameters(worker), stored);
}

void FileAccessorTest::errorLog_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("programID");
    QTest::addColumn<int>("storageType");
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("read, program 3")
        << 0 << 3 << 0
        << QStringList{"Seg4:File is not open yet.", "Read File retry time is over 2 times."}
        << "usb/READ_PROG_3_ERROR.txt"
        << QByteArray(
               "Program 1:\nSeg4:File is not open yet.\nRead File retry time is over 2 times.");
    QTest::newRow("write, program 12, layout kept")
        << 1 << 12 << 1
        << QStringList{"\n\tSegment 2 has following format error : ", "\t\tbad cell",
                       "First retry.", ""}
        << "sd/WRITE_PROG_12_ERROR.txt"
        << QByteArray("Program 1:\n\n\tSegment 2 has following format error : \n\t\tbad "
                      "cell\nFirst retry.\n");
    QTest::newRow("type 2 is a read log")
        << 2 << 19 << 0 << QStringList{"x"} << "usb/READ_PROG_19_ERROR.txt"
        << QByteArray("Program 1:\nx");
    QTest::newRow("no messages") << 0 << 1 << 0 << QStringList{} << "usb/READ_PROG_1_ERROR.txt"
                                 << QByteArray("Program 1:");
}

void FileAccessorTest::errorLog()
{
    QFETCH(int, type);
    QFETCH(int, programID);
    QFETCH(int, storageType);
    QFETCH(QStringList, errors);
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    const QString path = media.filePath(file);
    {
        QFile old(path); // an earlier, longer log is replaced
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(500, 'z'));
    }
    FileAccessor worker;
    setStorage(worker, storageType);
    QSignalSpy re(&worker, &FileAccessor::setRE);
    QSignalSpy we(&worker, &FileAccessor::setWE);
    QVERIFY(writeLog(worker, type, programID, errors));
    QCOMPARE(fileContent(path), content);
    QCOMPARE(we.count(), type == 1 ? 1 : 0);
    QCOMPARE(re.count(), type == 1 ? 0 : 1);
    QCOMPARE((type == 1 ? we : re).at(0).at(0).toBool(), true);
}

void FileAccessorTest::errorLogWithoutMedium()
{
    device.setMountDirectory(DeviceObject::UsbStick, QString());
    FileAccessor worker;
    QSignalSpy re(&worker, &FileAccessor::setRE);
    QVERIFY(!writeLog(worker, 0, 3, {"lost"}));
    QCOMPARE(re.count(), 1); // the flag rises even when the log cannot be written
    QCOMPARE(centre.texts(), QStringList{"The system can't not detect the USB Stick."});
    QCOMPARE(QDir(usb).entryList(QDir::Files), QStringList());
}

void FileAccessorTest::errorLogOnFullMedium()
{
    // The log's name leads to a device that takes nothing.
    QVERIFY(QFile::link("/dev/full", usb + "/WRITE_PROG_5_ERROR.txt"));
    FileAccessor worker;
    QSignalSpy we(&worker, &FileAccessor::setWE);
    QVERIFY(!writeLog(worker, 1, 5, {"Write File Fail. Error Code 22."}));
    QCOMPARE(we.count(), 1);
}

void FileAccessorTest::pauseRunsItsTime()
{
    FileAccessor worker;
    QCOMPARE(worker.waitPercent(), 100);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(worker.pause(40));
    QVERIFY(clock.elapsed() >= 40);
    QVERIFY(worker.pause(0));
    QVERIFY(worker.pause(-5));
}

void FileAccessorTest::pauseEndsOnAbort()
{
    FileAccessor worker;
    std::unique_ptr<QThread> aborter(QThread::create([&worker] {
        QThread::msleep(50);
        worker.requestAbort();
    }));
    aborter->start();
    QVERIFY(!worker.pause(60000)); // would hang the suite if the abort went unseen
    QVERIFY(aborter->wait(5000));
    QVERIFY(worker.abortRequested());
    QVERIFY(!worker.pause(0)); // an abort stays
}

void FileAccessorTest::waitPercent_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<int>("percent");
    QTest::newRow("unset") << QByteArray() << 100;
    QTest::newRow("10") << QByteArray("10") << 10;
    QTest::newRow("1") << QByteArray("1") << 1;
    QTest::newRow("100") << QByteArray("100") << 100;
    QTest::newRow("blanks") << QByteArray(" 20 ") << 20;
    QTest::newRow("0 is not allowed") << QByteArray("0") << 100;
    QTest::newRow("above 100") << QByteArray("101") << 100;
    QTest::newRow("negative") << QByteArray("-5") << 100;
    QTest::newRow("text") << QByteArray("fast") << 100;
}

void FileAccessorTest::waitPercent()
{
    QFETCH(QByteArray, setting);
    QFETCH(int, percent);
    if (!setting.isNull())
        qputenv("DCP30_WAIT_PERCENT", setting);
    FileAccessor worker;
    qunsetenv("DCP30_WAIT_PERCENT"); // read once, at construction
    QCOMPARE(worker.waitPercent(), percent);
    if (percent == 10) {
        QElapsedTimer clock;
        clock.start();
        QVERIFY(worker.pause(1000));
        const qint64 took = clock.elapsed();
        QVERIFY2(took >= 100 && took < 900, qPrintable(QString::number(took)));
    }
}

QTEST_GUILESS_MAIN(FileAccessorTest)
#include "tst_fileaccessor.moc"
