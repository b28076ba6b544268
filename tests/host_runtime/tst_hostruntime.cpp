// The runtime's device object and message centre, and how they are published.
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"
#include "host/runtime/runtimeproperties.h"

#include <QtTest>

#include <QTemporaryDir>
#include <QThread>

#include <functional>

namespace
{

// Runs job in count threads at once while the test's thread runs meanwhile,
// and waits for them.
bool inThreads(int count, const std::function<void(int)>& job,
               const std::function<void()>& meanwhile = {})
{
    QList<QThread*> threads;
    for (int t = 0; t < count; ++t)
        threads << QThread::create(job, t);
    for (QThread* thread : threads)
        thread->start();
    if (meanwhile)
        meanwhile();
    bool ended = true;
    for (QThread* thread : threads) {
        ended = thread->wait(10000) && ended;
        delete thread;
    }
    return ended;
}

} // namespace

class HostRuntimeTest : public QObject
{
    Q_OBJECT

private slots:
    void getMount_data()
    {
        QTest::addColumn<QString>("usb"); // "tmp" = an existing directory
        QTest::addColumn<QString>("sd");
        QTest::addColumn<int>("medium");
        QTest::addColumn<bool>("answers");
        auto row = [](const char* name, const char* usb, const char* sd, int medium, bool answers) {
            QTest::newRow(name) << QString(usb) << QString(sd) << medium << answers;
        };
        row("usb mounted", "tmp", "", 1, true);
        row("sd mounted", "", "tmp", 2, true);
        row("usb asked, only sd set", "", "tmp", 1, false);
        row("directory gone", "/nonexistent/dcp30/usb", "", 1, false);
        row("unknown medium", "tmp", "tmp", 3, false); // 0 and 3 alike
    }
    void getMount()
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

    void getMountFromManyThreads()
    {
        QTemporaryDir dir;
        DeviceObject device;
        QAtomicInt wrong;
        const bool ended = inThreads(
            4,
            [&](int) {
                for (int i = 0; i < 200; ++i) {
                    const QString mount = device.getMount(DeviceObject::UsbStick);
                    if (!mount.isEmpty() && mount != dir.path())
                        wrong.ref();
                }
            },
            [&] { // the owner changes the mount meanwhile
                for (int i = 0; i < 100; ++i)
                    device.setMountDirectory(DeviceObject::UsbStick,
                                             i % 2 ? dir.path() : QString());
            });
        QVERIFY(ended);
        QCOMPARE(wrong.loadRelaxed(), 0);
        QCOMPARE(device.mountQueries(), 4 * 200);
    }

    // Kept in order with title and flag; each thread's messages keep their
    // order among the others'.
    void messagesKeptInOrder()
    {
        MessageCentre centre;
        centre.setQuiet(true);
        centre.showMessageAsync("DCP30", "first", true);
        centre.showMessageAsync("Other", "second", false);
        QStringList shown;
        for (const MessageCentre::Message& m : centre.messages())
            shown << QStringLiteral("%1: %2 (%3)").arg(m.title, m.text).arg(m.flag);
        QCOMPARE(shown, (QStringList{"DCP30: first (1)", "Other: second (0)"}));
        centre.clear();
        QVERIFY(centre.messages().isEmpty());

        QVERIFY(inThreads(3, [&centre](int t) {
            for (int i = 0; i < 50; ++i)
                centre.showMessageAsync("T", QString::number(t * 1000 + i), true);
        }));
        QList<int> last{-1, -1, -1};
        for (const QString& text : centre.texts()) {
            const int n = text.toInt();
            QVERIFY(n > last[n / 1000]);
            last[n / 1000] = n;
        }
        QCOMPARE(last, (QList<int>{49, 1049, 2049}));
        QCOMPARE(centre.texts().size(), 150);
    }

    // Published as the object's address; null or false removes the property.
    void publishing()
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
        QCOMPARE(qApp->property("DCP30CompanionLibrary").toString(),
                 QStringLiteral("/tmp/libx.so"));
        RuntimeProperties::publishDevice(nullptr);
        RuntimeProperties::publishMessageCentre(nullptr);
        RuntimeProperties::setPanelEnvironment(false);
        RuntimeProperties::setCompanionLibrary(QString());
        for (const char* name : {"KDevice", "MessageCenter", "hvx_env", "DCP30CompanionLibrary"})
            QVERIFY2(!qApp->dynamicPropertyNames().contains(name), name);
    }
};

QTEST_GUILESS_MAIN(HostRuntimeTest)
#include "tst_hostruntime.moc"
