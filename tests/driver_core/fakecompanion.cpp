// A companion driver library that only records: loaded by the driver under
// test through the "DCP30CompanionLibrary" property.
#include "tests/driver_core/fakecompanion.h"
#include "driver/driverinterface.h"

namespace
{

FakeCompanionState state;

class FakeCompanion : public DriverInterface
{
public:
    FakeCompanion() { ++state.alive; }
    ~FakeCompanion() override { --state.alive; }

    int totalSize() override { return 0; }
    bool write(AbstractDeviceInterface* device, const CommunicatorCommand& command,
               const QByteArray& data) override
    {
        state.lastDevice = device;
        state.calls << QStringLiteral("write %1 %2")
                           .arg(command.address, QString::fromLatin1(data.toHex()));
        return state.writeResult;
    }
    QByteArray read(AbstractDeviceInterface* device, const CommunicatorCommand& command) override
    {
        state.lastDevice = device;
        state.calls << QStringLiteral("read %1 %2 %3")
                           .arg(command.address)
                           .arg(command.dataType)
                           .arg(command.count);
        return state.readAnswers.value(command.address);
    }
    bool initialize(AbstractDeviceInterface*) override { return true; }
    bool validation(const QString&) override { return true; }
    DeviceSetting* getDefaultSerialDeviceSetting() override { return nullptr; }
    DriverSetting* getDefaultDriverSetting() override { return nullptr; }
    int supportedCommunicationFlags() override { return 0; }
    void setDebugMode(bool) override {}
    int getBlockAccessSize() override { return 0; }
    int getBitBlockAccessSize() override { return 0; }
    bool hasError() override { return false; }
    QString getLastError() override { return QString(); }
    QObject* getThisObject() override { return nullptr; }
};

} // namespace

extern "C" Q_DECL_EXPORT DriverInterface* CreateDriver()
{
    return new FakeCompanion;
}

extern "C" Q_DECL_EXPORT FakeCompanionState* fakeCompanionState()
{
    return &state;
}
