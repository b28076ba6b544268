// The runtime's device object and message centre, and how they are published.
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/runtime/runtimeproperties.h"

#include <QtTest>

#include <QTemporaryDir>
#include <QThread>

class HostRuntimeTest : public QObject
{
    Q_OBJECT

private slots:
    void getMount_data();
    void getMount();
    void getMountFromManyThreads();
    void messagesAreKeptInOrder();
    void messagesFromManyThreads();
    void publishedAddressesResolve();
    void nullUnpublishes();
};

void HostRuntimeTest::getMount_data()
{
    QTest::addColumn<QString>("usb"); // "tmp" = an existing directory
    QTest::addColumn<QString>("sd");
    QTest::addColumn<int>("medium");
    QTest::addColumn<bool>("answers");
    QTest::newRow("usb mounted") << "tmp"
                                 << "" << 1 << true;
    QTest::newRow("sd mounted") << ""
                                << "tmp" << 2 << true;
    QTest::newRow("usb asked, only sd set") << ""
                                            << "tmp" << 1 << false;
    QTest::newRow("directory gone") << "/nonexistent/dcp30/usb"
                                    << "" << 1 << false;
    QTest::newRow("unknown medium") << "tmp"
                                    << "tmp" << 3 << false;
    QTest::newRow("medium 0") << "tmp"
                              << "tmp" << 0 << false;
}

void HostRuntimeTest::getMount()
{
    QFETCH(QString, usb);
    QFETCH(QString, sd);
    QFETCH(int, medium);
    QFETCH(bool, answers);
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    DeviceObject device;
    device.setMountDirectory(DeviceObject::UsbStick, usb == "tmp" ? dir.path() : usb);
    device.setMountDirectory(DeviceObject::SdCard, sd == "tmp" ? dir.path() : sd);
    QString result;
    // The driver's way in: by name, in the caller's thread.
    QVERIFY(QMetaObject::invokeMethod(&device, "getMount", Qt::DirectConnection,
                                      Q_RETURN_ARG(QString, result), Q_ARG(int, medium)));
    QCOMPARE(result, answers ? dir.path() : QString());
    QCOMPARE(device.mountQueries(), 1);
}

void HostRuntimeTest::getMountFromManyThreads()
{
    QTemporaryDir dir;
    DeviceObject device;
    const int perThread = 200;
    QList<QThread*> threads;
    QAtomicInt wrong;
    for (int t = 0; t < 4; ++t)
        threads << QThread::create([&] {
            for (int i = 0; i < perThread; ++i) {
                const QString mount = device.getMount(DeviceObject::UsbStick);
                if (!mount.isEmpty() && mount != dir.path())
                    wrong.ref();
            }
        });
    for (QThread* thread : threads)
        thread->start();
    for (int i = 0; i < 100; ++i) // the owner changes the mount meanwhile
        device.setMountDirectory(DeviceObject::UsbStick, i % 2 ? dir.path() : QString());
    for (QThread* thread : threads) {
        QVERIFY(thread->wait(10000));
        delete thread;
    }
    QCOMPARE(wrong.loadRelaxed(), 0);
    QCOMPARE(device.mountQueries(), 4 * perThread);
}

void HostRuntimeTest::messagesAreKeptInOrder()
{
    MessageCentre centre;
    centre.setQuiet(true);
    centre.showMessageAsync("DCP30", "first", true);
    centre.showMessageAsync("Other", "second", false);
    const QList<MessageCentre::Message> messages = centre.messages();
    QCOMPARE(messages.size(), 2);
    QCOMPARE(messages.at(0).title, QStringLiteral("DCP30"));
    QCOMPARE(messages.at(0).text, QStringLiteral("first"));
    QCOMPARE(messages.at(0).flag, true);
    QCOMPARE(messages.at(1).flag, false);
    QCOMPARE(centre.texts(), (QStringList{"first", "second"}));
    centre.clear();
    QVERIFY(centre.messages().isEmpty());
}

void HostRuntimeTest::messagesFromManyThreads()
{
    MessageCentre centre;
    centre.setQuiet(true);
    QList<QThread*> threads;
    for (int t = 0; t < 3; ++t)
        threads << QThread::create([&centre, t] {
            for (int i = 0; i < 50; ++i)
                centre.showMessageAsync("T", QString::number(t * 1000 + i), true);
        });
    for (QThread* thread : threads)
        thread->start();
    for (QThread* thread : threads) {
        QVERIFY(thread->wait(10000));
        delete thread;
    }
    QStringList texts = centre.texts();
    QCOMPARE(texts.size(), 150);
    // Each thread's messages keep their order.
    for (int t = 0; t < 3; ++t) {
        int last = -1;
        for (const QString& text : texts) {
            const int n = text.toInt();
            if (n / 1000 != t)
                continue;
            QVERIFY(n > last);
            last = n;
        }
        QCOMPARE(last, t * 1000 + 49);
    }
}

void HostRuntimeTest::publishedAddressesResolve()
{
    DeviceObject device;
    MessageCentre centre;
    RuntimeProperties::publishDevice(&device);
    RuntimeProperties::publishMessageCentre(&centre);
    RuntimeProperties::setPanelEnvironment(true);
    RuntimeProperties::setCompanionLibrary("/tmp/libx.so");
    bool ok = false;
    QCOMPARE(qApp->property("KDevice").toULongLong(&ok), qulonglong(quintptr(&device)));
    QVERIFY(ok);
    QCOMPARE(qApp->property("MessageCenter").toULongLong(&ok), qulonglong(quintptr(&centre)));
    QVERIFY(ok);
    QVERIFY(qApp->property("hvx_env").isValid());
    QCOMPARE(qApp->property("DCP30CompanionLibrary").toString(), QStringLiteral("/tmp/libx.so"));
    RuntimeProperties::publishDevice(nullptr);
    RuntimeProperties::publishMessageCentre(nullptr);
    RuntimeProperties::setPanelEnvironment(false);
    RuntimeProperties::setCompanionLibrary(QString());
}

void HostRuntimeTest::nullUnpublishes()
{
    DeviceObject device;
    RuntimeProperties::publishDevice(&device);
    RuntimeProperties::setPanelEnvironment(true);
    RuntimeProperties::publishDevice(nullptr);
    RuntimeProperties::setPanelEnvironment(false);
    QVERIFY(!qApp->property("KDevice").isValid());
    QVERIFY(!qApp->property("hvx_env").isValid());
    QVERIFY(!qApp->dynamicPropertyNames().contains("KDevice"));
}

QTEST_GUILESS_MAIN(HostRuntimeTest)
#include "tst_hostruntime.moc"
