// The runtime's device object and message centre.
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"

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
    // Callable from any thread while its owner changes the mounts.
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

    // Kept with title and flag; each thread's messages keep their order
    // among the others'.
    void messagesKeptInOrder()
    {
        MessageCentre centre;
        centre.setQuiet(true);
        centre.showMessageAsync("Other", "first", false);
        QVERIFY(inThreads(3, [&centre](int t) {
            for (int i = 0; i < 50; ++i)
                centre.showMessageAsync("T", QString::number(t * 1000 + i), true);
        }));
        const QList<MessageCentre::Message> shown = centre.messages();
        QCOMPARE(shown.size(), 151);
        QVERIFY(shown[0].title == "Other" && shown[0].text == "first" && !shown[0].flag);
        QList<int> last{-1, -1, -1};
        for (int m = 1; m < shown.size(); ++m) {
            const int n = shown[m].text.toInt();
            QVERIFY(shown[m].title == "T" && shown[m].flag && n > last[n / 1000]);
            last[n / 1000] = n;
        }
        QCOMPARE(last, (QList<int>{49, 1049, 2049}));
    }
};

QTEST_GUILESS_MAIN(HostRuntimeTest)
#include "tst_hostruntime.moc"
