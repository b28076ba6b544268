#ifndef COMMON_DURABLEFILE_H
#define COMMON_DURABLEFILE_H

#include <QString>

class QSaveFile;

// Replacing a file on a removable medium so that a full medium, a pulled
// stick or a killed process leaves either the previous file or the complete
// new one, never a cut or empty one. Writers use QSaveFile (a temporary file
// beside the target, flushed to the medium and renamed over it) and end
// with commit() here.
namespace DurableFile
{

// Commits file (fsync of the data, rename over the target) and then syncs
// the directory, so the rename itself reaches the medium. False when any
// step failed; the target is then untouched and the temporary file gone.
bool commit(QSaveFile& file);

// fsync of a directory. False when it cannot be opened or synced.
bool syncDirectory(const QString& directory);

// True when path names nothing, or a regular file (through symlinks). A FIFO,
// a device or a directory would block or fail a plain open; why then says
// what it is.
bool isRegularOrAbsent(const QString& path, QString* why = nullptr);

} // namespace DurableFile

#endif
