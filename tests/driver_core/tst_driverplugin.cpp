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
    void cleanup();
    void pluginLoaderSeesInterface();
    void createDriverGivesInterfacePart_data();
    void createDriverGivesInterfacePart();
};

void DriverPluginTest::cleanup()
{
    RuntimeProperties::setPanelEnvironment(false);
    RuntimeProperties::setCompanionLibrary(QString());
}

void DriverPluginTest::pluginLoaderSeesInterface()
{
    QPluginLoader loader(QStringLiteral(DCP30_PLUGIN));
    QVERIFY2(loader.load(), qPrintable(loader.errorString()));
    const QJsonObject meta = loader.metaData();
    QCOMPARE(meta.value("IID").toString(),
             QStringLiteral("com.quorvex.drivers.DriverInterface/1.1"));
    QCOMPARE(meta.value("className").toString(), QStringLiteral("DriverDCP30"));
    QObject* instance = loader.instance();
    QVERIFY(instance);
    DriverInterface* driver = qobject_cast<DriverInterface*>(instance);
    QVERIFY(driver);
    QCOMPARE(driver->name(), QStringLiteral("DCP30"));
    QCOMPARE(driver->getThisObject(), instance);
    // One instance per loader, until it dies.
    QCOMPARE(loader.instance(), instance);
    delete instance;
    QObject* second = loader.instance();
    QVERIFY(second);
    delete second;
}

void DriverPluginTest::createDriverGivesInterfacePart_data()
{
    QTest::addColumn<bool>("active");
    QTest::newRow("passive") << false;
    QTest::newRow("active, stand-in companion") << true;
}

void DriverPluginTest::createDriverGivesInterfacePart()
{
    QFETCH(bool, active);
    RuntimeProperties::setPanelEnvironment(active);
    RuntimeProperties::setCompanionLibrary(QStringLiteral(SDC35_LIBRARY));
    const int before = threadCount();
    const auto create = reinterpret_cast<CreateDriverFunction>(
        QLibrary::resolve(QStringLiteral(DCP30_PLUGIN), "CreateDriver"));
    QVERIFY(create);
    std::unique_ptr<DriverInterface> driver(create());
    QVERIFY(driver);
    QObject* object = driver->getThisObject();
    QCOMPARE(QByteArray(object->metaObject()->className()), QByteArray("DriverDCP30"));
    QCOMPARE(qobject_cast<DriverInterface*>(object), driver.get());
    QCOMPARE(driver->name(), QStringLiteral("DCP30"));
    QCOMPARE(threadCount(), before + (active ? 1 : 0));
    CommunicatorCommand command;
    command.address = QStringLiteral("SegCnt0");
    QCOMPARE(driver->read(nullptr, command), QByteArray(1, '\x01'));
    driver.reset(); // through the interface's virtual destructor
    QTRY_COMPARE(threadCount(), before);
}

QTEST_GUILESS_MAIN(DriverPluginTest)
#include "tst_driverplugin.moc"
