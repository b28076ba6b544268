#pragma once

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

namespace csvtest
{

// The CSV classes remember a directory in the default settings store; keep it
// inside dir.
inline void isolateSettings(const QTemporaryDir& dir, const QString& application)
{
    QCoreApplication::setOrganizationName(QStringLiteral("dcp30-tests"));
    QCoreApplication::setApplicationName(application);
    for (QSettings::Format format : {QSettings::NativeFormat, QSettings::IniFormat}) {
        QSettings::setPath(format, QSettings::UserScope, dir.filePath(QStringLiteral("config")));
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

// A new file in dir holding bytes.
inline QString writeFile(const QTemporaryDir& dir, const QByteArray& bytes)
{
    static int files = 0;
    QFile file(dir.filePath(QStringLiteral("file%1.txt").arg(++files)));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName()
                                                                                : QString();
}

inline QString textFile(const QTemporaryDir& dir, const QString& text)
{
    return writeFile(dir, utf16le(text));
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

template <class Work> void runInThread(Work work)
{
    QThread* thread = QThread::create(work);
    thread->start();
    thread->wait();
    delete thread;
}

} // namespace csvtest
