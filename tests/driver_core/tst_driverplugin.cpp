// The built plug-in as the runtime meets it: loaded with QPluginLoader and
// with QLibrary, nothing of the driver linked into this test.
#include "driver/driverinterface.h"
#include "host/runtime/runtimeproperties.h"
#include "tests/driver_core/tsanoptions.h"

#include <QtTest>

#include <QDir>
#include <QJsonObject>
#include <QPluginLoader>

#include <memory>

namespace
{

int threadCount()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

class DriverPluginTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        RuntimeProperties::setPanelEnvironment(false);
        RuntimeProperties::setCompanionLibrary(QString());
    }

    // One instance per loader.
    void pluginLoaderSeesInterface()
    {
        QPluginLoader loader(QStringLiteral(DCP30_PLUGIN));
        QVERIFY2(loader.load(), qPrintable(loader.errorString()));
        QCOMPARE(loader.metaData().value("IID").toString(),
                 QStringLiteral("com.quorvex.drivers.DriverInterface/1.1"));
        QObject* instance = loader.instance();
        DriverInterface* driver = qobject_cast<DriverInterface*>(instance);
        QVERIFY(driver);
        QCOMPARE(driver->getThisObject(), instance);
        QCOMPARE(loader.instance(), instance);
        delete instance;
    }

    void createDriver_data()
    {
        QTest::addColumn<bool>("active");
        QTest::addColumn<QString>("companion");
        QTest::newRow("passive") << false << QStringLiteral(SDC35_LIBRARY);
        QTest::newRow("active, stand-in companion") << true << QStringLiteral(SDC35_LIBRARY);
        // The driver made as its own companion stays passive: one thread.
        QTest::newRow("companion is the plug-in itself") << true << QStringLiteral(DCP30_PLUGIN);
    }
    // CreateDriver hands out the interface part; the driver goes through the
    // interface's virtual destructor and takes its thread with it.
    void createDriver()
    {
        QFETCH(bool, active);
        QFETCH(QString, companion);
        RuntimeProperties::setPanelEnvironment(active);
        RuntimeProperties::setCompanionLibrary(companion);
        const int before = threadCount();
        const auto create = reinterpret_cast<CreateDriverFunction>(
            QLibrary::resolve(QStringLiteral(DCP30_PLUGIN), "CreateDriver"));
        QVERIFY(create);
        std::unique_ptr<DriverInterface> driver(create());
        QVERIFY(driver);
        QCOMPARE(qobject_cast<DriverInterface*>(driver->getThisObject()), driver.get());
        QCOMPARE(threadCount(), before + (active ? 1 : 0));
        CommunicatorCommand command;
        command.address = QStringLiteral("SegCnt0");
        QCOMPARE(driver->read(nullptr, command), QByteArray(1, '\x01'));
        driver.reset();
        QTRY_COMPARE(threadCount(), before);
    }
};

QTEST_GUILESS_MAIN(DriverPluginTest)
#include "tst_driverplugin.moc"
