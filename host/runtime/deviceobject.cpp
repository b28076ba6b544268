#include "host/runtime/deviceobject.h"

#include <QDir>
#include <QMutexLocker>

DeviceObject::DeviceObject(QObject* parent) : QObject(parent) {}

void DeviceObject::setMountDirectory(int medium, const QString& directory)
{
    QMutexLocker lock(&mutex);
    if (directory.isEmpty())
        directories.remove(medium);
    else
        directories.insert(medium, directory);
}

int DeviceObject::mountQueries() const
{
    QMutexLocker lock(&mutex);
    return queries;
}

QString DeviceObject::getMount(int medium)
{
    QString directory;
    {
        QMutexLocker lock(&mutex);
        ++queries;
        directory = directories.value(medium);
    }
    if (directory.isEmpty() || !QDir(directory).exists())
        return QString();
    return directory;
}
