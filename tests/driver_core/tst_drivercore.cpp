// The driver object: identity, internal variables, start rules, forwarding
// to the companion, error hold-down, worker thread and take-down.
#include "common/devicesetting.h"
#include "common/driversetting.h"
#include "driver/dcp30.h"
#include "driver/fileaccessor.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/fakecompanion.h"
#include "tests/driver_core/threadrunner.h"
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/scriptedport.h"

#include <QtTest>

#include <QDir>
#include <QTemporaryDir>
#include <QThread>
#include <mutex>

#include <memory>

namespace
{

const QString FakeCompanionPath = QStringLiteral(FAKE_COMPANION_LIBRARY);

FakeCompanionState* fake()
{
    static const auto function = reinterpret_cast<FakeCompanionStateFunction>(
        QLibrary::resolve(FakeCompanionPath, "fakeCompanionState"));
    return function ? function() : nullptr;
}

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

// A device object that records who asks for which medium, and can be slow.
class RecordingDevice : public QObject
{
    Q_OBJECT

public:
    QString mount;
    int delayMs = 0;

    Q_INVOKABLE QString getMount(int medium)
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++inside;
            maxInside = qMax(maxInside, inside);
            media << medium;
            threads << QThread::currentThread();
        }
        QThread::msleep(delayMs);
        std::lock_guard<std::mutex> lock(mutex);
        --inside;
        return mount;
    }
    QList<int> askedMedia() const { return locked(media); }
    QList<QThread*> askingThreads() const { return locked(threads); }
    int mostAtOnce() const { return locked(maxInside); }

private:
    template <typename T> T locked(const T& value) const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return value;
    }
    mutable std::mutex mutex;
    QList<int> media;
    QList<QThread*> threads;
    int inside = 0;
    int maxInside = 0;
};

} // namespace

class DriverCoreTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QVERIFY2(fake(), "fake companion library not found");
        fake()->reset();
    }

    void cleanup()
    {
        RuntimeProperties::setPanelEnvironment(false);
        RuntimeProperties::setCompanionLibrary(QString());
        RuntimeProperties::publishDevice(nullptr);
        RuntimeProperties::publishMessageCentre(nullptr);
    }

    void identityAndFixedAnswers()
    {
        auto driver = makeDriver(QString());
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
        QCOMPARE(i->getThisObject(), static_cast<QObject*>(driver.get()));
        QVERIFY(i->getLastError().isEmpty());
    }

    void defaultSettingsAreNewObjects()
    {
        auto driver = makeDriver(QString());
        std::unique_ptr<DeviceSetting> device1(driver->getDefaultSerialDeviceSetting());
        std::unique_ptr<DeviceSetting> device2(driver->getDefaultSerialDeviceSetting());
        QVERIFY(device1 && device2 && device1 != device2);
        QCOMPARE(device1->string, QStringLiteral("COM1"));
        QCOMPARE((QList<int>{int(device1->type), device1->baudrate, device1->databits,
                             device1->stopbits, device1->parity}),
                 (QList<int>{64, 9600, 8, 0, 2}));
        std::unique_ptr<DriverSetting> driver1(driver->getDefaultDriverSetting());
        std::unique_ptr<DriverSetting> driver2(driver->getDefaultDriverSetting());
        QVERIFY(driver1 && driver2 && driver1 != driver2);
        QCOMPARE((QList<int>{driver1->timeout, driver1->retry, driver1->stationid, driver1->delay}),
                 (QList<int>{500, 3, 1, 0}));
    }

    void metaObjectOrder()
    {
        const QMetaObject& mo = DriverDCP30::staticMetaObject;
        QCOMPARE(QByteArray(mo.className()), QByteArray("DriverDCP30"));
        const QList<QByteArray> expected =
            QByteArray("readProgramFileProcess(int,int,int) "
                       "writeProgramFileProcess(QList<int>,int,int,int) delayClearError() "
                       "setErrorInstantMessage(QString) setRF(bool) setWF(bool) setWE(bool) "
                       "setRE(bool) setReadProgress(quint8) setWriteProgress(quint8)")
                .split(' ');
        QCOMPARE(mo.methodCount() - mo.methodOffset(), expected.size());
        for (int i = 0; i < expected.size(); ++i) {
            const QMetaMethod method = mo.method(mo.methodOffset() + i);
            // moc records quint8 as uchar; the look-up by the documented
            // signature, as the runtime makes it, still finds the method.
            QCOMPARE(mo.indexOfMethod(expected.at(i).constData()), mo.methodOffset() + i);
            QCOMPARE(method.methodType(), i < 2 ? QMetaMethod::Signal : QMetaMethod::Slot);
            if (i >= 2)
                QCOMPARE(method.access(), QMetaMethod::Private);
        }
        QCOMPARE(mo.method(mo.methodOffset()).parameterNames(),
                 (QList<QByteArray>{"progID", "segmentCnt", "storageType"}));
        QCOMPARE(mo.method(mo.methodOffset() + 1).parameterNames(),
                 (QList<QByteArray>{"paras", "progID", "segmentCnt", "storageType"}));
    }

    void metacastAnswersInterfacePart()
    {
        auto driver = makeDriver(QString());
        void* interfacePart = static_cast<DriverInterface*>(driver.get());
        QVERIFY(interfacePart !=
                static_cast<void*>(driver.get())); // second base: not the object's start
        QCOMPARE(driver->qt_metacast("DriverInterface"), interfacePart);
        QCOMPARE(driver->qt_metacast("com.quorvex.drivers.DriverInterface/1.1"), interfacePart);
        QCOMPARE(driver->qt_metacast("DriverDCP30"), static_cast<void*>(driver.get()));
        QCOMPARE(driver->qt_metacast("QObject"),
                 static_cast<void*>(static_cast<QObject*>(driver.get())));
        QCOMPARE(driver->qt_metacast("FileAccessor"), nullptr);
        QCOMPARE(qobject_cast<DriverInterface*>(static_cast<QObject*>(driver.get())),
                 static_cast<DriverInterface*>(driver.get()));
    }

    void internalVariables_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QByteArray>("data"); // null: only read
        QTest::addColumn<int>("expected");
        auto row = [](const char* address, const QByteArray& data, int expected) {
            const QString name = QStringLiteral("%1 %2").arg(address).arg(
                data.isNull() ? QStringLiteral("initial") : QString::fromLatin1(data.toHex()));
            QTest::newRow(qPrintable(name)) << QString(address) << data << expected;
        };
        row("SegCnt0", QByteArray(), 1);
        row("ProgramID0", QByteArray(), 1);
        for (const char* zero :
             {"StorageType0", "RF0", "WF0", "WE0", "RE0", "ReadProgress0", "WriteProgress0"})
            row(zero, QByteArray(), 0);
        row("SegCnt0", byte(30), 30);
        row("SegCnt0", byte(31), 30);
        row("SegCnt0", byte(0), 1);
        row("SegCnt0", byte(255), 30);
        row("SegCnt0", QByteArray(""), 1);
        row("SegCnt0", QByteArray("\x05\x01", 2), 5); // first byte only
        row("ProgramID0", byte(19), 19);
        row("ProgramID0", byte(20), 19);
        row("ProgramID0", byte(0), 1);
        row("StorageType0", byte(0), 0);
        row("StorageType0", byte(5), 1);
        row("StorageType0", byte(128), 1);
    }
    void internalVariables()
    {
        QFETCH(QString, address);
        QFETCH(QByteArray, data);
        QFETCH(int, expected);
        auto driver = makeDriver(QString());
        if (!data.isNull())
            QVERIFY(driver->write(&port, command(address), data));
        QCOMPARE(driver->read(&port, command(address)), byte(expected));
    }

    void errorFlags_data()
    {
        QTest::addColumn<QString>("flag");
        QTest::newRow("WE0") << "WE0";
        QTest::newRow("RE0") << "RE0";
    }
    // Writing 1 or 3 keeps a raised flag, 0, 2 or nothing clears it; the other
    // flag stays down.
    void errorFlags()
    {
        QFETCH(QString, flag);
        const QByteArray slot = "set" + flag.left(2).toLatin1();
        const QString other = flag == "WE0" ? "RE0" : "WE0";
        const QList<QPair<QByteArray, int>> writes{
            {byte(1), 1}, {byte(3), 1}, {byte(0), 0}, {byte(2), 0}, {QByteArray(""), 0}};
        for (const auto& w : writes) {
            auto driver = makeDriver(QString());
            invoke(*driver, slot.constData(), Q_ARG(bool, true));
            QCOMPARE(driver->read(&port, command(flag)), byte(1));
            QVERIFY(driver->write(&port, command(flag), w.first));
            QCOMPARE(driver->read(&port, command(flag)), byte(w.second));
            QCOMPARE(driver->read(&port, command(other)), byte(0));
        }
    }

    void startRules_data()
    {
        QTest::addColumn<QString>("flag");
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("running"); // flag already raised, or empty
        QTest::addColumn<bool>("starts");
        for (const char* flag : {"RF0", "WF0"}) {
            const QString f = QString::fromLatin1(flag);
            QTest::newRow(qPrintable(f + " 1")) << f << 1 << "" << true;
            QTest::newRow(qPrintable(f + " 2")) << f << 2 << "" << true;
            QTest::newRow(qPrintable(f + " 255")) << f << 255 << "" << true;
            QTest::newRow(qPrintable(f + " 0")) << f << 0 << "" << false;
            QTest::newRow(qPrintable(f + " while reading")) << f << 1 << "RF" << false;
            QTest::newRow(qPrintable(f + " while writing")) << f << 1 << "WF" << false;
        }
    }
    void startRules()
    {
        QFETCH(QString, flag);
        QFETCH(int, value);
        QFETCH(QString, running);
        QFETCH(bool, starts);
        auto driver = makeDriver(QString()); // passive: nobody lowers the flags
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
        const int total = reads.count() + writes.count();
        QCOMPARE(total, starts ? 1 : (running.isEmpty() ? 1 : 0));
    }

    void startCarriesCurrentValues()
    {
        auto driver = makeDriver(QString());
        QSignalSpy reads(driver.get(), &DriverDCP30::readProgramFileProcess);
        QVERIFY(writeVar(*driver, "ProgramID0", byte(7)));
        QVERIFY(writeVar(*driver, "SegCnt0", byte(12)));
        QVERIFY(writeVar(*driver, "StorageType0", byte(9)));
        QVERIFY(writeVar(*driver, "RF0", byte(1)));
        QCOMPARE(reads.count(), 1);
        QCOMPARE(reads.at(0), (QList<QVariant>{7, 12, 1}));
        // Values keep their last state for the next transfer.
        QVERIFY(writeVar(*driver, "ProgramID0", byte(3)));
        invoke(*driver, "setRF", Q_ARG(bool, false));
        QVERIFY(writeVar(*driver, "RF0", byte(1)));
        QCOMPARE(reads.count(), 2);
        QCOMPARE(reads.at(1), (QList<QVariant>{3, 12, 1}));
    }

    void busyGating_data()
    {
        QTest::addColumn<QByteArray>("runningSlot");
        QTest::newRow("read running") << QByteArray("setRF");
        QTest::newRow("write running") << QByteArray("setWF");
    }
    void busyGating()
    {
        QFETCH(QByteArray, runningSlot);
        auto driver = makeDriver(FakeCompanionPath);
        fake()->readAnswers.insert("RAM1", QByteArray("\x2a\x00", 2));
        invoke(*driver, runningSlot.constData(), Q_ARG(bool, true));
        QVERIFY(driver->read(&port, command("RAM1")).isEmpty());
        QVERIFY(!driver->write(&port, command("RAM1"), byte(1)));
        QVERIFY(!driver->write(&port, command("ReadProgress0"), byte(1)));
        QVERIFY(fake()->calls.isEmpty());
        // The panel's own variables stay served.
        QVERIFY(writeVar(*driver, "SegCnt0", byte(4)));
        QCOMPARE(readVar(*driver, "SegCnt0"), byte(4));
        invoke(*driver, runningSlot.constData(), Q_ARG(bool, false));
        QCOMPARE(driver->read(&port, command("RAM1")), QByteArray("\x2a\x00", 2));
        QVERIFY(driver->write(&port, command("RAM1"), byte(1)));
        QCOMPARE(fake()->calls.size(), 2);
    }

    void forwarding_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("writeResult");
        QTest::newRow("register") << "RAM100" << true;
        QTest::newRow("register, refused") << "RAM100" << false;
        QTest::newRow("ReadProgress0 is not written here") << "ReadProgress0" << true;
        QTest::newRow("WriteProgress0 is not written here") << "WriteProgress0" << false;
        QTest::newRow("letter case differs") << "segcnt0" << true;
        QTest::newRow("other number") << "RF1" << true;
    }
    void forwarding()
    {
        QFETCH(QString, address);
        QFETCH(bool, writeResult);
        auto driver = makeDriver(FakeCompanionPath);
        fake()->writeResult = writeResult;
        fake()->readAnswers.insert(address, QByteArray("\x01\x02\x03", 3));
        QCOMPARE(driver->write(&port, command(address, CommunicatorCommand::WordKind, 2),
                               QByteArray("\x09\x08", 2)),
                 writeResult);
        QCOMPARE(fake()->lastDevice, static_cast<AbstractDeviceInterface*>(&port));
        ScriptedPort otherPort;
        const QByteArray answer =
            driver->read(&otherPort, command(address, CommunicatorCommand::WordKind, 2));
        if (address.endsWith(QLatin1String("Progress0"))) {
            QCOMPARE(answer, byte(0)); // reads of the progress values are the driver's own
        } else {
            QCOMPARE(answer, QByteArray("\x01\x02\x03", 3));
            QCOMPARE(fake()->lastDevice, static_cast<AbstractDeviceInterface*>(&otherPort));
        }
        QStringList expected{QStringLiteral("write %1 0908").arg(address)};
        if (!address.endsWith(QLatin1String("Progress0")))
            expected << QStringLiteral("read %1 2 2").arg(address);
        QCOMPARE(fake()->calls, expected);
    }

    void writeParameters_data()
    {
        QTest::addColumn<QByteArray>("limits");
        QTest::addColumn<QByteArray>("ev1");
        QTest::addColumn<QByteArray>("ev2");
        QTest::addColumn<QByteArray>("ev3");
        QTest::addColumn<QList<int>>("paras");
        QTest::newRow("full answers")
            << QByteArray::fromHex("38ffffff5a050000") << QByteArray::fromHex("01000000")
            << QByteArray::fromHex("02000000") << QByteArray::fromHex("ffffffff")
            << QList<int>{-200, 1370, 1, 2, -1};
        QTest::newRow("short answers")
            << QByteArray::fromHex("1027000034") << QByteArray::fromHex("0300")
            << QByteArray::fromHex("ff") << QByteArray::fromHex("010000000500")
            << QList<int>{10000, 0x34, 3, 255, 1};
        QTest::newRow("no answers") << QByteArray() << QByteArray() << QByteArray() << QByteArray()
                                    << QList<int>{0, 0, 0, 0, 0};
    }
    void writeParameters()
    {
        QFETCH(QByteArray, limits);
        QFETCH(QByteArray, ev1);
        QFETCH(QByteArray, ev2);
        QFETCH(QByteArray, ev3);
        QFETCH(QList<int>, paras);
        auto driver = makeDriver(FakeCompanionPath);
        fake()->readAnswers = {
            {"RAM4509", limits}, {"RAM3501", ev1}, {"RAM3505", ev2}, {"RAM3509", ev3}};
        QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
        QVERIFY(writeVar(*driver, "ProgramID0", byte(4)));
        QVERIFY(writeVar(*driver, "WF0", byte(1)));
        QCOMPARE(writes.count(), 1);
        QCOMPARE(writes.at(0).at(0).value<QList<int>>(), paras);
        QCOMPARE(writes.at(0).mid(1), (QList<QVariant>{4, 1, 0}));
        QCOMPARE(fake()->calls, (QStringList{"read RAM4509 3 2", "read RAM3501 3 1",
                                             "read RAM3505 3 1", "read RAM3509 3 1"}));
        QCOMPARE(fake()->lastDevice, static_cast<AbstractDeviceInterface*>(&port));
    }

    void noCompanion_data()
    {
        QTest::addColumn<QString>("companionPath"); // null: passive driver
        QTest::newRow("passive") << QString();
        QTest::newRow("library missing") << QStringLiteral("/nonexistent/dcp30/libsdc35.so");
        QTest::newRow("no CreateDriver") << QStringLiteral(NO_FACTORY_LIBRARY);
    }
    void noCompanion()
    {
        QFETCH(QString, companionPath);
        const int before = settledThreadCount();
        auto driver = makeDriver(companionPath);
        const bool active = !companionPath.isNull();
        QCOMPARE(thread(*driver) != nullptr, active);
        QCOMPARE(worker(*driver) != nullptr, active);
        QCOMPARE(threadCount(), before + (active ? 1 : 0));
        QVERIFY(driver->read(&port, command("RAM1")).isEmpty());
        QVERIFY(!driver->write(&port, command("RAM1"), byte(1)));
        QCOMPARE(driver->getWriteParameters(), (QList<int>{0, 0, 0, 0, 0}));
        QSignalSpy writes(driver.get(), &DriverDCP30::writeProgramFileProcess);
        QVERIFY(writeVar(*driver, "WF0", byte(1)));
        QCOMPARE(writes.count(), 1);
        QCOMPARE(writes.at(0).at(0).value<QList<int>>(), (QList<int>{0, 0, 0, 0, 0}));
    }

    // An error is reported for 100 reads, counted afresh from each new error;
    // writes do not count, and delayClearError ends it at once.
    void holdDown()
    {
        auto driver = makeDriver(QString());
        invoke(*driver, "setErrorInstantMessage", Q_ARG(QString, QStringLiteral("first")));
        for (int i = 0; i < 60; ++i)
            driver->read(&port, command("RAM1"));
        invoke(*driver, "delayClearError");
        QVERIFY(!driver->hasError());
        invoke(*driver, "setErrorInstantMessage", Q_ARG(QString, QStringLiteral("line down")));
        QVERIFY(driver->hasError());
        for (int i = 0; i < 10; ++i)
            driver->write(&port, command("SegCnt0"), byte(1));
        for (int i = 0; i < 99; ++i)
            driver->read(&port, command(i % 2 ? "SegCnt0" : "RAM1"));
        QVERIFY(driver->hasError());
        driver->read(&port, command("RAM1"));
        QVERIFY(!driver->hasError());
        QCOMPARE(driver->getLastError(), QStringLiteral("line down"));
        for (int i = 0; i < 200; ++i)
            driver->read(&port, command("RAM1"));
        QVERIFY(!driver->hasError());
    }

    // A running flag raised again keeps the progress; lowered, it clears its
    // own progress value only.
    void runningFlagsClearProgress()
    {
        for (const QStringList& names : {QStringList{"RF0", "ReadProgress0", "WriteProgress0"},
                                         QStringList{"WF0", "WriteProgress0", "ReadProgress0"}}) {
            const QString &flag = names[0], &progress = names[1];
            const QByteArray flagSlot = "set" + flag.left(2).toLatin1();
            const QByteArray progressSlot = "set" + progress.chopped(1).toLatin1();
            auto driver = makeDriver(QString());
            invoke(*driver, "setReadProgress", Q_ARG(quint8, 17));
            invoke(*driver, "setWriteProgress", Q_ARG(quint8, 17));
            invoke(*driver, flagSlot.constData(), Q_ARG(bool, true));
            invoke(*driver, progressSlot.constData(), Q_ARG(quint8, 66));
            invoke(*driver, flagSlot.constData(), Q_ARG(bool, true));
            QCOMPARE(driver->read(&port, command(progress)), byte(66));
            invoke(*driver, flagSlot.constData(), Q_ARG(bool, false));
            QCOMPARE(driver->read(&port, command(flag)), byte(0));
            QCOMPARE(driver->read(&port, command(progress)), byte(0));
            QCOMPARE(driver->read(&port, command(names[2])), byte(17));
        }
    }

    void activeDriverStartsOneThread()
    {
        const int before = settledThreadCount();
        auto driver = makeDriver(FakeCompanionPath);
        QVERIFY(thread(*driver));
        QTRY_VERIFY(thread(*driver)->isRunning());
        QCOMPARE(worker(*driver)->thread(), thread(*driver));
        QCOMPARE(driver->thread(), QThread::currentThread());
        QCOMPARE(threadCount(), before + 1);
        QCOMPARE(fake()->alive, 1);
        driver.reset();
        QCOMPARE(fake()->alive, 0);
        QTRY_VERIFY(threadCount() <= before);
    }

    void parametersCrossToWorker()
    {
        QTemporaryDir mount;
        RecordingDevice device;
        device.mount = mount.path();
        RuntimeProperties::publishDevice(&device);
        auto driver = makeDriver(FakeCompanionPath);
        fake()->readAnswers = {{"RAM4509", QByteArray::fromHex("9cffffffe8030000")},
                               {"RAM3501", QByteArray::fromHex("07000000")},
                               {"RAM3505", QByteArray::fromHex("00000080")},
                               {"RAM3509", QByteArray::fromHex("ffffff7f")}};
        QVERIFY(writeVar(*driver, "StorageType0", byte(1)));
        QVERIFY(writeVar(*driver, "WF0", byte(1)));
        // The worker has the request once it asks for the medium; the parameters
        // are stored right after, before anything waits.
        QTRY_VERIFY(!device.askedMedia().isEmpty());
        stopWorkerThread(*driver);
        // Asked to test the medium, then again for the program file's name.
        QVERIFY(!device.askedMedia().isEmpty());
        for (int medium : device.askedMedia())
            QCOMPARE(medium, 2);
        for (QThread* asking : device.askingThreads())
            QCOMPARE(asking, thread(*driver));
        QCOMPARE(parametersOf(worker(*driver)), (QList<int>{-100, 1000, 7, INT_MIN, INT_MAX}));
    }

    void workerSignalsReachDriver()
    {
        auto driver = makeDriver(FakeCompanionPath);
        FileAccessor* accessor = worker(*driver);
        invoke(*driver, "setRF", Q_ARG(bool, true));
        invoke(*driver, "setWF", Q_ARG(bool, true));
        ThreadRunner inWorker(thread(*driver));
        inWorker.post([accessor] {
            emit accessor->setReadProgress(42);
            emit accessor->setWriteProgress(250);
            emit accessor->setRE(true);
            emit accessor->setWE(true);
            emit accessor->setErrorInstantMessage(QStringLiteral("from the worker"));
        });
        QTRY_COMPARE(readVar(*driver, "ReadProgress0"), byte(42));
        QTRY_COMPARE(readVar(*driver, "WriteProgress0"), byte(250));
        QTRY_COMPARE(readVar(*driver, "RE0"), byte(1));
        QTRY_COMPARE(readVar(*driver, "WE0"), byte(1));
        QTRY_COMPARE(driver->getLastError(), QStringLiteral("from the worker"));
        QVERIFY(driver->hasError());
        inWorker.post([accessor] {
            emit accessor->setRF(false);
            emit accessor->setWF(false);
        });
        QTRY_COMPARE(readVar(*driver, "RF0"), byte(0));
        QTRY_COMPARE(readVar(*driver, "WF0"), byte(0));
        QCOMPARE(readVar(*driver, "ReadProgress0"), byte(0));
        QCOMPARE(readVar(*driver, "WriteProgress0"), byte(0));
        driver.reset(); // the runner goes once its thread has ended
    }

    void requestsQueueInOrder()
    {
        RecordingDevice device; // no medium: every request ends after asking
        device.delayMs = 30;
        RuntimeProperties::publishDevice(&device);
        auto driver = makeDriver(FakeCompanionPath);
        worker(*driver)->beforePosting();
        emit driver->readProgramFileProcess(1, 1, 0);
        emit driver->writeProgramFileProcess({1, 2, 3, 4, 5}, 2, 1, 1);
        emit driver->readProgramFileProcess(3, 1, 5);
        QTRY_COMPARE(device.askedMedia(), (QList<int>{1, 2, 6}));
        QCOMPARE(device.mostAtOnce(), 1);
        for (QThread* asking : device.askingThreads())
            QCOMPARE(asking, thread(*driver));
    }

    void destroyWhileWorkerWaits()
    {
        const int before = settledThreadCount();
        auto driver = makeDriver(FakeCompanionPath);
        FileAccessor* accessor = worker(*driver);
        QAtomicInt entered;
        auto waited = std::make_shared<QAtomicInt>(-1);
        // Stands in for a transfer sitting in one of its fixed waits.
        auto inWorker = std::make_unique<ThreadRunner>(thread(*driver));
        inWorker->post([accessor, &entered, waited] {
            entered.storeRelaxed(1);
            waited->storeRelaxed(accessor->pause(60000) ? 1 : 0);
        });
        QTRY_COMPARE(entered.loadRelaxed(), 1);
        QElapsedTimer clock;
        clock.start();
        driver.reset();
        const qint64 took = clock.elapsed();
        QVERIFY2(took < 1000, qPrintable(QStringLiteral("take-down took %1 ms").arg(took)));
        inWorker.reset();
        QCOMPARE(waited->loadRelaxed(), 0); // the wait was cut short, not completed
        QCOMPARE(fake()->alive, 0);
        QTRY_VERIFY(threadCount() <= before);
    }

    void destroyDropsQueuedRequests()
    {
        RecordingDevice device;
        device.delayMs = 100;
        RuntimeProperties::publishDevice(&device);
        auto driver = makeDriver(FakeCompanionPath);
        worker(*driver)->beforePosting();
        for (int i = 0; i < 5; ++i)
            emit driver->readProgramFileProcess(i + 1, 1, 0);
        QTRY_COMPARE(device.askedMedia().size(), 1);
        driver.reset();
        // The request in hand ends; the queued ones are dropped unseen.
        QCOMPARE(device.askedMedia().size(), 1);
    }

    void createDestroyCycles()
    {
        const int before = settledThreadCount();
        RecordingDevice device;
        RuntimeProperties::publishDevice(&device);
        for (int i = 0; i < 200; ++i) {
            auto driver = makeDriver(FakeCompanionPath);
            if (i % 2) // every other driver dies with a request in flight
                QVERIFY(writeVar(*driver, "RF0", byte(1)));
        }
        QCOMPARE(fake()->alive, 0);
        QTRY_VERIFY(threadCount() <= before);
    }

    void companionPointingAtItselfEndsPassive()
    {
        const int before = settledThreadCount();
        RuntimeProperties::setPanelEnvironment(true);
        RuntimeProperties::setCompanionLibrary(QStringLiteral(DCP30_PLUGIN));
        const auto create = reinterpret_cast<CreateDriverFunction>(
            QLibrary::resolve(QStringLiteral(DCP30_PLUGIN), "CreateDriver"));
        QVERIFY(create);
        std::unique_ptr<DriverInterface> driver(create());
        // One worker thread: the driver made as companion stayed passive.
        QCOMPARE(threadCount(), before + 1);
        QVERIFY(driver->read(&port, command("RAM1")).isEmpty());
        driver.reset();
        QTRY_VERIFY(threadCount() <= before);
    }

private:
    // Active unless companionPath is null; an empty path means the default.
    std::unique_ptr<DriverDCP30> makeDriver(const QString& companionPath)
    {
        RuntimeProperties::setPanelEnvironment(!companionPath.isNull());
        RuntimeProperties::setCompanionLibrary(companionPath);
        return std::make_unique<DriverDCP30>();
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
    static FileAccessor* worker(DriverDCP30& driver) { return driver.fileAccessor; }
    static QThread* thread(DriverDCP30& driver) { return driver.workerThread; }
    static void stopWorkerThread(DriverDCP30& driver)
    {
        driver.fileAccessor->requestAbort();
        driver.workerThread->quit();
        QVERIFY(driver.workerThread->wait(5000));
    }
    static QList<int> parametersOf(FileAccessor* accessor)
    {
        return {accessor->spLowLimit, accessor->spHighLimit, accessor->ev1Type, accessor->ev2Type,
                accessor->ev3Type};
    }

    ScriptedPort port;
};

QTEST_GUILESS_MAIN(DriverCoreTest)
#include "tst_drivercore.moc"
