// The driver object: what the runtime relies on, internal variables, start
// rules, forwarding to the companion, error hold-down and take-down.
#include "common/devicesetting.h"
#include "common/driversetting.h"
#include "driver/dcp30.h"
#include "driver/fileaccessor.h"
#include "host/companion/sdc35companion.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/scriptedport.h"

#include <QtTest>

#include <QDir>
#include <QPointer>
#include <QThread>

#include <memory>

namespace
{

const QString Sdc35Path = QStringLiteral(SDC35_LIBRARY);
const QString MissingPath = QStringLiteral("/nonexistent/dcp30/libsdc35.so");

struct CompanionLog {
    QStringList calls; // "read <address> <kind> <count>" / "write <address> <data hex>"
    AbstractDeviceInterface* lastDevice = nullptr;
    QMap<QString, QByteArray> readAnswers;
    int alive = 0;
};

class FakeCompanion : public Sdc35Companion
{
public:
    explicit FakeCompanion(CompanionLog& log) : log(log) { ++log.alive; }
    ~FakeCompanion() override { --log.alive; }
    bool write(AbstractDeviceInterface* device, const CommunicatorCommand& c,
               const QByteArray& data) override
    {
        log.lastDevice = device;
        log.calls << QStringLiteral("write %1 %2").arg(c.address, QString(data.toHex()));
        return false; // a refusal the driver must pass on
    }
    QByteArray read(AbstractDeviceInterface* device, const CommunicatorCommand& c) override
    {
        log.lastDevice = device;
        log.calls << QStringLiteral("read %1 %2 %3").arg(c.address).arg(c.dataType).arg(c.count);
        return log.readAnswers.value(c.address);
    }

private:
    CompanionLog& log;
};

CommunicatorCommand command(const QString& address, int kind = CommunicatorCommand::ByteKind,
                            unsigned count = 1)
{
    CommunicatorCommand c;
    c.address = address;
    c.dataType = kind;
    c.count = count;
    return c;
}

QByteArray byte(int value)
{
    return QByteArray(1, char(value));
}

int threadCount()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

class DriverCoreTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { companion = CompanionLog(); }

    void cleanup()
    {
        RuntimeProperties::setPanelEnvironment(false);
        RuntimeProperties::setCompanionLibrary(QString());
        RuntimeProperties::publishDevice(nullptr);
    }

    // A new settings record on every call (the runtime deletes it), and the
    // meta-object's method order.
    void runtimeContract()
    {
        auto driver = makeDriver();
        DriverInterface* i = driver.get();
        std::unique_ptr<DeviceSetting> d1(i->getDefaultSerialDeviceSetting()),
            d2(i->getDefaultSerialDeviceSetting());
        std::unique_ptr<DriverSetting> s1(i->getDefaultDriverSetting()),
            s2(i->getDefaultDriverSetting());
        QVERIFY(d1 && d2 && d1 != d2 && s1 && s2 && s1 != s2 && d1->string == "COM1");
        QCOMPARE((QList<int>{int(d1->type), d1->baudrate, d1->databits, d1->stopbits, d1->parity,
                             s1->timeout, s1->retry, s1->stationid, s1->delay}),
                 (QList<int>{64, 9600, 8, 0, 2, 500, 3, 1, 0}));

        const QMetaObject& mo = DriverDCP30::staticMetaObject;
        QByteArrayList methods;
        for (int m = mo.methodOffset(); m < mo.methodCount(); ++m)
            methods << mo.method(m).methodSignature();
        QCOMPARE(methods.join(' '),
                 "readProgramFileProcess(int,int,int) writeProgramFileProcess(QList<int>,int,int,"
                 "int) delayClearError() setErrorInstantMessage(QString) setRF(bool) setWF(bool) "
                 "setWE(bool) setRE(bool) setReadProgress(uchar) setWriteProgress(uchar)");
    }

    // Internal variables are the driver's own; any other address (letter
    // case counts) goes to the companion, unless a transfer runs: then
    // nothing is read or written and nobody is asked.
    void dispatch_data()
    {
        QTest::addColumn<QByteArray>("raised"); // slot that raised a flag first
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("written"); // -1: only read
        QTest::addColumn<QByteArray>("readBack");
        QTest::addColumn<QStringList>("calls");
        auto row = [](const char* raised, const char* address, const char* hex, int written,
                      const char* back, const QStringList& calls = {}) {
            QTest::addRow("%s %s%s%s", address, written < 0 ? "initial" : hex,
                          *raised ? " after " : "", raised)
                << QByteArray(raised) << QString(address) << QByteArray::fromHex(hex) << written
                << QByteArray::fromHex(back) << calls;
        };
        row("", "SegCnt0", "", -1, "01");
        row("", "SegCnt0", "1e", 1, "1e");
        row("", "SegCnt0", "1f", 1, "1e");
        row("", "SegCnt0", "00", 1, "01");
        row("", "SegCnt0", "ff", 1, "1e");   // unsigned
        row("", "SegCnt0", "0501", 1, "05"); // first byte only
        row("", "ProgramID0", "13", 1, "13");
        row("", "ProgramID0", "14", 1, "13");
        row("", "ProgramID0", "00", 1, "01");
        row("", "StorageType0", "05", 1, "01");
        // The error flags look at the lowest bit only; no data counts as 0.
        row("setWE", "WE0", "03", 1, "01");
        row("setWE", "WE0", "02", 1, "00");
        row("setRE", "RE0", "", 1, "00");
        row("", "segcnt0", "0908", 0, "010203", {"write segcnt0 0908", "read segcnt0 2 2"});
        // Progress values are the driver's to read, not to write.
        row("", "WriteProgress0", "0908", 0, "00", {"write WriteProgress0 0908"});
        row("setRF", "RAM100", "0908", 0, "");
        row("setRF", "ProgramID0", "03", 1, "03"); // the panel's values stay served
        row("setWF", "RAM100", "0908", 0, "");
    }
    void dispatch()
    {
        QFETCH(QByteArray, raised);
        QFETCH(QString, address);
        QFETCH(QByteArray, data);
        QFETCH(int, written);
        auto driver = makeDriver(QString(), true);
        if (!raised.isEmpty())
            invoke(*driver, raised.constData(), Q_ARG(bool, true));
        companion.readAnswers.insert(address, QByteArray("\x01\x02\x03", 3));
        const CommunicatorCommand c = command(address, CommunicatorCommand::WordKind, 2);
        if (written >= 0)
            QCOMPARE(driver->write(&port, c, data), written == 1);
        QTEST(driver->read(&port, c), "readBack");
        QTEST(companion.calls, "calls");
        if (!companion.calls.isEmpty())
            QCOMPARE(companion.lastDevice, static_cast<AbstractDeviceInterface*>(&port));
    }

    void startRules_data()
    {
        QTest::addColumn<QString>("flag");
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("running"); // flag already raised, or empty
        QTest::addColumn<bool>("starts");
        QTest::newRow("RF0 1") << "RF0" << 1 << "" << true;
        QTest::newRow("WF0 2") << "WF0" << 2 << "" << true;
        QTest::newRow("RF0 0") << "RF0" << 0 << "" << false;
        QTest::newRow("RF0 while writing") << "RF0" << 1 << "WF" << false;
        QTest::newRow("WF0 while reading") << "WF0" << 1 << "RF" << false;
    }
    // A refused start request leaves the flag as it was.
    void startRules()
    {
        QFETCH(QString, flag);
        QFETCH(int, value);
        QFETCH(QString, running);
        QFETCH(bool, starts);
        auto driver = makeDriver(); // passive: nobody lowers the flags
        QSignalSpy reads(driver.get(), &DriverDCP30::readProgramFileProcess);
        QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
        if (!running.isEmpty())
            invoke(*driver, qPrintable("set" + running), Q_ARG(bool, true));
        QVERIFY(driver->write(&port, command(flag), byte(value)));
        const bool isRead = flag == "RF0";
        QCOMPARE(reads.count(), starts && isRead ? 1 : 0);
        QCOMPARE(writes.count(), starts && !isRead ? 1 : 0);
        QCOMPARE(driver->read(&port, command(flag)),
                 byte(starts || running == flag.left(2) ? 1 : 0));
        // A second request before the worker has answered is refused.
        QVERIFY(driver->write(&port, command("RF0"), byte(1)));
        QVERIFY(driver->write(&port, command("WF0"), byte(1)));
        QCOMPARE(reads.count() + writes.count(), starts || running.isEmpty() ? 1 : 0);
    }

    void writeParameters_data()
    {
        QTest::addColumn<QString>("answers"); // RAM4509, RAM3501, RAM3505, RAM3509
        QTest::addColumn<QList<int>>("paras");
        QTest::addColumn<int>("reads");
        QTest::newRow("full") << "38ffffff5a050000 01000000 00000080 ffffff7f0500"
                              << QList<int>{-200, 1370, 1, INT_MIN, INT_MAX} << 4;
        // A short answer would be a made-up value: the list ends before it.
        QTest::newRow("event 2 short")
            << "1027000034000000 03000000 ffffff 01000000" << QList<int>{10000, 0x34, 3} << 3;
        QTest::newRow("limits short")
            << "10270000340000 03000000 01000000 01000000" << QList<int>{} << 1;
        QTest::newRow("none") << "   " << QList<int>{} << 1;
    }
    // The parameters are read, with the latest port, before the request
    // leaves, and travel with it.
    void writeParameters()
    {
        QFETCH(QString, answers);
        auto driver = makeDriver(QString(), true);
        const QStringList addresses{"RAM4509", "RAM3501", "RAM3505", "RAM3509"};
        for (int a = 0; a < addresses.size(); ++a)
            companion.readAnswers[addresses[a]] =
                QByteArray::fromHex(answers.section(' ', a, a).toLatin1());
        QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
        QVERIFY(driver->write(&port, command("WF0"), byte(1)));
        QCOMPARE(writes.count(), 1);
        QTEST(writes.at(0).at(0).value<QList<int>>(), "paras");
        QFETCH(int, reads);
        QCOMPARE(companion.calls, (QStringList{"read RAM4509 3 2", "read RAM3501 3 1",
                                               "read RAM3505 3 1", "read RAM3509 3 1"}
                                       .mid(0, reads)));
        QCOMPARE(companion.lastDevice, static_cast<AbstractDeviceInterface*>(&port));
    }

    // An active driver has its worker in a running thread of its own and
    // owns the companion it loaded; without a companion (or passive) nobody
    // is asked and a write request carries no parameters (the worker then
    // refuses it).
    void construction_data()
    {
        QTest::addColumn<QString>("companionPath"); // null: passive driver
        QTest::newRow("passive") << QString();
        QTest::newRow("library missing") << MissingPath;
        QTest::newRow("stand-in companion") << Sdc35Path;
    }
    void construction()
    {
        QFETCH(QString, companionPath);
        auto driver = makeDriver(companionPath);
        const bool active = !companionPath.isNull();
        QCOMPARE(driver->workerThread && driver->workerThread->isRunning(), active);
        if (active)
            QCOMPARE(driver->fileAccessor->thread(), driver->workerThread);
        const bool loads = companionPath == Sdc35Path;
        QCOMPARE(driver->companionDriver ? driver->companionDriver->name() : QString(),
                 QString(loads ? "SDC35" : ""));
        if (!loads) {
            QVERIFY(driver->read(&port, command("RAM1")).isEmpty());
            QVERIFY(!driver->write(&port, command("RAM1"), byte(1)));
            QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
            QVERIFY(driver->write(&port, command("WF0"), byte(1)));
            QCOMPARE(writes.count(), 1);
            QCOMPARE(writes.at(0).at(0).value<QList<int>>(), QList<int>{});
        }
    }

    // An error is reported for 100 reads, counted afresh from each new error;
    // writes do not count, and delayClearError ends it at once.
    void holdDown()
    {
        auto driver = makeDriver();
        auto reads = [&](int count) {
            for (int i = 0; i < count; ++i)
                driver->read(&port, command(i % 2 ? "SegCnt0" : "RAM1"));
        };
        invoke(*driver, "setErrorInstantMessage", Q_ARG(QString, QStringLiteral("first")));
        reads(60);
        invoke(*driver, "delayClearError");
        QVERIFY(!driver->hasError());
        invoke(*driver, "setErrorInstantMessage", Q_ARG(QString, QStringLiteral("line down")));
        for (int i = 0; i < 10; ++i)
            driver->write(&port, command("SegCnt0"), byte(1));
        reads(99);
        QVERIFY(driver->hasError());
        reads(1);
        QVERIFY(!driver->hasError());
        QCOMPARE(driver->getLastError(), QStringLiteral("line down"));
    }

    // Take-down while a transfer sits in one of its fixed waits: the wait is
    // cut short, the requests queued behind it are dropped unseen (so they
    // are queued, not run by the caller), and the companion and the thread
    // go too.
    void destroyWhileWorkerWaits()
    {
        const int before = threadCount();
        DeviceObject device;
        RuntimeProperties::publishDevice(&device);
        auto state = std::make_shared<QAtomicInt>(0); // 1 waits, 2 cut short, 3 ran out
        auto driver = makeDriver(MissingPath, true);
        FileAccessor* accessor = driver->fileAccessor;
        accessor->beforePosting();
        QVERIFY(QMetaObject::invokeMethod(
            accessor,
            [accessor, state] {
                state->storeRelaxed(1);
                state->storeRelaxed(accessor->pause(60000) ? 3 : 2);
            },
            Qt::QueuedConnection));
        QTRY_COMPARE(state->loadRelaxed(), 1);
        accessor->beforePosting();
        for (int i = 1; i <= 3; ++i)
            emit driver->readProgramFileProcess(i, 1, 0);
        driver.reset();
        QCOMPARE(state->loadRelaxed(), 2);
        QCOMPARE(device.mountQueries(), 0);
        QCOMPARE(companion.alive, 0);
        QTRY_VERIFY(threadCount() <= before);
    }

    // Take-down during a real read at the real pace: the worker stops at
    // its wait and closes the controller's file before it goes, so the
    // next transfer finds the controller free.
    void destroyMidTransferCloses()
    {
        QTemporaryDir usb;
        DeviceObject device;
        device.setMountDirectory(DeviceObject::UsbStick, usb.path());
        RuntimeProperties::publishDevice(&device);
        port.reset();
        port.addAnswer("", ScriptedPort::Answer::withReply(ScriptedPort::framed("0100X00")),
                       ScriptedPort::Forever);
        auto driver = makeDriver(MissingPath);
        QVERIFY(driver->write(&port, command("SegCnt0"), byte(30)));
        QVERIFY(driver->write(&port, command("RF0"), byte(1)));
        QTRY_VERIFY(port.sentCommands().contains("0100XFR,1,1"));
        driver.reset();
        RuntimeProperties::publishDevice(nullptr);
        const QList<QByteArray> sent = port.sentCommands();
        QCOMPARE(sent.first(), QByteArray("0100XFO,1,R,0"));
        QCOMPARE(sent.last(), QByteArray("0100XFC,1"));
        QCOMPARE(sent.count("0100XFC,1"), 1);
        QVERIFY(!QFile::exists(usb.filePath("PROG_1.txt")));
    }

    // A worker stuck where no abort reaches it (a medium that hangs, say)
    // does not hold up the runtime: take-down gives up waiting, and the
    // worker and its thread go once it comes back.
    void destroyWithStuckWorker()
    {
        const int before = threadCount();
        auto state = std::make_shared<QAtomicInt>(0); // 1 stuck, 2 came back
        auto driver = makeDriver(MissingPath);
        FileAccessor* accessor = driver->fileAccessor;
        accessor->beforePosting();
        QVERIFY(QMetaObject::invokeMethod(
            accessor,
            [state] {
                state->storeRelaxed(1);
                QThread::msleep(DriverDCP30::WorkerJoinMs + 1500);
                state->storeRelaxed(2);
            },
            Qt::QueuedConnection));
        QTRY_COMPARE(state->loadRelaxed(), 1);
        const QPointer<FileAccessor> worker(accessor);
        driver.reset();
        QCOMPARE(state->loadRelaxed(), 1); // returned while the worker was still stuck
        QTRY_COMPARE_WITH_TIMEOUT(state->loadRelaxed(), 2, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(worker.isNull(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(threadCount() <= before, 10000);
    }

private:
    // Active unless companionPath is null. withFake: the test's companion in
    // place of whatever the driver loaded.
    std::unique_ptr<DriverDCP30> makeDriver(const QString& companionPath = QString(),
                                            bool withFake = false)
    {
        RuntimeProperties::setPanelEnvironment(!companionPath.isNull());
        RuntimeProperties::setCompanionLibrary(companionPath);
        auto driver = std::make_unique<DriverDCP30>();
        if (withFake) {
            delete driver->companionDriver;
            driver->companionDriver = new FakeCompanion(companion);
        }
        return driver;
    }
    static void invoke(DriverDCP30& driver, const char* slot,
                       QGenericArgument arg = QGenericArgument())
    {
        QVERIFY(QMetaObject::invokeMethod(&driver, slot, Qt::DirectConnection, arg));
    }

    ScriptedPort port;
    CompanionLog companion;
};

QTEST_GUILESS_MAIN(DriverCoreTest)
#include "tst_drivercore.moc"
