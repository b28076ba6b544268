#pragma once

// Helpers shared by the CSV suites: an isolated settings store, file bytes in
// the encodings a panel meets, work run in a worker thread, and seeded random
// tables.

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>

#include <random>

namespace csvtest
{

// Points QSettings at dir (organisation and application names of the suite,
// XDG config path and explicit paths), so no test touches the real home.
inline void isolateSettings(const QTemporaryDir& dir, const QString& application)
{
    const QString config = dir.filePath(QStringLiteral("config"));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(config));
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
    for (QChar c : text) {
        bytes.append(char(c.unicode() & 0xFF));
        bytes.append(char(c.unicode() >> 8));
    }
    return bytes;
}

inline QByteArray utf16be(const QString& text)
{
    QByteArray bytes("\xFE\xFF", 2);
    for (QChar c : text) {
        bytes.append(char(c.unicode() >> 8));
        bytes.append(char(c.unicode() & 0xFF));
    }
    return bytes;
}

inline QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return QString();
    return path;
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

// Characters a cell may hold: separators, quotes, line feeds, spaces, digits,
// and non-Latin text, including characters whose UTF-16 code units carry the
// bytes 0x0D and 0x0A and a surrogate pair.
inline QString cellAlphabet()
{
    QString chars = QStringLiteral("ab0 9\t,\"\n;.-");
    chars += QChar(0x010D); // c with caron: low byte 0x0D
    chars += QChar(0x0D0A); // Malayalam: both bytes line-end-like
    chars += QChar(0x0A0D);
    chars += QChar(0x65E5); // CJK
    chars += QChar(0x0416); // Cyrillic
    return chars;
}

inline QString randomCell(std::mt19937& rng, const QString& alphabet, int maxLength)
{
    std::uniform_int_distribution<int> length(0, maxLength);
    std::uniform_int_distribution<int> pick(0, alphabet.size());
    QString cell;
    const int n = length(rng);
    for (int k = 0; k < n; ++k) {
        const int at = pick(rng);
        if (at == alphabet.size())
            cell += QString::fromUcs4(U"\U0001F600"); // surrogate pair
        else
            cell += alphabet.at(at);
    }
    return cell;
}

} // namespace csvtest
