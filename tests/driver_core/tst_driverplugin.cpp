// The built plug-in as the runtime meets it: a loaded library, nothing of the
// driver linked into this test. (Every run of the host tool also loads it
// with QPluginLoader and checks its interface identifier.)
#include "driver/driverinterface.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"

#include <QtTest>

#include <QDir>

#include <memory>

class DriverPluginTest : public QObject
{
    Q_OBJECT

    static int threadCount()
    {
        return QDir(QStringLiteral("/proc/self/task"))
            .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
            .size();
    }

private slots:
    // CreateDriver hands out the interface part, and the driver goes through
    // the interface's virtual destructor, taking its thread with it. Made as
    // its own companion, the driver's second instance stays passive: one
    // thread, not an endless chain of drivers.
    void createDriverAsItsOwnCompanion()
    {
        RuntimeProperties::setPanelEnvironment(true);
        RuntimeProperties::setCompanionLibrary(QStringLiteral(DCP30_PLUGIN));
        const int before = threadCount();
        const auto create = reinterpret_cast<CreateDriverFunction>(
            QLibrary::resolve(QStringLiteral(DCP30_PLUGIN), "CreateDriver"));
        QVERIFY(create);
        std::unique_ptr<DriverInterface> driver(create());
        QVERIFY(driver);
        QCOMPARE(qobject_cast<DriverInterface*>(driver->getThisObject()), driver.get());
        QCOMPARE(threadCount(), before + 1);
        CommunicatorCommand command;
        command.address = QStringLiteral("SegCnt0");
        QCOMPARE(driver->read(nullptr, command), QByteArray(1, '\x01'));
        driver.reset();
        QTRY_COMPARE(threadCount(), before);
    }
};

QTEST_GUILESS_MAIN(DriverPluginTest)
#include "tst_driverplugin.moc"
