// The driver object: identity, internal variables, start rules, forwarding
// to the companion, error hold-down, worker thread and take-down.
#include "common/devicesetting.h"
#include "common/driversetting.h"
#include "driver/dcp30.h"
#include "driver/fileaccessor.h"
#include "host/companion/sdc35companion.h"
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/scriptedport.h"

#include <QtTest>

#include <QDir>
#include <QPointer>
#include <QThread>

#include <functional>
#include <memory>

namespace
{

const QString Sdc35Path = QStringLiteral(SDC35_LIBRARY);
const QString MissingPath = QStringLiteral("/nonexistent/dcp30/libsdc35.so");

// What the test's companion was asked and what it answers.
struct CompanionLog {
    QStringList calls; // "read <address> <kind> <count>" / "write <address> <data hex>"
    AbstractDeviceInterface* lastDevice = nullptr;
    QMap<QString, QByteArray> readAnswers; // by address; absent: empty answer
    bool writeResult = true;
    int alive = 0;
};

// The stand-in companion, recording instead of talking to a line.
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
        return log.writeResult;
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

// Threads of this process, as the kernel counts them.
int threadCount()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

// A thread whose QThread has finished may still be listed for a moment while
// it unwinds; count only once the number has held still for a while.
int settledThreadCount()
{
    int count = threadCount();
    for (int stableReads = 0, polls = 0; stableReads < 5 && polls < 200; ++polls) {
        QThread::msleep(10);
        const int now = threadCount();
        stableReads = now == count ? stableReads + 1 : 0;
        count = now;
    }
    return count;
}

// Runs job in the worker's thread, queued behind what the worker has to do.
void inWorker(FileAccessor* accessor, std::function<void()> job)
{
    accessor->beforePosting();
    QVERIFY(QMetaObject::invokeMethod(accessor, std::move(job), Qt::QueuedConnection));
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
        RuntimeProperties::publishMessageCentre(nullptr);
    }

    // What the runtime relies on: identity, fixed answers, a new settings
    // record on every call, the meta-object's method order, and the
    // interface part (not the object's start) for the interface's names.
    void runtimeContract()
    {
        auto driver = makeDriver();
        DriverInterface* i = driver.get();
        QCOMPARE((QStringList{i->name(), i->vender(), i->getVersionNumber(),
                              i->getStringBasedDefaultDriverSetting()}),
                 (QStringList{"DCP30", "Yamatake", "1.0.0", "RS485,9600,EVEN,8,1"}));
        QCOMPARE((QList<int>{i->totalSize(), i->supportedCommunicationFlags(),
                             i->getBlockAccessSize(), i->getBitBlockAccessSize()}),
                 (QList<int>{65535, 64, 0, 0}));
        QCOMPARE((QList<bool>{i->initialize(nullptr), i->validation(QStringLiteral("anything")),
                              i->isSupportSessionCommand(), i->deviceSettingChanged(nullptr),
                              i->isConnected(nullptr), i->hasError()}),
                 (QList<bool>{true, true, false, true, true, false}));

        std::unique_ptr<DeviceSetting> d1(i->getDefaultSerialDeviceSetting()),
            d2(i->getDefaultSerialDeviceSetting());
        std::unique_ptr<DriverSetting> s1(i->getDefaultDriverSetting()),
            s2(i->getDefaultDriverSetting());
        QVERIFY(d1 && d2 && d1 != d2 && s1 && s2 && s1 != s2 && d1->string == "COM1");
        QCOMPARE((QList<int>{int(d1->type), d1->baudrate, d1->databits, d1->stopbits, d1->parity,
                             s1->timeout, s1->retry, s1->stationid, s1->delay}),
                 (QList<int>{64, 9600, 8, 0, 2, 500, 3, 1, 0}));

        const QMetaObject& mo = DriverDCP30::staticMetaObject;
        const QList<QByteArray> expected =
            QByteArray("readProgramFileProcess(int,int,int) "
                       "writeProgramFileProcess(QList<int>,int,int,int) delayClearError() "
                       "setErrorInstantMessage(QString) setRF(bool) setWF(bool) setWE(bool) "
                       "setRE(bool) setReadProgress(quint8) setWriteProgress(quint8)")
                .split(' ');
        QCOMPARE(mo.methodCount() - mo.methodOffset(), expected.size());
        for (int m = 0; m < expected.size(); ++m) {
            // moc records quint8 as uchar; the look-up by the documented
            // signature, as the runtime makes it, still finds the method.
            QCOMPARE(mo.indexOfMethod(expected.at(m).constData()), mo.methodOffset() + m);
            QCOMPARE(mo.method(mo.methodOffset() + m).methodType(),
                     m < 2 ? QMetaMethod::Signal : QMetaMethod::Slot);
        }

        void* interfacePart = i;
        QVERIFY(interfacePart != static_cast<void*>(driver.get()));
        QCOMPARE(driver->qt_metacast("DriverInterface"), interfacePart);
        QCOMPARE(driver->qt_metacast("com.quorvex.drivers.DriverInterface/1.1"), interfacePart);
        QCOMPARE(driver->qt_metacast("DriverDCP30"), static_cast<void*>(driver.get()));
    }

    void internalVariables_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("data"); // null: only read
        QTest::addColumn<int>("expected");
        QTest::addColumn<bool>("raised"); // the flag was raised before the write
        auto row = [](const char* address, const QByteArray& data, int expected,
                      bool raised = false) {
            QTest::addRow("%s%s %s", address, raised ? " raised" : "",
                          data.isNull() ? "initial" : data.toHex().constData())
                << QString(address) << data << expected << raised;
        };
        row("SegCnt0", QByteArray(), 1);
        row("ProgramID0", QByteArray(), 1);
        row("SegCnt0", byte(30), 30);
        row("SegCnt0", byte(31), 30);
        row("SegCnt0", byte(0), 1);
        row("SegCnt0", byte(255), 30); // unsigned
        row("SegCnt0", QByteArray("\x05\x01", 2), 5); // first byte only
        row("ProgramID0", byte(19), 19);
        row("ProgramID0", byte(20), 19);
        row("ProgramID0", byte(0), 1);
        row("StorageType0", byte(0), 0);
        row("StorageType0", byte(5), 1);
        // The error flags look at the lowest bit only.
        row("WE0", byte(1), 1, true);
        row("WE0", byte(3), 1, true);
        row("WE0", byte(2), 0, true);
        row("RE0", byte(0), 0, true);
        row("RE0", QByteArray(""), 0, true);
    }
    void internalVariables()
    {
        QFETCH(QString, address);
        QFETCH(QByteArray, data);
        QFETCH(int, expected);
        QFETCH(bool, raised);
        auto driver = makeDriver();
        if (raised)
            invoke(*driver, qPrintable("set" + address.left(2)), Q_ARG(bool, true));
        if (!data.isNull())
            QVERIFY(driver->write(&port, command(address), data));
        QCOMPARE(driver->read(&port, command(address)), byte(expected));
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
    // A start request carries the values of the moment; the panel's values
    // stay served while a transfer runs.
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
        for (const char* name : {"ProgramID0", "SegCnt0", "StorageType0"})
            QVERIFY(writeVar(*driver, name, byte(name[0] == 'P' ? 7 : 12)));
        QVERIFY(driver->write(&port, command(flag), byte(value)));
        const bool isRead = flag == "RF0";
        QCOMPARE(reads.count(), starts && isRead ? 1 : 0);
        QCOMPARE(writes.count(), starts && !isRead ? 1 : 0);
        if (starts)
            QCOMPARE((isRead ? reads : writes).at(0).mid(isRead ? 0 : 1),
                     (QList<QVariant>{7, 12, 1}));
        QCOMPARE(driver->read(&port, command(flag)),
                 byte(starts || running == flag.left(2) ? 1 : 0));
        // A second request before the worker has answered is refused.
        QVERIFY(driver->write(&port, command("RF0"), byte(1)));
        QVERIFY(driver->write(&port, command("WF0"), byte(1)));
        QCOMPARE(reads.count() + writes.count(), starts || running.isEmpty() ? 1 : 0);
        QVERIFY(writeVar(*driver, "ProgramID0", byte(3)));
        QCOMPARE(readVar(*driver, "ProgramID0"), byte(3));
    }

    // Ordinary addresses go to the companion with the caller's port, unless a
    // transfer runs: then nothing is read or written and nobody is asked.
    void forwarding_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("writeResult");
        QTest::addColumn<QByteArray>("running"); // slot that raised a running flag
        QTest::newRow("WriteProgress0 is written, refused") << "WriteProgress0" << false
                                                            << QByteArray();
        QTest::newRow("letter case differs from SegCnt0") << "segcnt0" << true << QByteArray();
        QTest::newRow("register, reading") << "RAM100" << true << QByteArray("setRF");
        QTest::newRow("ReadProgress0, writing") << "ReadProgress0" << true << QByteArray("setWF");
    }
    void forwarding()
    {
        QFETCH(QString, address);
        QFETCH(bool, writeResult);
        QFETCH(QByteArray, running);
        auto driver = makeDriver(QString(), true);
        if (!running.isEmpty())
            invoke(*driver, running.constData(), Q_ARG(bool, true));
        const bool forwarded = running.isEmpty();
        companion.writeResult = writeResult;
        companion.readAnswers.insert(address, QByteArray("\x01\x02\x03", 3));
        QCOMPARE(driver->write(&port, command(address, CommunicatorCommand::WordKind, 2),
                               QByteArray("\x09\x08", 2)),
                 forwarded && writeResult);
        ScriptedPort otherPort;
        const QByteArray answer =
            driver->read(&otherPort, command(address, CommunicatorCommand::WordKind, 2));
        QStringList expected;
        if (forwarded)
            expected << QStringLiteral("write %1 0908").arg(address);
        if (address.endsWith(QLatin1String("Progress0"))) {
            QCOMPARE(answer, byte(0)); // reads of the progress values are the driver's own
        } else if (forwarded) {
            QCOMPARE(answer, QByteArray("\x01\x02\x03", 3));
            QCOMPARE(companion.lastDevice, static_cast<AbstractDeviceInterface*>(&otherPort));
            expected << QStringLiteral("read %1 2 2").arg(address);
        } else {
            QVERIFY(answer.isEmpty());
        }
        QCOMPARE(companion.calls, expected);
    }

    void writeParameters_data()
    {
        QTest::addColumn<QByteArrayList>("answers"); // RAM4509, RAM3501, RAM3505, RAM3509
        QTest::addColumn<QList<int>>("paras");
        auto row = [](const char* name, const char* hex, const QList<int>& paras) {
            QByteArrayList answers;
            for (const QByteArray& h : QByteArray(hex).split(' '))
                answers << QByteArray::fromHex(h);
            QTest::newRow(name) << answers << paras;
        };
        row("full answers", "38ffffff5a050000 01000000 00000080 ffffff7f",
            {-200, 1370, 1, INT_MIN, INT_MAX});
        row("short answers", "1027000034 0300 ff 010000000500", {10000, 0x34, 3, 255, 1});
        row("no answers", "   ", {0, 0, 0, 0, 0});
    }
    // The five parameters are read, with the latest port, before the request
    // leaves, and travel with it.
    void writeParameters()
    {
        QFETCH(QByteArrayList, answers);
        QFETCH(QList<int>, paras);
        auto driver = makeDriver(QString(), true);
        companion.readAnswers = {{"RAM4509", answers[0]},
                                 {"RAM3501", answers[1]},
                                 {"RAM3505", answers[2]},
                                 {"RAM3509", answers[3]}};
        QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
        QVERIFY(writeVar(*driver, "WF0", byte(1)));
        QCOMPARE(writes.count(), 1);
        QCOMPARE(writes.at(0).at(0).value<QList<int>>(), paras);
        QCOMPARE(companion.calls, (QStringList{"read RAM4509 3 2", "read RAM3501 3 1",
                                               "read RAM3505 3 1", "read RAM3509 3 1"}));
        QCOMPARE(companion.lastDevice, static_cast<AbstractDeviceInterface*>(&port));
    }

    // An active driver has one worker in one extra thread and owns the
    // companion it loaded; without a companion (or passive) nobody is asked.
    void construction_data()
    {
        QTest::addColumn<QString>("companionPath"); // null: passive driver
        QTest::newRow("passive") << QString();
        QTest::newRow("library missing") << MissingPath;
        QTest::newRow("no CreateDriver") << QStringLiteral(NO_FACTORY_LIBRARY);
        QTest::newRow("stand-in companion") << Sdc35Path;
    }
    void construction()
    {
        QFETCH(QString, companionPath);
        const int before = settledThreadCount();
        auto driver = makeDriver(companionPath);
        const bool active = !companionPath.isNull();
        QCOMPARE(threadCount(), before + (active ? 1 : 0));
        QCOMPARE(driver->workerThread != nullptr, active);
        if (active)
            QCOMPARE(driver->fileAccessor->thread(), driver->workerThread);
        const bool loads = companionPath == Sdc35Path;
        QCOMPARE(driver->companionDriver ? driver->companionDriver->name() : QString(),
                 QString(loads ? "SDC35" : ""));
        const QPointer<QObject> loaded(loads ? driver->companionDriver->getThisObject() : nullptr);
        if (!loads) {
            QVERIFY(driver->read(&port, command("RAM1")).isEmpty());
            QVERIFY(!driver->write(&port, command("RAM1"), byte(1)));
            QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
            QVERIFY(writeVar(*driver, "WF0", byte(1)));
            QCOMPARE(writes.count(), 1);
            QCOMPARE(writes.at(0).at(0).value<QList<int>>(), (QList<int>{0, 0, 0, 0, 0}));
        }
        driver.reset();
        QVERIFY(loaded.isNull());
        QTRY_VERIFY(threadCount() <= before);
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

    // Every worker signal reaches its slot in the driver's thread. A running
    // flag raised again keeps its progress; lowered, it clears its own
    // progress value only.
    void workerSignalsReachDriver()
    {
        auto driver = makeDriver(MissingPath);
        FileAccessor* accessor = driver->fileAccessor;
        invoke(*driver, "setRF", Q_ARG(bool, true));
        invoke(*driver, "setWF", Q_ARG(bool, true));
        inWorker(accessor, [accessor] {
            emit accessor->setReadProgress(42);
            emit accessor->setWriteProgress(250);
            emit accessor->setRF(true);
            emit accessor->setRE(true);
            emit accessor->setWE(true);
            emit accessor->setErrorInstantMessage(QStringLiteral("from the worker"));
        });
        QTRY_COMPARE(driver->getLastError(), QStringLiteral("from the worker"));
        QVERIFY(driver->hasError());
        QCOMPARE(readVar(*driver, "ReadProgress0") + readVar(*driver, "WriteProgress0") +
                     readVar(*driver, "RE0") + readVar(*driver, "WE0"),
                 QByteArray("\x2a\xfa\x01\x01"));
        inWorker(accessor, [accessor] { emit accessor->setRF(false); });
        QTRY_COMPARE(readVar(*driver, "RF0"), byte(0));
        QCOMPARE(readVar(*driver, "ReadProgress0") + readVar(*driver, "WriteProgress0"),
                 QByteArray("\x00\xfa", 2));
        inWorker(accessor, [accessor] { emit accessor->setWF(false); });
        QTRY_COMPARE(readVar(*driver, "WF0"), byte(0));
        QCOMPARE(readVar(*driver, "WriteProgress0"), byte(0));
    }

    // Requests are handled one after the other, as they were emitted; the
    // parameter list of a write request crosses to the worker's thread.
    void requestsQueueInOrder()
    {
        DeviceObject device; // no medium: every request ends after asking
        MessageCentre centre;
        centre.setQuiet(true);
        RuntimeProperties::publishDevice(&device);
        RuntimeProperties::publishMessageCentre(&centre);
        auto driver = makeDriver(MissingPath);
        driver->fileAccessor->beforePosting();
        emit driver->readProgramFileProcess(1, 1, 0);
        emit driver->writeProgramFileProcess({1, 2, 3, 4, 5}, 2, 1, 1);
        emit driver->readProgramFileProcess(3, 1, 0);
        const QString missing = QStringLiteral("The system can't not detect the %1.");
        QTRY_COMPARE(centre.texts(), (QStringList{missing.arg("USB Stick"), missing.arg("SD Card"),
                                                  missing.arg("USB Stick")}));
    }

    // Take-down while a transfer sits in one of its fixed waits: the wait is
    // cut short, the requests queued behind it are dropped unseen (so they
    // are queued, not run by the caller), the companion goes too, and the
    // driver is gone in well under a second.
    void destroyWhileWorkerWaits()
    {
        const int before = settledThreadCount();
        DeviceObject device;
        RuntimeProperties::publishDevice(&device);
        auto entered = std::make_shared<QAtomicInt>(0);
        auto waited = std::make_shared<QAtomicInt>(-1);
        auto driver = makeDriver(MissingPath, true);
        FileAccessor* accessor = driver->fileAccessor;
        inWorker(accessor, [accessor, entered, waited] {
            entered->storeRelaxed(1);
            waited->storeRelaxed(accessor->pause(60000) ? 1 : 0);
        });
        QTRY_COMPARE(entered->loadRelaxed(), 1);
        accessor->beforePosting();
        for (int i = 1; i <= 3; ++i)
            emit driver->readProgramFileProcess(i, 1, 0);
        QElapsedTimer clock;
        clock.start();
        driver.reset();
        const qint64 took = clock.elapsed();
        QVERIFY2(took < 1000, qPrintable(QStringLiteral("take-down took %1 ms").arg(took)));
        QCOMPARE(waited->loadRelaxed(), 0);
        QCOMPARE(device.mountQueries(), 0);
        QCOMPARE(companion.alive, 0);
        QTRY_VERIFY(threadCount() <= before);
    }

    void createDestroyCycles()
    {
        const int before = settledThreadCount();
        DeviceObject device;
        RuntimeProperties::publishDevice(&device);
        for (int i = 0; i < 200; ++i) {
            auto driver = makeDriver(MissingPath, true);
            if (i % 2) // every other driver dies with a request in flight
                QVERIFY(writeVar(*driver, "RF0", byte(1)));
        }
        QCOMPARE(companion.alive, 0);
        QTRY_VERIFY(threadCount() <= before);
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
    QByteArray readVar(DriverDCP30& driver, const char* name)
    {
        return driver.read(&port, command(QString::fromLatin1(name)));
    }
    bool writeVar(DriverDCP30& driver, const char* name, const QByteArray& data)
    {
        return driver.write(&port, command(QString::fromLatin1(name)), data);
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
