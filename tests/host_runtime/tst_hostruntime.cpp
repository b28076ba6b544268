// The runtime's device object and message centre.
#include "host/runtime/deviceobject.h"
#include "host/runtime/messagecentre.h"

#include <QtTest>

#include <QTemporaryDir>

#include <thread>
#include <vector>

class HostRuntimeTest : public QObject
{
    Q_OBJECT

private slots:
    // Both are called from several threads at once while their owner changes
    // the mounts: every answer is whole, every call counted, and each
    // thread's messages keep their order (with title and flag) among the
    // others'.
    void callableFromManyThreads()
    {
        QTemporaryDir dir;
        DeviceObject device;
        MessageCentre centre;
        centre.setQuiet(true);
        centre.showMessageAsync("Other", "first", false);
        QAtomicInt wrong;
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < 100; ++i) {
                    const QString mount = device.getMount(DeviceObject::UsbStick);
                    if (!mount.isEmpty() && mount != dir.path())
                        wrong.ref();
                    centre.showMessageAsync("T", QString::number(t * 1000 + i), true);
                }
            });
        }
        for (int i = 0; i < 100; ++i)
            device.setMountDirectory(DeviceObject::UsbStick, i % 2 ? dir.path() : QString());
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(wrong.loadRelaxed(), 0);
        QCOMPARE(device.mountQueries(), 300);
        const QList<MessageCentre::Message> shown = centre.messages();
        QCOMPARE(shown.size(), 301);
        QVERIFY(shown[0].title == "Other" && shown[0].text == "first" && !shown[0].flag);
        QList<int> last{-1, -1, -1};
        for (int m = 1; m < shown.size(); ++m) {
            const int n = shown[m].text.toInt();
            QVERIFY(shown[m].title == "T" && shown[m].flag && n > last[n / 1000]);
            last[n / 1000] = n;
        }
        QCOMPARE(last, (QList<int>{99, 1099, 2099}));
    }
};

QTEST_GUILESS_MAIN(HostRuntimeTest)
#include "tst_hostruntime.moc"
