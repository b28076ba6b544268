// Loads and saves a 100 MB program-like table with the CSV classes and with
// Python 3's csv module, and prints time and peak memory of each.
//
// Every measurement runs in a child process of its own (this binary with
// --load/--save, or python3), so the peak resident size it reports is that
// of the operation alone, not of the generator or of an earlier measurement.

#include "csv/kcsvloader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextStream>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <random>

namespace
{

const int kRows = 400000;
const int kRuns = 2;

const char* const kPython = R"PY(
import csv, resource, sys, time
mode, path = sys.argv[1], sys.argv[2]
def read():
    with open(path, encoding='utf-16', newline='') as f:
        return list(csv.reader(f, delimiter='\t'))
if mode == 'load':
    t = time.perf_counter()
    rows = read()
    dt = time.perf_counter() - t
else:
    rows = read()
    t = time.perf_counter()
    with open(sys.argv[3], 'w', encoding='utf-16', newline='') as f:
        csv.writer(f, delimiter='\t', lineterminator='\n').writerows(rows)
    dt = time.perf_counter() - t
peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
print('result %.4f %d %d' % (dt, peak, len(rows)))
)PY";

long peakKb()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Program-table-like rows: segment names, setpoints with one decimal, times
// "h:mm", event values, many blanks, single-digit flags, and now and then a
// tag that needs quoting (tab, quotes, line feed).
QString generatedRow(int index, std::mt19937& rng)
{
    std::uniform_int_distribution<int> percent(0, 99);
    std::uniform_int_distribution<int> value(-19999, 99999);
    std::uniform_int_distribution<int> hours(0, 99);
    std::uniform_int_distribution<int> minutes(0, 59);
    std::uniform_int_distribution<int> digit(0, 9);
    auto time = [&]() {
        return QStringLiteral("%1:%2").arg(hours(rng)).arg(minutes(rng), 2, 10, QLatin1Char('0'));
    };
    QStringList cells;
    cells << QStringLiteral("SEG%1").arg(index + 1);
    cells << QString::number(value(rng) / 10.0, 'f', 1);
    cells << time();
    for (int k = 0; k < 6; ++k)
        cells << (percent(rng) < 20 ? QString() : QString::number(value(rng)));
    for (int k = 0; k < 10; ++k)
        cells << (percent(rng) < 25 ? QString() : time());
    cells << QString::number(digit(rng)) << QString::number(digit(rng) % 2)
          << QString::number(value(rng) / 3);
    cells << QString::number(digit(rng) % 2) << QString::number(digit(rng))
          << QString::number(digit(rng) % 3);
    if (index % 997 == 0)
        cells << QStringLiteral("TAG\t%1 \"quoted\"").arg(index);
    else if (index % 1999 == 0)
        cells << QStringLiteral("TAG\n%1").arg(index);
    else
        cells << QStringLiteral("TAG%1").arg(index, 6, 10, QLatin1Char('0'));
    QString line;
    for (int c = 0; c < cells.size(); ++c) {
        line += kcsv::quoteCell(cells.at(c), QStringLiteral("\t"));
        line += c + 1 < cells.size() ? QLatin1Char('\t') : QLatin1Char('\n');
    }
    return line;
}

bool generate(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    std::mt19937 rng(20240521);
    QString text = QStringLiteral("SEG\tSP1\tTIME");
    for (int e = 1; e <= 3; ++e)
        text += QStringLiteral("\tEV%1_ON\tEV%1_OFF").arg(e);
    for (int t = 1; t <= 5; ++t)
        text += QStringLiteral("\tT%1_ON\tT%1_OFF").arg(t);
    text += QStringLiteral("\tPID1\tG.S\tG.S.TO\tP.STA\tCYCL\tP.LIN\tTAG\n");
    const char bom[2] = {char(0xFF), char(0xFE)};
    file.write(bom, 2);
    for (int row = 0; row < kRows; ++row) {
        text += generatedRow(row, rng);
        if (text.size() > (1 << 16) || row + 1 == kRows) {
            // Little-endian host: the QChar array is the UTF-16LE encoding.
            file.write(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
            text.clear();
        }
    }
    return file.error() == QFileDevice::NoError;
}

struct Result {
    double seconds = 1e9;
    long peakKb = 0;
    long rows = -1;
    bool ok = false;
};

Result run(const QString& program, const QStringList& args, const QString& configDir)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), configDir);
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, args);
    Result result;
    if (!process.waitForFinished(5 * 60 * 1000) || process.exitCode() != 0)
        return result;
    const QStringList words = QString::fromLatin1(process.readAllStandardOutput())
                                  .split(QLatin1Char('\n'))
                                  .filter(QStringLiteral("result "))
                                  .value(0)
                                  .split(QLatin1Char(' '));
    if (words.size() != 4)
        return result;
    result.seconds = words.at(1).toDouble();
    result.peakKb = words.at(2).toLong();
    result.rows = words.at(3).toLong();
    result.ok = true;
    return result;
}

// Best time of the runs; the largest peak, so a lucky run cannot flatter.
Result measure(const QString& program, const QStringList& args, const QString& configDir)
{
    Result best;
    for (int k = 0; k < kRuns; ++k) {
        const Result r = run(program, args, configDir);
        if (!r.ok)
            return r;
        best.ok = true;
        best.rows = r.rows;
        best.seconds = std::min(best.seconds, r.seconds);
        best.peakKb = std::max(best.peakKb, r.peakKb);
    }
    return best;
}

bool sameBytes(const QString& a, const QString& b)
{
    QFile fa(a);
    QFile fb(b);
    if (!fa.open(QIODevice::ReadOnly) || !fb.open(QIODevice::ReadOnly) || fa.size() != fb.size())
        return false;
    while (!fa.atEnd()) {
        if (fa.read(1 << 20) != fb.read(1 << 20))
            return false;
    }
    return true;
}

int childLoad(const QString& path)
{
    KCSVLoader loader(nullptr);
    QElapsedTimer timer;
    timer.start();
    const bool ok = loader.openFile(path);
    const QList<QStringList> rows = loader.fileContent();
    const double seconds = timer.nsecsElapsed() / 1e9;
    if (!ok)
        std::fprintf(stderr, "load failed: %s\n",
                     qPrintable(loader.errorMessageList().join(QLatin1Char('\n'))));
    std::printf("result %.4f %ld %d\n", seconds, peakKb(), int(rows.size()));
    return ok ? 0 : 1;
}

int childSave(const QString& path, const QString& out)
{
    QList<QStringList> rows;
    {
        KCSVLoader loader(nullptr);
        loader.openFile(path);
        rows = loader.fileContent();
    }
    KCSVSaver saver(nullptr);
    QElapsedTimer timer;
    timer.start();
    const bool ok = saver.saveFile(rows, out);
    const double seconds = timer.nsecsElapsed() / 1e9;
    std::printf("result %.4f %ld %d\n", seconds, peakKb(), int(rows.size()));
    return ok ? 0 : 1;
}

void figure(const char* name, double value)
{
    std::printf("figure %s %.3f\n", name, value);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("dcp30-bench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench_csv"));
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == QLatin1String("--load"))
        return childLoad(args.at(2));
    if (args.size() == 4 && args.at(1) == QLatin1String("--save"))
        return childSave(args.at(2), args.at(3));

    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;
    const QString table = dir.filePath(QStringLiteral("table.txt"));
    const QString ours = dir.filePath(QStringLiteral("saved.txt"));
    const QString theirs = dir.filePath(QStringLiteral("saved_py.txt"));
    const QString config = dir.filePath(QStringLiteral("config"));
    const QString self = QCoreApplication::applicationFilePath();
    const QString python = QStringLiteral("python3");
    const QString script = QString::fromUtf8(kPython);

    QElapsedTimer timer;
    timer.start();
    if (!generate(table)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(table));
        return 1;
    }
    const double fileMb = QFile(table).size() / 1e6;
    std::printf("generated %d rows x 26 cells, %.1f MB UTF-16LE in %.1f s\n", kRows + 1, fileMb,
                timer.nsecsElapsed() / 1e9);
    std::fflush(stdout);

    const Result load = measure(self, {QStringLiteral("--load"), table}, config);
    const Result pyLoad = measure(python, {QStringLiteral("-c"), script, "load", table}, config);
    const Result save = measure(self, {QStringLiteral("--save"), table, ours}, config);
    const Result pySave =
        measure(python, {QStringLiteral("-c"), script, "save", table, theirs}, config);
    if (!load.ok || !pyLoad.ok || !save.ok || !pySave.ok) {
        std::fprintf(stderr, "a measurement failed\n");
        return 1;
    }
    const bool identical = sameBytes(table, ours);

    std::printf("load  ours   %.3f s  peak %.1f MB  rows %ld\n", load.seconds, load.peakKb / 1024.0,
                load.rows);
    std::printf("load  python %.3f s  peak %.1f MB  rows %ld\n", pyLoad.seconds,
                pyLoad.peakKb / 1024.0, pyLoad.rows);
    std::printf("save  ours   %.3f s  (saved file %s the generated one)\n", save.seconds,
                identical ? "identical to" : "DIFFERS from");
    std::printf("save  python %.3f s\n", pySave.seconds);
    std::printf("best of %d runs each; peaks are the largest of the runs\n", kRuns);

    figure("csv_file_mb", fileMb);
    figure("csv_load_s", load.seconds);
    figure("csv_load_python_s", pyLoad.seconds);
    figure("csv_load_ratio", load.seconds / pyLoad.seconds);
    figure("csv_load_peak_mb", load.peakKb / 1024.0);
    figure("csv_load_python_peak_mb", pyLoad.peakKb / 1024.0);
    figure("csv_load_peak_ratio", double(load.peakKb) / pyLoad.peakKb);
    figure("csv_save_s", save.seconds);
    figure("csv_save_python_s", pySave.seconds);
    figure("csv_save_ratio", save.seconds / pySave.seconds);
    figure("csv_save_identical", identical ? 1 : 0);
    return identical && load.rows == pyLoad.rows ? 0 : 1;
}
