// Soak: program transfers through dcp30ctl and the plug-in while the
// simulator garbles, drops, delays, cuts and ignores a share of the frames
// at random (5 % of requests, then 20 %), waits shortened to 10 %.
//
// Reads (program 3) and writes (two sources in turn, into program 7)
// alternate. Each transfer must either end with exit 0 and a result equal
// to its source (a read's file; a write's program, read back with the
// faults switched off), or fail with its error flag raised and a log.
// After every failure the same transfer is repeated with the faults off
// and must succeed: a controller left locked by the failure would not.
//
// Run it on an otherwise quiet machine: the waits are short.
// Figures: soak_transfers (transfers under faults), soak_failed (of those,
// failed as they may), soak_silent_corruption (ended "well" with a wrong
// result, or failed without flag and log: must be 0), soak_lockouts (a
// fault-free repeat that failed: must be 0).
// SOAK_TRANSFERS in the environment sets the count (default 200).
#include "sim/programstore.h"
#include "tests/e2e_support/e2eprocesses.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cstdio>

using namespace E2e;

namespace
{

constexpr int Segments = 5;
constexpr int WaitPercent = 10;
// The fault-free repeats judge the controller's state, not the pace: a
// longer wait keeps a busy machine from passing for a lost reply.
constexpr int CleanWaitPercent = 50;
constexpr int ReadProgram = 3;
constexpr int WriteProgram = 7;

struct Tally {
    int transfers = 0;
    int failed = 0;
    int silent = 0;
    int lockouts = 0;
};

// One rule per kind of line fault, together firing on about `rate` of the
// requests. Late replies come after the (shortened) wait, into the next
// exchange.
QStringList faultRules(double rate, quint32 seed)
{
    const QStringList kinds{"drop", "deaf", "garble", "truncate", "noise", "late=60"};
    QStringList args;
    for (int k = 0; k < kinds.size(); ++k)
        args << "--fault"
             << QStringLiteral("%1:ANY@random=%2,seed=%3")
                    .arg(kinds[k])
                    .arg(rate / kinds.size(), 0, 'f', 4)
                    .arg(seed + quint32(k));
    return args;
}

// Failed as a transfer may: with its error flag and log, or (a write)
// refused by dcp30ctl before the driver touched the controller.
bool failedProperly(const ToolRun& run, const char* flag)
{
    const bool flagged = run.err.contains(QStringLiteral("the driver raised %1").arg(flag)) &&
                         run.err.contains(QLatin1String("error log "));
    const bool refused = run.err.contains(QLatin1String("; nothing was written"));
    return run.finished && run.exitCode == 1 && (flagged || refused);
}

class Soak
{
public:
    Soak(Simulator& sim, const QString& usb) : sim(sim), usb(usb) {}

    // Reads program 3 under faults; judged, then repeated fault-free after
    // a failure.
    void read(Tally& tally)
    {
        const QString file = usb + QStringLiteral("/PROG_%1.txt").arg(ReadProgram);
        const QByteArray expected =
            expectedProgramFile(samples, ReadProgram, segmentRange(Segments));
        QFile::remove(file);
        const ToolRun run = runTool(args("read", ReadProgram), WaitPercent);
        ++tally.transfers;
        if (run.ok(0)) {
            if (readFile(file) != expected) {
                ++tally.silent;
                report("read ended well with a wrong file", run);
            }
            return;
        }
        ++tally.failed;
        if (!failedProperly(run, "RE0")) {
            ++tally.silent;
            report("read failed without flag and log", run);
        }
        withoutFaults([&] {
            QFile::remove(file);
            const ToolRun again = runTool(args("read", ReadProgram), CleanWaitPercent);
            if (!again.ok(0) || readFile(file) != expected) {
                ++tally.lockouts;
                report("fault-free read after a failure failed", again);
            }
        });
    }

    // Writes one of two sources into program 7 under faults; the program
    // is then read back fault-free and compared.
    void write(Tally& tally, int round)
    {
        const QList<int> rows = segmentRange(Segments);
        // Sources differ, so a write that did nothing cannot pass for one
        // that worked.
        const QByteArray source = round % 2 == 0 ? expectedProgramFile(samples, 3, rows)
                                                 : expectedProgramFile(samples, 1, rows);
        writeFile(usb + QStringLiteral("/PROG_%1.txt").arg(WriteProgram), source);
        const ToolRun run = runTool(args("write", WriteProgram), WaitPercent);
        ++tally.transfers;
        if (!run.ok(0)) {
            ++tally.failed;
            if (!failedProperly(run, "WE0")) {
                ++tally.silent;
                report("write failed without flag and log", run);
            }
        }
        withoutFaults([&] {
            if (!run.ok(0)) {
                const ToolRun again = runTool(args("write", WriteProgram), CleanWaitPercent);
                if (!again.ok(0)) {
                    ++tally.lockouts;
                    report("fault-free write after a failure failed", again);
                    return;
                }
            }
            QTemporaryDir back;
            const ToolRun check =
                runTool(args("read", WriteProgram, back.path()), CleanWaitPercent);
            const QByteArray held =
                readFile(back.filePath(QStringLiteral("PROG_%1.txt").arg(WriteProgram)));
            const QByteArray wanted = source;
            if (!check.ok(0) || held.size() != wanted.size() ||
                held.mid(held.indexOf('\n')) != wanted.mid(wanted.indexOf('\n'))) {
                ++(run.ok(0) ? tally.silent : tally.lockouts);
                report("program read back differs from the source written", check);
            }
        });
    }

private:
    QStringList args(const char* verb, int program, const QString& dir = QString()) const
    {
        return transferArgs(verb, sim.device(), program, Segments, dir.isEmpty() ? usb : dir)
               << "--retries"
               << "2";
    }
    template <class Work> void withoutFaults(Work work)
    {
        if (!sim.control("faults off"))
            std::fprintf(stderr, "soak: the simulator did not take \"faults off\"\n");
        work();
        if (!sim.control("faults on"))
            std::fprintf(stderr, "soak: the simulator did not take \"faults on\"\n");
    }
    static void report(const char* what, const ToolRun& run)
    {
        std::fprintf(stderr, "soak: %s\n%s\n", what, qPrintable(run.describe()));
    }

    Simulator& sim;
    const QString usb;
    const ProgramStore samples = ProgramStore::samples();
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("DCP_BUILD_DIR"))
        qputenv("DCP_BUILD_DIR", DCP_BUILD_DIR);
    bool ok = false;
    int total = qEnvironmentVariableIntValue("SOAK_TRANSFERS", &ok);
    if (!ok || total < 2)
        total = 200;

    Tally tally;
    for (const double rate : {0.05, 0.20}) {
        QTemporaryDir usb;
        Simulator sim(QStringList{"--baud", "0", "--open-timeout", "0"} +
                      faultRules(rate, quint32(rate * 1000)));
        if (!sim.started()) {
            std::fprintf(stderr, "soak: the simulator did not start\n");
            return 1;
        }
        Soak soak(sim, usb.path());
        Tally part;
        for (int i = 0; i < total / 2; ++i) {
            if (i % 2 == 0)
                soak.read(part);
            else
                soak.write(part, i / 2);
        }
        std::printf("rate %.0f %%: %d transfers, %d failed with flag and log, %d silent, %d "
                    "lock-outs\n",
                    rate * 100, part.transfers, part.failed, part.silent, part.lockouts);
        tally.transfers += part.transfers;
        tally.failed += part.failed;
        tally.silent += part.silent;
        tally.lockouts += part.lockouts;
    }
    std::printf("figure soak_transfers %d\n", tally.transfers);
    std::printf("figure soak_failed %d\n", tally.failed);
    std::printf("figure soak_silent_corruption %d\n", tally.silent);
    std::printf("figure soak_lockouts %d\n", tally.lockouts);
    return tally.silent == 0 && tally.lockouts == 0 ? 0 : 1;
}
