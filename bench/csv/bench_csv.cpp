// Loads and saves a 100 MB program-like table with the CSV classes and with
// two peers, Python 3's csv module and pandas (all cells as text), and prints
// CPU time (user + system), page faults, wall time and peak memory of each.
//
// Every measurement runs in a child process of its own (this binary with
// --load/--save, or python3), so the peak resident size it reports is that
// of the operation alone, not of the generator or of an earlier measurement.
// The runs of ours and of the peers take turns, so that a slow spell of the
// machine hits all of them; the figures are medians. Wall time on a virtual
// machine mostly measures the machine (the first touch of a fresh page is
// dear), so the ratios are of CPU time, with the wall ratios beside them.
// A load also runs a second time in the same process: the warm figure is
// the parse without the first-touch page faults.

#include "csv/kcsvloader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextStream>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

namespace
{

const int kRows = 400000;
const int kRuns = 5;

// Each mode prints "result WALL CPU FAULTS PEAK_KB ROWS WARM_WALL WARM_CPU"
// (warm figures 0 where there is no second load).
const char* const kPython = R"PY(
import csv, resource, sys, time
mode, path = sys.argv[1], sys.argv[2]
def usage():
    r = resource.getrusage(resource.RUSAGE_SELF)
    return time.perf_counter(), r.ru_utime + r.ru_stime, r.ru_minflt + r.ru_majflt
def read():
    with open(path, encoding='utf-16', newline='') as f:
        return list(csv.reader(f, delimiter='\t'))
def read_pandas():
    import pandas
    frame = pandas.read_csv(path, encoding='utf-16', sep='\t', dtype=str, keep_default_na=False)
    return len(frame) + 1
def measure(work):
    w0, c0, f0 = usage()
    result = work()
    w1, c1, f1 = usage()
    return result, w1 - w0, c1 - c0, f1 - f0
if mode == 'save':
    rows = read()
    def save():
        with open(sys.argv[3], 'w', encoding='utf-16', newline='') as f:
            csv.writer(f, delimiter='\t', lineterminator='\n').writerows(rows)
    _, wall, cpu, faults = measure(save)
    count = len(rows)
    warm = (0, 0)
else:
    if mode == 'pandas':
        import pandas
        work, size = read_pandas, lambda result: result
    else:
        work, size = read, len
    result, wall, cpu, faults = measure(work)
    count = size(result)
    del result
    _, warm_wall, warm_cpu, _ = measure(work)
    warm = (warm_wall, warm_cpu)
peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
print('result %.4f %.4f %d %d %d %.4f %.4f' % (wall, cpu, faults, peak, count, warm[0], warm[1]))
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

// What one child process measured.
struct Result {
    bool ok = false;
    double wall = 0;
    double cpu = 0; // user + system
    double faults = 0;
    double peakKb = 0;
    long rows = -1;
    double warmWall = 0;
    double warmCpu = 0;
};

// CPU time and page faults of this process so far.
struct Usage {
    double cpu = 0;
    double faults = 0;
    static Usage now()
    {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
        return {seconds(usage.ru_utime) + seconds(usage.ru_stime),
                double(usage.ru_minflt + usage.ru_majflt)};
    }
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
    if (words.size() != 8)
        return result;
    result.wall = words.at(1).toDouble();
    result.cpu = words.at(2).toDouble();
    result.faults = words.at(3).toDouble();
    result.peakKb = words.at(4).toDouble();
    result.rows = words.at(5).toLong();
    result.warmWall = words.at(6).toDouble();
    result.warmCpu = words.at(7).toDouble();
    result.ok = true;
    return result;
}

// One contestant: how to start it, and what its runs measured.
struct Contestant {
    const char* name;
    QString program;
    QStringList args;
    std::vector<Result> runs;

    double median(double Result::*field) const
    {
        std::vector<double> values;
        for (const Result& r : runs)
            values.push_back(r.*field);
        std::sort(values.begin(), values.end());
        const size_t n = values.size();
        return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    }
    // The largest peak of the runs, so that a lucky run cannot flatter.
    double peakKb() const
    {
        double peak = 0;
        for (const Result& r : runs)
            peak = std::max(peak, r.peakKb);
        return peak;
    }
    void print() const
    {
        std::printf("%-12s cpu %.3f s  wall %.3f s  faults %.0f  peak %.1f MB  rows %ld", name,
                    median(&Result::cpu), median(&Result::wall), median(&Result::faults),
                    peakKb() / 1024.0, runs.front().rows);
        if (median(&Result::warmWall) > 0)
            std::printf("  warm cpu %.3f s wall %.3f s", median(&Result::warmCpu),
                        median(&Result::warmWall));
        std::printf("\n");
    }
};

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

void printResult(double wall, double cpu, double faults, long rows, double warmWall, double warmCpu)
{
    std::printf("result %.4f %.4f %.0f %ld %ld %.4f %.4f\n", wall, cpu, faults, peakKb(), rows,
                warmWall, warmCpu);
}

// Loads the file, then again once the first table is gone.
int childLoad(const QString& path)
{
    double wall[2] = {};
    double cpu[2] = {};
    double faults = 0;
    long rows = 0;
    bool ok = true;
    for (int pass = 0; pass < 2; ++pass) {
        KCSVLoader loader(nullptr);
        const Usage before = Usage::now();
        QElapsedTimer timer;
        timer.start();
        ok = loader.openFile(path) && ok;
        const QList<QStringList> table = loader.fileContent();
        wall[pass] = timer.nsecsElapsed() / 1e9;
        const Usage after = Usage::now();
        cpu[pass] = after.cpu - before.cpu;
        if (pass == 0) {
            faults = after.faults - before.faults;
            rows = table.size();
        }
        if (!ok)
            std::fprintf(stderr, "load failed: %s\n",
                         qPrintable(loader.errorMessageList().join(QLatin1Char('\n'))));
    }
    printResult(wall[0], cpu[0], faults, rows, wall[1], cpu[1]);
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
    const Usage before = Usage::now();
    QElapsedTimer timer;
    timer.start();
    const bool ok = saver.saveFile(rows, out);
    const double wall = timer.nsecsElapsed() / 1e9;
    const Usage after = Usage::now();
    printResult(wall, after.cpu - before.cpu, after.faults - before.faults, rows.size(), 0, 0);
    return ok ? 0 : 1;
}

void figure(const char* name, double value)
{
    std::printf("figure %s %.3f\n", name, value);
}

// Debian's interpreter carries python3-pandas; another one first on the
// PATH (pyenv, say) may not.
QString pythonProgram()
{
    const QString debian = QStringLiteral("/usr/bin/python3");
    return QFileInfo(debian).isExecutable() ? debian : QStringLiteral("python3");
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
    const QString python = pythonProgram();
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

    const QString c = QStringLiteral("-c");
    Contestant load{"load ours", self, {QStringLiteral("--load"), table}, {}};
    Contestant pyLoad{"load csv", python, {c, script, QStringLiteral("load"), table}, {}};
    Contestant pandasLoad{"load pandas", python, {c, script, QStringLiteral("pandas"), table}, {}};
    Contestant save{"save ours", self, {QStringLiteral("--save"), table, ours}, {}};
    Contestant pySave{"save csv", python, {c, script, QStringLiteral("save"), table, theirs}, {}};
    Contestant* const all[] = {&load, &pyLoad, &pandasLoad, &save, &pySave};
    for (int k = 0; k < kRuns; ++k) {
        for (Contestant* contestant : all) {
            const Result r = run(contestant->program, contestant->args, config);
            if (!r.ok) {
                std::fprintf(stderr, "%s failed (%s)\n", contestant->name,
                             qPrintable(contestant->program));
                return 1;
            }
            contestant->runs.push_back(r);
        }
    }
    const bool identical = sameBytes(table, ours);

    std::printf("medians of %d interleaved runs; peaks are the largest of the runs\n", kRuns);
    for (const Contestant* contestant : all)
        contestant->print();
    std::printf("saved file %s the generated one\n", identical ? "identical to" : "DIFFERS from");

    const double cpu = load.median(&Result::cpu);
    figure("csv_file_mb", fileMb);
    figure("csv_load_cpu_s", cpu);
    figure("csv_load_s", load.median(&Result::wall));
    figure("csv_load_faults", load.median(&Result::faults));
    figure("csv_load_warm_cpu_s", load.median(&Result::warmCpu));
    figure("csv_load_warm_s", load.median(&Result::warmWall));
    figure("csv_load_python_cpu_s", pyLoad.median(&Result::cpu));
    figure("csv_load_python_s", pyLoad.median(&Result::wall));
    figure("csv_load_pandas_cpu_s", pandasLoad.median(&Result::cpu));
    figure("csv_load_pandas_s", pandasLoad.median(&Result::wall));
    figure("csv_load_ratio", cpu / pyLoad.median(&Result::cpu));
    figure("csv_load_wall_ratio", load.median(&Result::wall) / pyLoad.median(&Result::wall));
    figure("csv_load_pandas_ratio", cpu / pandasLoad.median(&Result::cpu));
    figure("csv_load_pandas_wall_ratio",
           load.median(&Result::wall) / pandasLoad.median(&Result::wall));
    figure("csv_load_warm_ratio", load.median(&Result::warmCpu) / pyLoad.median(&Result::warmCpu));
    figure("csv_load_peak_mb", load.peakKb() / 1024.0);
    figure("csv_load_python_peak_mb", pyLoad.peakKb() / 1024.0);
    figure("csv_load_pandas_peak_mb", pandasLoad.peakKb() / 1024.0);
    figure("csv_load_peak_ratio", load.peakKb() / pyLoad.peakKb());
    figure("csv_save_cpu_s", save.median(&Result::cpu));
    figure("csv_save_s", save.median(&Result::wall));
    figure("csv_save_python_cpu_s", pySave.median(&Result::cpu));
    figure("csv_save_python_s", pySave.median(&Result::wall));
    figure("csv_save_ratio", save.median(&Result::cpu) / pySave.median(&Result::cpu));
    figure("csv_save_wall_ratio", save.median(&Result::wall) / pySave.median(&Result::wall));
    figure("csv_save_identical", identical ? 1 : 0);
    const long rows = load.runs.front().rows;
    return identical && rows == pyLoad.runs.front().rows && rows == pandasLoad.runs.front().rows
               ? 0
               : 1;
}
