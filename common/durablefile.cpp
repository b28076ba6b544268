#include "common/durablefile.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DurableFile
{

bool commit(QSaveFile& file)
{
    const QString directory = QFileInfo(file.fileName()).absolutePath();
    if (!file.commit())
        return false;
    return syncDirectory(directory);
}

bool syncDirectory(const QString& directory)
{
    const int fd =
        ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    // Some file systems (vfat on older kernels) refuse fsync on a directory
    // with EINVAL; their renames are as durable as they get.
    const bool synced = ::fsync(fd) == 0 || errno == EINVAL;
    ::close(fd);
    return synced;
}

bool isRegularOrAbsent(const QString& path, QString* why)
{
    struct stat st {
    };
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return true; // absent (or unreachable): the open that follows reports it
    if (S_ISREG(st.st_mode))
        return true;
    if (why) {
        *why = S_ISDIR(st.st_mode)                          ? QStringLiteral("a directory")
               : S_ISFIFO(st.st_mode)                       ? QStringLiteral("a pipe (FIFO)")
               : S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode) ? QStringLiteral("a device")
               : S_ISSOCK(st.st_mode)                       ? QStringLiteral("a socket")
                                                            : QStringLiteral("not a regular file");
    }
    return false;
}

} // namespace DurableFile
