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

class FileAccessorTest : public QObject
{
    Q_OBJECT

    // A file name by slot, as the meta-object system reaches it; "" for the
    // program file, else the log of that type.
    static QString name(FileAccessor& worker, int programID, bool& ok, int logType = -2)
    {
        QString result;
        const bool invoked =
            logType == -2
                ? QMetaObject::invokeMethod(&worker, "getFileName", Qt::DirectConnection,
                                            Q_RETURN_ARG(QString, result), Q_ARG(int, programID),
                                            Q_ARG(bool&, ok))
                : QMetaObject::invokeMethod(&worker, "getErrorLogFileName", Qt::DirectConnection,
                                            Q_RETURN_ARG(QString, result), Q_ARG(int, logType),
                                            Q_ARG(int, programID), Q_ARG(bool&, ok));
        if (!invoked)
            QTest::qFail("file name slot not invoked", __FILE__, __LINE__);
        return result;
    }
    static QList<int> parameters(const FileAccessor& worker)
    {
        return {worker.spLowLimit, worker.spHighLimit, worker.ev1Type, worker.ev2Type,
                worker.ev3Type};
    }

    QTemporaryDir media{QDir::tempPath() + "/dcp30-media-XXXXXX"};
    DeviceObject device;
    MessageCentre centre;
    QString usb, sd;

private slots:
    void init()
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
    void cleanup()
    {
        RuntimeProperties::publishDevice(nullptr);
        RuntimeProperties::publishMessageCentre(nullptr);
        qunsetenv("DCP30_WAIT_PERCENT");
    }

    void fileNames_data()
    {
        QTest::addColumn<int>("storageType");
        QTest::addColumn<int>("programID");
        QTest::addColumn<QString>("medium"); // directory below the temporary media
        QTest::newRow("program 3 on the USB stick") << 0 << 3 << "usb";
        QTest::newRow("program 12 on the SD card") << 1 << 12 << "sd";
        QTest::newRow("storage code 5 asks for medium 6") << 5 << 19 << "m6";
        QTest::newRow("negative storage code is the USB stick") << -1 << 1 << "usb";
    }
    void fileNames()
    {
        QFETCH(int, storageType);
        QFETCH(int, programID);
        QFETCH(QString, medium);
        const QString mount = media.filePath(medium);
        QVERIFY(QDir().mkpath(mount));
        device.setMountDirectory(6, mount);
        FileAccessor worker;
        worker.transferStorageType = storageType;
        bool ok = false;
        QCOMPARE(name(worker, programID, ok),
                 mount + QStringLiteral("/PROG_%1.txt").arg(programID));
        QVERIFY(ok);
        const QList<QPair<int, QString>> logs{{0, "READ"}, {1, "WRITE"}, {2, "READ"}, {-1, "READ"}};
        for (const auto& log : logs) {
            ok = false;
            QCOMPARE(name(worker, programID, ok, log.first),
                     mount +
                         QStringLiteral("/%1_PROG_%2_ERROR.txt").arg(log.second).arg(programID));
            QVERIFY(ok);
        }
        QVERIFY(centre.messages().isEmpty());
        // A mount path that ends in a separator still gets one more.
        device.setMountDirectory(DeviceObject::UsbStick, usb + "/");
        worker.transferStorageType = 0;
        QCOMPARE(name(worker, 4, ok), usb + "//PROG_4.txt");
    }

    void missingMedium_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<int>("storageType");
        QTest::addColumn<QString>("mediumName");
        QTest::newRow("no device object") << "no device object" << 0 << "USB Stick";
        QTest::newRow("not mounted") << "not mounted" << 1 << "SD Card";
        QTest::newRow("device object without getMount") << "plain object" << 0 << "USB Stick";
        QTest::newRow("property does not convert") << "not an address" << 1 << "SD Card";
    }
    void missingMedium()
    {
        QFETCH(QString, situation);
        QFETCH(int, storageType);
        QFETCH(QString, mediumName);
        QObject plainObject;
        if (situation == "no device object")
            RuntimeProperties::publishDevice(nullptr);
        else if (situation == "not mounted")
            device.setMountDirectory(storageType + 1, QString());
        else if (situation == "plain object")
            RuntimeProperties::publishDevice(&plainObject);
        else
            qApp->setProperty("KDevice", situation);
        FileAccessor worker;
        worker.transferStorageType = storageType;
        bool ok = true;
        QVERIFY(name(worker, 3, ok).isEmpty() && !ok);
        ok = true;
        QVERIFY(name(worker, 3, ok, 1).isEmpty() && !ok);
        // Same thread: the message arrives at once, one per failed look-up.
        const QString expected =
            QStringLiteral("DCP30: The system can't not detect the %1. (1)").arg(mediumName);
        QStringList shown;
        for (const MessageCentre::Message& m : centre.messages())
            shown << QStringLiteral("%1: %2 (%3)").arg(m.title, m.text).arg(m.flag);
        QCOMPARE(shown, (QStringList{expected, expected}));
    }

    // The message centre is looked up once, when the worker is made; one
    // without the slot is refused. Either way the worker goes on.
    void messageCentreLookedUpOnce()
    {
        RuntimeProperties::publishMessageCentre(nullptr);
        RuntimeProperties::publishDevice(nullptr);
        FileAccessor worker;
        RuntimeProperties::publishMessageCentre(&centre);
        QObject plainObject;
        RuntimeProperties::publishMessageCentre(&plainObject);
        FileAccessor other;
        bool ok = true;
        QVERIFY(name(worker, 1, ok).isEmpty() && !ok);
        QVERIFY(name(other, 1, ok).isEmpty());
        QVERIFY(centre.messages().isEmpty());
    }

    void startSlotsStopWithoutMedium_data()
    {
        QTest::addColumn<bool>("isRead");
        QTest::addColumn<int>("storageType");
        QTest::newRow("read, USB") << true << 0;
        QTest::newRow("write, SD") << false << 1;
    }
    void startSlotsStopWithoutMedium()
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
        QCOMPARE((isRead ? rf : wf).takeFirst(), QVariantList{false});
        QCOMPARE(rf.count() + wf.count() + re.count() + we.count(), 0); // no error flag, no log
        QCOMPARE(centre.messages().size(), 1);
        QCOMPARE(worker.transferStorageType, storageType);
        QCOMPARE(parameters(worker), (QList<int>{0, 0, 0, 0, 0}));
        QCOMPARE(QDir(usb).entryList(QDir::Files) + QDir(sd).entryList(QDir::Files), QStringList());
    }

    void setParameters()
    {
        FileAccessor worker;
        auto set = [&worker](const QList<qint32>& paras) {
            return QMetaObject::invokeMethod(&worker, "setParameters", Qt::DirectConnection,
                                             Q_ARG(QList<qint32>, paras));
        };
        QVERIFY(set({1, 2, 3, 4, 5, 6, 7})); // what follows the five is ignored
        QCOMPARE(parameters(worker), (QList<int>{1, 2, 3, 4, 5}));
        QVERIFY(set({7, 8, 9})); // a short list changes what it covers
        QCOMPARE(parameters(worker), (QList<int>{7, 8, 9, 4, 5}));
    }

    // "Program 1:" whatever the program, the lines as they are (leading line
    // breaks and tabs, an empty last line), an earlier, longer log replaced.
    void errorLog()
    {
        const QString path = sd + "/WRITE_PROG_12_ERROR.txt";
        QFile old(path);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write(QByteArray(500, 'z')) == 500);
        old.close();
        FileAccessor worker;
        worker.transferStorageType = 1;
        QSignalSpy we(&worker, &FileAccessor::setWE);
        QVERIFY(worker.writeErrorLog(
            1, 12,
            {"\n\tSegment 2 has following format error : ", "\t\tbad cell", "First retry.", ""}));
        QCOMPARE(we.count(), 1);
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(old.readAll(), QByteArray("Program 1:\n\n\tSegment 2 has following format error : "
                                           "\n\t\tbad cell\nFirst retry.\n"));
    }

    // The flag rises even when the log cannot be written.
    void errorLogNotWritten_data()
    {
        QTest::addColumn<bool>("mounted");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("medium missing")
            << false << QStringList{"The system can't not detect the USB Stick."};
        QTest::newRow("medium full") << true << QStringList();
    }
    void errorLogNotWritten()
    {
        QFETCH(bool, mounted);
        if (mounted) // the log's name leads to a device that takes nothing
            QVERIFY(QFile::link("/dev/full", usb + "/READ_PROG_5_ERROR.txt"));
        else
            device.setMountDirectory(DeviceObject::UsbStick, QString());
        FileAccessor worker;
        QSignalSpy re(&worker, &FileAccessor::setRE);
        QVERIFY(!worker.writeErrorLog(0, 5, {"Read File retry time is over 2 times."}));
        QCOMPARE(re.count(), 1);
        QTEST(centre.texts(), "messages");
    }

    void pauseEndsOnAbort()
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

    void waitPercent_data()
    {
        QTest::addColumn<QByteArray>("setting");
        QTest::addColumn<int>("percent");
        QTest::newRow("unset") << QByteArray() << 100;
        QTest::newRow("blanks around 10") << QByteArray(" 10 ") << 10;
        QTest::newRow("1") << QByteArray("1") << 1;
        QTest::newRow("0 is not allowed") << QByteArray("0") << 100;
        QTest::newRow("above 100") << QByteArray("101") << 100;
        QTest::newRow("text") << QByteArray("fast") << 100;
    }
    void waitPercent()
    {
        QFETCH(QByteArray, setting);
        QFETCH(int, percent);
        if (!setting.isNull())
            qputenv("DCP30_WAIT_PERCENT", setting);
        FileAccessor worker;
        qunsetenv("DCP30_WAIT_PERCENT"); // read once, at construction
        QCOMPARE(worker.waitPercent(), percent);
        if (setting.isNull() || percent == 10) {
            // The real waits run their full time, scaled ones their share.
            const int ms = percent == 10 ? 1000 : 40;
            QElapsedTimer clock;
            clock.start();
            QVERIFY(worker.pause(ms));
            const qint64 took = clock.elapsed();
            QVERIFY2(took >= ms * percent / 100 && (percent == 100 || took < ms * 9 / 10),
                     qPrintable(QString::number(took)));
            QVERIFY(worker.pause(0) && worker.pause(-5));
        }
    }
};

QTEST_GUILESS_MAIN(FileAccessorTest)
#include "tst_fileaccessor.moc"
