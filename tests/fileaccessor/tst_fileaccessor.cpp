// The worker object: medium look-up and file names, messages, start slots'
// first steps, the error log, and the wait setting.
#include "tests/driver_core/tsanoptions.h"
#include "host/runtime/messagecentre.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using WorkflowData::fileBytes;

class FileAccessorTest : public QObject
{
    Q_OBJECT

    // A file name through the worker's slots, by name: the program file
    // (logType -2) or the log of that type.
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
        return invoked ? result : QStringLiteral("<slot not invoked>");
    }

private slots:
    void cleanup() { qunsetenv("DCP30_WAIT_PERCENT"); }

    // The workflow suites find their files on both media; what they cannot
    // show: a code above 1 is the SD card family, a negative one the USB
    // stick, the separator goes in even after one, any log type but 1 is a
    // read log.
    void fileNames_data()
    {
        QTest::addColumn<int>("storageType");
        QTest::addColumn<QString>("medium"); // directory below a temporary one
        QTest::newRow("storage code 5 asks for medium 6") << 5 << "m6";
        QTest::newRow("negative code, mount ending in a separator") << -1 << "usb/";
    }
    void fileNames()
    {
        QFETCH(int, storageType);
        QFETCH(QString, medium);
        QTemporaryDir media;
        const QString mount = media.filePath(medium);
        QVERIFY(QDir().mkpath(mount));
        WorkflowRig rig;
        rig.device.setMountDirectory(storageType > 0 ? storageType + 1 : 1, mount);
        rig.worker().transferStorageType = storageType;
        bool ok[3] = {};
        QCOMPARE((QStringList{name(rig.worker(), 19, ok[0]), name(rig.worker(), 19, ok[1], 1),
                              name(rig.worker(), 19, ok[2], 2)}),
                 (QStringList{mount + "/PROG_19.txt", mount + "/WRITE_PROG_19_ERROR.txt",
                              mount + "/READ_PROG_19_ERROR.txt"}));
        QVERIFY(ok[0] && ok[1] && ok[2]);
        QVERIFY(rig.events().isEmpty());
    }

    // No medium to be found: every file name look-up tells the user once, and
    // a start slot stops right there (the running flag drops, no error flag,
    // no file).
    void missingMedium_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<int>("storageType");
        QTest::newRow("no device object") << "no device object" << 0;
        QTest::newRow("not mounted") << "not mounted" << 1;
        QTest::newRow("device object without getMount") << "plain object" << 0;
    }
    void missingMedium()
    {
        QFETCH(QString, situation);
        QFETCH(int, storageType);
        MessageCentre centre;
        centre.setQuiet(true);
        RuntimeProperties::publishMessageCentre(&centre);
        WorkflowRig rig;
        RuntimeProperties::publishMessageCentre(nullptr); // the worker holds it already
        QObject plainObject;
        if (situation == "not mounted")
            rig.device.setMountDirectory(storageType + 1, QString());
        else
            RuntimeProperties::publishDevice(situation == "plain object" ? &plainObject : nullptr);
        FileAccessor& worker = rig.worker();
        worker.transferStorageType = storageType;
        bool ok = true;
        QVERIFY(name(worker, 3, ok).isEmpty() && !ok);
        ok = true;
        QVERIFY(name(worker, 3, ok, 1).isEmpty() && !ok);
        if (storageType == 0)
            worker.readProgramFileProcess(4, 3, storageType);
        else
            worker.writeProgramFileProcess({1, 2, 3, 4, 5}, 4, 3, storageType);
        const QString message = QStringLiteral("message DCP30: The system can't not detect the %1.")
                                    .arg(storageType ? "SD Card" : "USB Stick");
        QCOMPARE(rig.events(),
                 (QStringList{message, message, message, storageType ? "WF 0" : "RF 0"}));
        QCOMPARE(centre.texts().size(), 3); // same thread: they arrive at once
        QVERIFY(rig.files().isEmpty());
    }

    // The message centre is looked up once, when the worker is made; without
    // one the worker goes on regardless and its messages are lost.
    void noMessageCentre()
    {
        WorkflowRig rig;
        RuntimeProperties::publishDevice(nullptr);
        FileAccessor worker;
        MessageCentre centre; // published too late for this worker
        centre.setQuiet(true);
        RuntimeProperties::publishMessageCentre(&centre);
        QSignalSpy rf(&worker, &FileAccessor::setRF);
        worker.readProgramFileProcess(4, 3, 0);
        RuntimeProperties::publishMessageCentre(nullptr);
        QCOMPARE(rf.count(), 1);
        QVERIFY(centre.messages().isEmpty());
    }

    // The flag rises whether or not the log reaches the medium. The log says
    // "Program 1:" whatever the program, keeps the lines as they are (leading
    // breaks and tabs, an empty last line) and replaces an earlier, longer one.
    void errorLog_data()
    {
        QTest::addColumn<bool>("mounted");
        QTest::addColumn<QStringList>("events");
        QTest::newRow("written") << true << QStringList{"WE 1"};
        QTest::newRow("no medium") << false
                                   << QStringList{"WE 1", "message DCP30: The system can't not "
                                                          "detect the USB Stick."};
    }
    void errorLog()
    {
        QFETCH(bool, mounted);
        WorkflowRig rig;
        const QString log = rig.usbFile("WRITE_PROG_12_ERROR.txt");
        if (mounted)
            QVERIFY(WorkflowData::writeBytes(log, QByteArray(500, 'z')));
        else
            rig.device.setMountDirectory(DeviceObject::UsbStick, QString());
        QCOMPARE(rig.worker().writeErrorLog(1, 12,
                                            {"\n\tSegment 2 has following format error : ",
                                             "\t\tbad cell", "First retry.", ""}),
                 mounted);
        QTEST(rig.events(), "events");
        QCOMPARE(fileBytes(log), mounted ? QByteArray("Program 1:\n\n\tSegment 2 has following "
                                                      "format error : \n\t\tbad cell\nFirst "
                                                      "retry.\n")
                                         : QByteArray("<missing>"));
    }

    // The test-only setting that shortens the fixed waits: read once, when
    // the worker is made; anything but 1..100 means the real waits.
    void waitPercent_data()
    {
        QTest::addColumn<QByteArray>("setting");
        QTest::addColumn<int>("percent");
        QTest::newRow("unset") << QByteArray() << 100;
        QTest::newRow("blanks around 10") << QByteArray(" 10 ") << 10;
        QTest::newRow("1") << QByteArray("1") << 1;
        QTest::newRow("0 is not allowed") << QByteArray("0") << 100;
        QTest::newRow("above 100") << QByteArray("101") << 100;
    }
    void waitPercent()
    {
        QFETCH(QByteArray, setting);
        QFETCH(int, percent);
        if (!setting.isNull())
            qputenv("DCP30_WAIT_PERCENT", setting);
        FileAccessor worker;
        qunsetenv("DCP30_WAIT_PERCENT");
        QCOMPARE(worker.waitPercent(), percent);
        if (percent == 10) { // a scaled wait takes its share of the time
            QElapsedTimer clock;
            clock.start();
            QVERIFY(worker.pause(1000));
            const qint64 took = clock.elapsed();
            QVERIFY2(took >= 100 && took < 900, qPrintable(QString::number(took)));
        }
    }
};

QTEST_GUILESS_MAIN(FileAccessorTest)
#include "tst_fileaccessor.moc"
