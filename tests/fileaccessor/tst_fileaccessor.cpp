// The worker object: medium look-up and file names, messages, start slots'
// first steps, the error log, and the wait setting.
#include "driver/fileaccessor.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"

#include <QtTest>

#include <QFile>
#include <QTemporaryDir>

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

    std::unique_ptr<QTemporaryDir> media;
    DeviceObject device;
    MessageCentre centre;
    QString usb, sd;

private slots:
    void init()
    {
        media = std::make_unique<QTemporaryDir>(); // every test starts with empty media
        usb = media->filePath("usb");
        sd = media->filePath("sd");
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
        QTest::newRow("negative code, mount ending in a separator") << -1 << 1 << "usb/";
    }
    void fileNames()
    {
        QFETCH(int, storageType);
        QFETCH(int, programID);
        QFETCH(QString, medium);
        const QString mount = media->filePath(medium);
        QVERIFY(QDir().mkpath(mount));
        device.setMountDirectory(storageType > 0 ? storageType + 1 : 1, mount);
        FileAccessor worker;
        worker.transferStorageType = storageType;
        const QList<QPair<int, QString>> names{{-2, "PROG_%1.txt"},
                                               {0, "READ_PROG_%1_ERROR.txt"},
                                               {1, "WRITE_PROG_%1_ERROR.txt"},
                                               {2, "READ_PROG_%1_ERROR.txt"}};
        for (const auto& n : names) {
            bool ok = false;
            QCOMPARE(name(worker, programID, ok, n.first), mount + '/' + n.second.arg(programID));
            QVERIFY(ok);
        }
        QVERIFY(centre.messages().isEmpty());
    }

    // No medium to be found: every file name look-up tells the user once, and
    // a start slot stops right there (the running flag drops, no error flag,
    // no file). The message centre is looked up once, when the worker is made;
    // one without the slot is refused, and the worker goes on regardless.
    void missingMedium_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<int>("storageType");
        QTest::addColumn<QString>("mediumName"); // empty: the messages are lost
        QTest::newRow("no device object") << "no device object" << 0 << "USB Stick";
        QTest::newRow("not mounted") << "not mounted" << 1 << "SD Card";
        QTest::newRow("device object without getMount") << "plain object" << 0 << "USB Stick";
        QTest::newRow("property does not convert") << "not an address" << 1 << "SD Card";
        QTest::newRow("no message centre") << "no centre" << 0 << "";
        QTest::newRow("message centre without the slot") << "plain centre" << 1 << "";
    }
    void missingMedium()
    {
        QFETCH(QString, situation);
        QFETCH(int, storageType);
        QFETCH(QString, mediumName);
        QObject plainObject;
        if (situation == "no device object")
            RuntimeProperties::publishDevice(nullptr);
        else if (situation == "plain object")
            RuntimeProperties::publishDevice(&plainObject);
        else if (situation == "not an address")
            qApp->setProperty("KDevice", situation);
        else
            device.setMountDirectory(storageType + 1, QString());
        if (situation.endsWith("centre"))
            RuntimeProperties::publishMessageCentre(situation == "no centre" ? nullptr
                                                                             : &plainObject);
        FileAccessor worker;
        RuntimeProperties::publishMessageCentre(&centre);
        worker.transferStorageType = storageType;
        bool ok = true;
        QVERIFY(name(worker, 3, ok).isEmpty() && !ok);
        ok = true;
        QVERIFY(name(worker, 3, ok, 1).isEmpty() && !ok);

        QSignalSpy rf(&worker, &FileAccessor::setRF);
        QSignalSpy wf(&worker, &FileAccessor::setWF);
        QSignalSpy re(&worker, &FileAccessor::setRE);
        QSignalSpy we(&worker, &FileAccessor::setWE);
        const bool isRead = storageType == 0;
        if (isRead)
            worker.readProgramFileProcess(4, 3, storageType);
        else
            worker.writeProgramFileProcess({1, 2, 3, 4, 5}, 4, 3, storageType);
        QCOMPARE((isRead ? rf : wf).takeFirst(), QVariantList{false});
        QCOMPARE(rf.count() + wf.count() + re.count() + we.count(), 0);
        QCOMPARE(QDir(usb).entryList(QDir::Files) + QDir(sd).entryList(QDir::Files), QStringList());

        // Same thread: the messages arrive at once.
        QStringList shown;
        for (const MessageCentre::Message& m : centre.messages())
            shown << QStringLiteral("%1: %2 (%3)").arg(m.title, m.text).arg(m.flag);
        const QString expected =
            QStringLiteral("DCP30: The system can't not detect the %1. (1)").arg(mediumName);
        QCOMPARE(shown, (mediumName.isEmpty() ? QStringList()
                                              : QStringList{expected, expected, expected}));
    }

    // The flag rises whether or not the log reaches the medium. The log says
    // "Program 1:" whatever the program, keeps the lines as they are (leading
    // breaks and tabs, an empty last line) and replaces an earlier, longer one.
    void errorLog_data()
    {
        QTest::addColumn<QString>("medium");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("written") << "usb" << QStringList();
        QTest::newRow("missing") << "" << QStringList{"The system can't not detect the USB Stick."};
        QTest::newRow("full") << "/dev/full" << QStringList();
    }
    void errorLog()
    {
        QFETCH(QString, medium);
        QFile log(usb + "/WRITE_PROG_12_ERROR.txt");
        if (medium.isEmpty()) {
            device.setMountDirectory(DeviceObject::UsbStick, QString());
        } else if (medium == "usb") {
            QVERIFY(log.open(QIODevice::WriteOnly) && log.write(QByteArray(500, 'z')) == 500);
            log.close();
        } else { // the log's name leads to a device that takes nothing
            QVERIFY(QFile::link(medium, log.fileName()));
        }
        FileAccessor worker;
        QSignalSpy we(&worker, &FileAccessor::setWE);
        QCOMPARE(worker.writeErrorLog(1, 12,
                                      {"\n\tSegment 2 has following format error : ",
                                       "\t\tbad cell", "First retry.", ""}),
                 medium == "usb");
        QCOMPARE(we.count(), 1);
        QTEST(centre.texts(), "messages");
        if (medium == "usb") {
            QVERIFY(log.open(QIODevice::ReadOnly));
            QCOMPARE(log.readAll(), QByteArray("Program 1:\n\n\tSegment 2 has following format "
                                               "error : \n\t\tbad cell\nFirst retry.\n"));
        }
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
        if (percent == 10) { // a scaled wait takes its share of the time
            QElapsedTimer clock;
            clock.start();
            QVERIFY(worker.pause(1000));
            const qint64 took = clock.elapsed();
            QVERIFY2(took >= 100 && took < 900, qPrintable(QString::number(took)));
        }
        QVERIFY(worker.pause(0) && worker.pause(-5));
    }
};

QTEST_GUILESS_MAIN(FileAccessorTest)
#include "tst_fileaccessor.moc"
