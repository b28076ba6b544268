#pragma once

// Helpers shared by the CSV suites: an isolated settings store, file bytes as
// a panel writes them, and work run in a worker thread.

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>

namespace csvtest
{

// Points QSettings at dir under the suite's own names, so no test touches the
// real home.
inline void isolateSettings(const QTemporaryDir& dir, const QString& application)
{
    const QString config = dir.filePath(QStringLiteral("config"));
    QCoreApplication::setOrganizationName(QStringLiteral("dcp30-tests"));
    QCoreApplication::setApplicationName(application);
    for (QSettings::Format format : {QSettings::NativeFormat, QSettings::IniFormat}) {
        QSettings::setPath(format, QSettings::UserScope, config);
        QSettings::setPath(format, QSettings::SystemScope, dir.filePath(QStringLiteral("system")));
    }
    QSettings().clear();
}

inline QVariant defaultDir()
{
    return QSettings().value(QStringLiteral("default_dir"));
}

inline QByteArray utf16le(const QString& text, bool bom = true)
{
    QByteArray bytes = bom ? QByteArray("\xFF\xFE", 2) : QByteArray();
    for (QChar c : text)
        bytes.append(char(c.unicode() & 0xFF)).append(char(c.unicode() >> 8));
    return bytes;
}

inline QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    QFile file(dir.filePath(name));
    const bool written = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    return written ? file.fileName() : QString();
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Runs work in a fresh thread, as the program-file worker does, and waits.
template <class Work> void runInThread(Work work)
{
    QThread* thread = QThread::create(work);
    thread->start();
    thread->wait();
    delete thread;
}

} // namespace csvtest
