#ifndef HOST_DEVICEOBJECT_H
#define HOST_DEVICEOBJECT_H

#include <QMap>
#include <QObject>
#include <QString>
#include <mutex>

// The runtime's device object as the driver sees it: it knows where each
// removable medium is mounted. The owner says which directory stands for
// which medium. Callable from any thread (the driver's worker calls
// getMount directly from its own thread).
class DeviceObject : public QObject
{
    Q_OBJECT

public:
    enum Medium { UsbStick = 1, SdCard = 2 };

    explicit DeviceObject(QObject* parent = nullptr);

    // An empty directory unmounts the medium.
    void setMountDirectory(int medium, const QString& directory);
    // How many getMount calls were answered, for tests.
    int mountQueries() const;

    // Mount directory of the medium, or an empty string when none is set or
    // the directory does not exist (the medium was pulled).
    Q_INVOKABLE QString getMount(int medium);

private:
    mutable std::mutex mutex;
    QMap<int, QString> directories;
    int queries = 0;
};

#endif
