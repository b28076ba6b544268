// The runtime's device object.
#include "host/runtime/deviceobject.h"

#include <QtTest>

#include <QTemporaryDir>

#include <thread>
#include <vector>

class HostRuntimeTest : public QObject
{
    Q_OBJECT

private slots:
    // Asked from several threads at once (the workers') while its owner
    // changes the mounts: every answer is whole and every call counted.
    void callableFromManyThreads()
    {
        QTemporaryDir dir;
        DeviceObject device;
        QAtomicInt wrong;
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 100; ++i) {
                    const QString mount = device.getMount(DeviceObject::UsbStick);
                    if (!mount.isEmpty() && mount != dir.path())
                        wrong.ref();
                }
            });
        }
        for (int i = 0; i < 100; ++i)
            device.setMountDirectory(DeviceObject::UsbStick, i % 2 ? dir.path() : QString());
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(wrong.loadRelaxed(), 0);
        QCOMPARE(device.mountQueries(), 300);
    }
};

QTEST_GUILESS_MAIN(HostRuntimeTest)
#include "tst_hostruntime.moc"
