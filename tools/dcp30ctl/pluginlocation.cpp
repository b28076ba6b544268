#include "pluginlocation.h"

#include "driver/driverinterface.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QPluginLoader>

namespace PluginLocation
{

QString besideExecutable(const QString& fileName)
{
    const QString bin = QCoreApplication::applicationDirPath();
    const QString installed = QDir::cleanPath(bin + QStringLiteral("/../lib/dcp30/") + fileName);
    const QString built = QDir::cleanPath(bin + QStringLiteral("/../lib/") + fileName);
    if (QFileInfo::exists(installed) || !QFileInfo::exists(built))
        return installed;
    return built;
}

bool identify(const QString& path, Identity& identity, QString& error)
{
    identity = Identity();
    identity.path = path;
    if (!QFileInfo::exists(path)) {
        error = QStringLiteral("plug-in %1 not found").arg(path);
        return false;
    }
    QPluginLoader loader(path);
    const QJsonObject meta = loader.metaData();
    if (meta.isEmpty()) {
        error = QStringLiteral("%1 is not a Qt plug-in: %2").arg(path, loader.errorString());
        return false;
    }
    identity.interfaceId = meta.value(QStringLiteral("IID")).toString();
    if (identity.interfaceId != QLatin1String(DriverInterface_iid)) {
        error = QStringLiteral("%1 implements \"%2\", not \"%3\"")
                    .arg(path, identity.interfaceId, QLatin1String(DriverInterface_iid));
        return false;
    }
    auto* driver = qobject_cast<DriverInterface*>(loader.instance());
    if (!driver) {
        error =
            QStringLiteral("%1 cannot be loaded as a driver: %2").arg(path, loader.errorString());
        return false;
    }
    identity.name = driver->name();
    identity.vendor = driver->vender();
    identity.version = driver->getVersionNumber();
    return true;
}

} // namespace PluginLocation
