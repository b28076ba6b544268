// The worker object: medium look-up and file names, the missing-medium
// message, and the error log.
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

class FileAccessorTest : public QObject
{
    Q_OBJECT

private slots:
    // A code above 1 is the SD card family, a negative one the USB stick, the
    // separator goes in even after one, any log type but 1 is a read log.
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
        FileAccessor& w = rig.worker();
        w.transferStorageType = storageType;
        bool ok[3] = {};
        QCOMPARE((QStringList{w.getFileName(19, ok[0]), w.getErrorLogFileName(1, 19, ok[1]),
                              w.getErrorLogFileName(2, 19, ok[2])}),
                 (QStringList{mount + "/PROG_19.txt", mount + "/WRITE_PROG_19_ERROR.txt",
                              mount + "/READ_PROG_19_ERROR.txt"}));
        QVERIFY(ok[0] && ok[1] && ok[2]);
        QVERIFY(rig.events().isEmpty());
    }

    // No medium to be found: every file name look-up tells the user once, and
    // a start slot stops right there (the running flag drops, no error flag,
    // no file). Nobody published a message centre: the worker carries on.
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
        WorkflowRig rig;
        QObject plainObject;
        if (situation == "not mounted")
            rig.device.setMountDirectory(storageType + 1, QString());
        else
            RuntimeProperties::publishDevice(situation == "plain object" ? &plainObject : nullptr);
        FileAccessor& worker = rig.worker();
        worker.transferStorageType = storageType;
        bool ok = true;
        QVERIFY(worker.getFileName(3, ok).isEmpty() && !ok);
        ok = true;
        QVERIFY(worker.getErrorLogFileName(1, 3, ok).isEmpty() && !ok);
        if (storageType == 0)
            worker.readProgramFileProcess(4, 3, storageType);
        else
            worker.writeProgramFileProcess({1, 2, 3, 4, 5}, 4, 3, storageType);
        const QString message = QStringLiteral("message DCP30: The system can't not detect the %1.")
                                    .arg(storageType ? "SD Card" : "USB Stick");
        QCOMPARE(rig.events(),
                 (QStringList{message, message, message, storageType ? "WF 0" : "RF 0"}));
        QVERIFY(rig.files().isEmpty());
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
        QFile log(rig.device.getMount(DeviceObject::UsbStick) + "/WRITE_PROG_12_ERROR.txt");
        QVERIFY(log.open(QIODevice::WriteOnly) && log.write(QByteArray(500, 'z')) == 500);
        log.close();
        if (!mounted)
            rig.device.setMountDirectory(DeviceObject::UsbStick, QString());
        QCOMPARE(rig.worker().writeErrorLog(1, 12,
                                            {"\n\tSegment 2 has following format error : ",
                                             "\t\tbad cell", "First retry.", ""}),
                 mounted);
        QTEST(rig.events(), "events");
        QVERIFY(log.open(QIODevice::ReadOnly));
        QCOMPARE(log.readAll(), mounted ? QByteArray("Program 1:\n\n\tSegment 2 has following "
                                                     "format error : \n\t\tbad cell\nFirst "
                                                     "retry.\n")
                                        : QByteArray(500, 'z'));
    }
};

QTEST_GUILESS_MAIN(FileAccessorTest)
#include "tst_fileaccessor.moc"
