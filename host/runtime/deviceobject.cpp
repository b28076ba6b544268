#include "host/runtime/deviceobject.h"

#include <QDir>
#include <mutex>

DeviceObject::DeviceObject(QObject* parent) : QObject(parent) {}

void DeviceObject::setMountDirectory(int medium, const QString& directory)
{
    std::lock_guard<std::mutex> lock(mutex);
    if (directory.isEmpty())
        directories.remove(medium);
    else
        directories.insert(medium, directory);
}

int DeviceObject::mountQueries() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return queries;
}

QString DeviceObject::getMount(int medium)
{
    QString directory;
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++queries;
        directory = directories.value(medium);
    }
    if (directory.isEmpty() || !QDir(directory).exists())
        return QString();
    return directory;
}
