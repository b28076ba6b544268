#ifndef DRIVERINTERFACE_H
#define DRIVERINTERFACE_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtPlugin>

#include "driver/communicatorcommand.h"

class AbstractDeviceInterface;
class DeviceSetting;
class DriverSetting;
class QObject;

// The abstract driver the runtime calls. The order of the virtual operations
// is a contract with the runtime and the companion driver (both call through
// the same table), so never reorder, insert or remove one.
class DriverInterface
{
public:
    virtual ~DriverInterface() {}
    virtual int totalSize() = 0;
    virtual bool write(AbstractDeviceInterface* device, const CommunicatorCommand& command,
                       const QByteArray& data) = 0;
    virtual QByteArray read(AbstractDeviceInterface* device,
                            const CommunicatorCommand& command) = 0;
    virtual bool initialize(AbstractDeviceInterface* device) = 0;
    virtual bool validation(const QString& text) = 0;
    virtual QString name() { return QStringLiteral("Not Assigned"); }
    virtual QString vender() { return QStringLiteral("Not Assigned"); }
    virtual QString getVersionNumber() { return QStringLiteral("Not Assigned"); }
    // Factory operations: the caller owns the returned object.
    virtual DeviceSetting* getDefaultSerialDeviceSetting() = 0;
    virtual DriverSetting* getDefaultDriverSetting() = 0;
    virtual QString getStringBasedDefaultDriverSetting()
    {
        return QStringLiteral("RS232,9600,EVEN,7,1");
    }
    virtual int supportedCommunicationFlags() = 0;
    virtual void setDebugMode(bool on) = 0;
    virtual int getBlockAccessSize() = 0;
    virtual int getBitBlockAccessSize() = 0;
    virtual bool hasError() = 0;
    virtual QString getLastError() = 0;
    virtual QObject* getThisObject() = 0;
    virtual bool isSupportSessionCommand() { return false; }
    virtual void setSessionCommand(QList<CommunicatorCommand> commands) { Q_UNUSED(commands) }
    virtual void clearSessionCommand() {}
    virtual bool deviceSettingChanged(const DeviceSetting* setting)
    {
        Q_UNUSED(setting)
        return true;
    }
    virtual bool isConnected(AbstractDeviceInterface* device)
    {
        Q_UNUSED(device)
        return true;
    }
};

#define DriverInterface_iid "com.quorvex.drivers.DriverInterface/1.1"
Q_DECLARE_INTERFACE(DriverInterface, DriverInterface_iid)

// Signature of the exported factory of this plug-in and of the companion library.
extern "C" typedef DriverInterface* (*CreateDriverFunction)();

#endif
