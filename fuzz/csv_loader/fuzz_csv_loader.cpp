// Feeds arbitrary bytes to KCSVLoader as a file, with the tab and the comma
// configured, outside any widget application (so no dialog can be shown).
//
// Beyond "no crash, no hang, bounded memory" it checks the save-then-load
// round trip: a table that loaded cleanly, whose rows all have one width and
// whose cells hold no carriage return, must come back unchanged from
// KCSVSaver and a fresh loader, unless the saved header line fails the header
// check (the loader then rightly reads it differently).

#include "csv/kcsvloader.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace
{

using Table = QList<QStringList>;

struct Environment {
    int argc = 1;
    char name[16] = "fuzz_csv_loader";
    char* argv[2] = {name, nullptr};
    QCoreApplication app{argc, argv};
    // On tmpfs where there is one: the settings store syncs its file on
    // every load, and a disk sync costs more than the load itself.
    QTemporaryDir dir{QFileInfo(QStringLiteral("/dev/shm")).isWritable()
                          ? QStringLiteral("/dev/shm/fuzz_csv_loader-XXXXXX")
                          : QString()};
    QString input;
    QString saved;

    Environment()
    {
        if (!dir.isValid())
            std::abort();
        // The loader remembers the last directory in the settings store:
        // keep that out of the real home.
        QCoreApplication::setOrganizationName(QStringLiteral("dcp30-fuzz"));
        QCoreApplication::setApplicationName(QStringLiteral("fuzz_csv_loader"));
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                           dir.filePath(QStringLiteral("config")));
        input = dir.filePath(QStringLiteral("input.txt"));
        saved = dir.filePath(QStringLiteral("saved.txt"));
    }
};

bool roundTripApplies(const Table& rows)
{
    if (rows.size() < 2)
        return false;
    const int width = rows.first().size();
    for (const QStringList& row : rows) {
        if (row.size() != width)
            return false;
        // A single empty cell saves as a blank line, which loading skips.
        if (width == 1 && row.first().isEmpty())
            return false;
        for (const QString& cell : row) {
            if (cell.contains(QLatin1Char('\r')))
                return false;
        }
    }
    // A mark followed by U+0000 reads as the UTF-32LE mark.
    return !rows.first().first().startsWith(QChar(0));
}

void checkRoundTrip(const Environment& env, const Table& rows, const QString& delimiter)
{
    KCSVSaver saver(nullptr);
    saver.setDelimiter(delimiter);
    if (!saver.saveFile(rows, env.saved))
        std::abort();
    KCSVLoader again(nullptr);
    again.setDelimiter(delimiter);
    const bool ok = again.openFile(env.saved);
    const QStringList errors = again.errorMessageList();
    if (again.delimiterDetected())
        return; // the saved header line did not pass the header check
    if (!ok) {
        if (errors.value(0).startsWith(QStringLiteral("File format error.")))
            return;
        std::fprintf(stderr, "round trip failed to load: %s\n", qPrintable(errors.join('|')));
        std::abort();
    }
    if (again.fileContent() != rows) {
        std::fprintf(stderr, "round trip changed the table\n");
        std::abort();
    }
}

void loadWith(const Environment& env, const QString& delimiter)
{
    KCSVLoader loader(nullptr);
    loader.setDelimiter(delimiter);
    const bool ok = loader.openFile(env.input);
    const bool clean = ok && loader.warningMessageList().isEmpty() && !loader.delimiterDetected();
    const Table rows = loader.fileContent();
    if (clean && roundTripApplies(rows))
        checkRoundTrip(env, rows, delimiter);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Environment env;
    {
        QFile file(env.input);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            std::abort();
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    loadWith(env, QStringLiteral("\t"));
    loadWith(env, QStringLiteral(","));
    return 0;
}
