// End to end: dcp30ctl hosting the real plug-in, talking over a pseudo-
// terminal to the simulator. Program files are compared byte for byte with
// what the controller's records must become; what was written is checked in
// the controller's own store (saved by the simulator when it exits).
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

using namespace E2e;

namespace
{

// Shortened waits for every run but the real-pace one: 30 % of the fixed
// waits still leaves the simulator (sending at once) ample time.
constexpr int FastWaits = 30;
const QStringList FastLine{QStringLiteral("--baud"), QStringLiteral("0")};

QString programFile(const QString& dir, int program)
{
    return dir + QStringLiteral("/PROG_%1.txt").arg(program);
}

} // namespace

class TestE2eTransfer : public QObject
{
    Q_OBJECT

private slots:
    void roundTrip_data()
    {
        QTest::addColumn<int>("source");
        QTest::addColumn<int>("segments");
        QTest::addColumn<int>("target");
        QTest::addColumn<bool>("realPace");
        QTest::newRow("30 segments, SD card") << 3 << 30 << 9 << false;
        QTest::newRow("3 segments, USB stick, real waits, 9600 baud") << 2 << 3 << 8 << true;
    }
    // Read a sample program and write the file into an empty program: the
    // file is exactly the bytes the records make, and the controller holds
    // the source's records under the target number.
    void roundTrip()
    {
        QFETCH(int, source);
        QFETCH(int, segments);
        QFETCH(int, target);
        QFETCH(bool, realPace);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        const QString medium = realPace ? usb : dir.filePath(QStringLiteral("sd"));
        QVERIFY(QDir().mkpath(usb) && QDir().mkpath(medium));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        Simulator sim(QStringList{"--programs", programs, "--save-on-exit"} +
                      (realPace ? QStringList() : FastLine));
        QVERIFY(sim.started());
        auto transfer = [&](const char* verb, int program) {
            return runTool(
                transferArgs(verb, sim.device(), program, segments, usb) +
                    (realPace ? QStringList() : QStringList{"--storage", "sd", "--sd", medium}),
                realPace ? 0 : FastWaits);
        };

        const ProgramStore samples = ProgramStore::samples();
        QCOMPARE(samples.segmentCount(target), 0);
        const ToolRun read = transfer("read", source);
        QVERIFY2(read.finished && read.exitCode == 0, qPrintable(read.describe()));
        QCOMPARE(readFile(programFile(medium, source)),
                 expectedProgramFile(samples, source, segmentRange(segments)));
        QVERIFY2(read.err.contains(QLatin1String("progress 100%")), qPrintable(read.err));
        QVERIFY(read.out.contains(programFile(medium, source)));
        QCOMPARE(QDir(usb).isEmpty(), !realPace);

        QVERIFY(QFile::copy(programFile(medium, source), programFile(medium, target)));
        const ToolRun write = transfer("write", target);
        QVERIFY2(write.finished && write.exitCode == 0, qPrintable(write.describe()));
        QVERIFY2(write.err.contains(QLatin1String("progress 100%")), qPrintable(write.err));
        QVERIFY(sim.stop());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        QCOMPARE(saved.segmentCount(target), segments);
        for (int s = 1; s <= segments; ++s)
            QCOMPARE(saved.segment(target, s), samples.segment(source, s));
        QCOMPARE(saved.segmentCount(source), samples.segmentCount(source));
    }

    // --clamp takes program 0 as 1 (six segments) and 99 segments as 30: the
    // controller refuses 7..30, which keep their places in the file as unset
    // rows, and every refusal is logged and shown.
    void clampedNumbers()
    {
        QTemporaryDir dir;
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run =
            runTool(transferArgs("read", sim.device(), 0, 99, dir.path()) << "--clamp", FastWaits);
        QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
        for (const char* said : {"dcp30ctl read: program 0 is out of range 1..19; using 1",
                                 "dcp30ctl read: segment count 99 is out of range 1..30; using 30",
                                 "was written with 30 segment rows", "    Seg30:Program number"})
            QVERIFY2(run.err.contains(QLatin1String(said)), qPrintable(run.err));
        QList<int> segments = segmentRange(6);
        QStringList log{QStringLiteral("Program 1:")};
        for (int s = 7; s <= 30; ++s) {
            segments << -s;
            log << QStringLiteral("Seg%1:Program number or segment number is in error. No "
                                  "program in the segment.")
                       .arg(s);
        }
        QCOMPARE(readFile(programFile(dir.path(), 1)),
                 expectedProgramFile(ProgramStore::samples(), 1, segments));
        QCOMPARE(
            QString::fromLatin1(readFile(dir.filePath(QStringLiteral("READ_PROG_1_ERROR.txt")))),
            log.join(QLatin1Char('\n')));
    }

    // A transfer that outlasts --timeout: the tool says so and fails, and the
    // driver, taken down mid-transfer, lets the process end.
    void givesUpAfterItsTimeout()
    {
        QTemporaryDir dir;
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run =
            runTool(transferArgs("read", sim.device(), 3, 30, dir.path()) << "--timeout"
                                                                          << "1",
                    0, 30000);
        QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
        QVERIFY2(run.err.contains(QLatin1String("program 3 failed: RF0 still set after 1 s; the "
                                                "transfer did not end")),
                 qPrintable(run.err));
        QVERIFY(!QFileInfo::exists(programFile(dir.path(), 3)));
    }

    void refused_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("complaint");
        auto row = [](const char* name, const QString& args, int exitCode,
                      const QString& complaint) {
            QTest::newRow(name) << args.split(' ') << exitCode << complaint;
        };
        // Usage is checked before the port is opened.
        const QString ok = "--program 3 --segments 5";
        const QString read = "read --port /nonexistent/tty --usb /nonexistent/usb ";
        const QString write = "write --port /nonexistent/tty --usb /nonexistent/usb ";
        row("missing port", read + ok, 1, "read: Port /nonexistent/tty does not exist.");
        row("segments above", read + "--program 3 --segments 31", 2,
            "read: segment count 31 is out of range 1..30 (--clamp takes 30, as a panel would)");
        row("segments not a number", read + "--program 3 --segments ten", 2,
            "read: --segments needs a whole number, not \"ten\"");
        row("no program", read + "--segments 5", 2, "read: --program is needed");
        row("sd without its directory", write + ok + " --storage sd", 2,
            "write: --sd DIR is needed for --storage sd");
        row("unknown medium", read + ok + " --storage cd", 2,
            "read: --storage takes usb or sd, not \"cd\"");
        row("retries", read + ok + " --retries -1", 2, "read: --retries takes 0..20, not \"-1\"");
        row("line settings", read + ok + " --settings RS485,9600,EVEN", 2,
            "read: bad --settings \"RS485,9600,EVEN\"");
        row("stray argument", write + ok + " PROG_3.txt", 2,
            "write: unexpected argument PROG_3.txt");
        row("twice", read + ok + " --program 4", 2, "read: --program is given more than once");
    }
    // One line saying what is wrong (bad usage: exit status 2 and a pointer to
    // --help), nothing on stdout.
    void refused()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QString, complaint);
        const ToolRun run = runTool(args, 0);
        QVERIFY2(run.finished && run.exitCode == exitCode, qPrintable(run.describe()));
        const QStringList lines = run.err.trimmed().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), exitCode == 2 ? 2 : 1);
        QCOMPARE(lines.at(0).left(complaint.size() + 9), "dcp30ctl " + complaint);
        QVERIFY(exitCode == 1 || lines.at(1).contains(QLatin1String("--help")));
        QVERIFY(run.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestE2eTransfer)
#include "tst_e2e_transfer.moc"
