#include "host/runtime/runtimeproperties.h"

#include <QCoreApplication>
#include <QVariant>

namespace
{

void setApplicationProperty(const char* name, const QVariant& value)
{
    QCoreApplication* app = QCoreApplication::instance();
    Q_ASSERT_X(app, "RuntimeProperties", "needs an application object");
    if (app)
        app->setProperty(name, value);
}

QVariant addressOf(QObject* object)
{
    return object ? QVariant::fromValue(quintptr(object)) : QVariant();
}

} // namespace

namespace RuntimeProperties
{

void publishDevice(QObject* deviceObject)
{
    setApplicationProperty("KDevice", addressOf(deviceObject));
}

void publishMessageCentre(QObject* messageCentre)
{
    setApplicationProperty("MessageCenter", addressOf(messageCentre));
}

void setPanelEnvironment(bool present)
{
    setApplicationProperty("hvx_env", present ? QVariant(QStringLiteral("host")) : QVariant());
}

void setCompanionLibrary(const QString& path)
{
    setApplicationProperty("DCP30CompanionLibrary", path.isEmpty() ? QVariant() : QVariant(path));
}

void setLinePacing(int guardMs)
{
    setApplicationProperty("DCP30LinePacing", guardMs < 0 ? QVariant() : QVariant(guardMs));
}

} // namespace RuntimeProperties
