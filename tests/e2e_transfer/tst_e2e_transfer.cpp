// End to end: dcp30ctl hosting the real plug-in, talking over a pseudo-
// terminal to the simulator. Program files are compared byte for byte with
// what the controller's records must become; what was written is checked in
// the controller's own store (saved by the simulator when it exits).
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "host/serial/serialportdevice.h"
#include "sim/programstore.h"

using namespace E2e;

namespace
{

// Shortened waits for every run but the real-pace one: 30 % of the fixed
// waits still leaves the simulator (sending at once) ample time.
constexpr int FastWaits = 30;

QString programFile(const QString& dir, int program)
{
    return dir + QStringLiteral("/PROG_%1.txt").arg(program);
}

const QStringList FastLine{QStringLiteral("--baud"), QStringLiteral("0")};

} // namespace

class TestE2eTransfer : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        QVERIFY2(livingChildren().isEmpty(), "a simulator or dcp30ctl outlived its test");
    }

    void roundTrip_data()
    {
        QTest::addColumn<int>("source");
        QTest::addColumn<int>("segments");
        QTest::addColumn<int>("target");
        QTest::addColumn<bool>("realPace");
        QTest::addColumn<bool>("sdCard");
        QTest::newRow("1 segment, SD card") << 1 << 1 << 7 << false << true;
        QTest::newRow("30 segments") << 3 << 30 << 9 << false << false;
        QTest::newRow("10 segments, real waits, 9600 baud") << 2 << 10 << 8 << true << false;
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
        QFETCH(bool, sdCard);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        const QString medium = sdCard ? dir.filePath(QStringLiteral("sd")) : usb;
        QVERIFY(QDir().mkpath(usb) && QDir().mkpath(medium));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        Simulator sim(QStringList{"--programs", programs, "--save-on-exit"} +
                      (realPace ? QStringList() : FastLine));
        QVERIFY(sim.started());
        const int waits = realPace ? 0 : FastWaits;
        auto transfer = [&](const char* verb, int program, const QString& to) {
            return runTool(
                transferArgs(verb, sim.device(), program, segments, usb) +
                    (sdCard ? QStringList{"--storage", "sd", "--sd", to} : QStringList()),
                waits);
        };

        const ProgramStore samples = ProgramStore::samples();
        QCOMPARE(samples.segmentCount(target), 0);
        const QByteArray expected = expectedProgramFile(samples, source, segmentRange(segments));
        const ToolRun read = transfer("read", source, medium);
        QVERIFY2(read.finished && read.exitCode == 0, qPrintable(read.describe()));
        QCOMPARE(readFile(programFile(medium, source)), expected);
        QVERIFY2(read.err.contains(QLatin1String("progress 100%")), qPrintable(read.err));
        QVERIFY(read.out.contains(programFile(medium, source)));
        QCOMPARE(QDir(usb).isEmpty(), sdCard);

        QVERIFY(QFile::copy(programFile(medium, source), programFile(medium, target)));
        const ToolRun write = transfer("write", target, medium);
        QVERIFY2(write.finished && write.exitCode == 0, qPrintable(write.describe()));
        QVERIFY2(write.err.contains(QLatin1String("progress 100%")), qPrintable(write.err));
        const QString device = sim.device();
        QVERIFY(sim.stop());
        QVERIFY(ptyReleased(device));
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        QCOMPARE(saved.segmentCount(target), segments);
        for (int s = 1; s <= segments; ++s)
            QCOMPARE(saved.segment(target, s), samples.segment(source, s));
        QCOMPARE(saved.segmentCount(source), samples.segmentCount(source));
    }

    void clampedNumbers_data()
    {
        QTest::addColumn<int>("program");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("note");
        QTest::addColumn<int>("takenProgram");
        QTest::addColumn<int>("rows"); // the program's own; the rest are refused
        QTest::newRow("program 0")
            << 0 << 2 << "program 0 is out of range 1..19; using 1" << 1 << 2;
        // Program 2 has ten segments: the controller refuses 11..30, which keep
        // their places in the file as unset rows, and every refusal is logged.
        QTest::newRow("99 segments")
            << 2 << 99 << "segment count 99 is out of range 1..30; using 30" << 2 << 10;
    }
    void clampedNumbers()
    {
        QFETCH(int, program);
        QFETCH(int, count);
        QFETCH(QString, note);
        QFETCH(int, takenProgram);
        QFETCH(int, rows);
        QTemporaryDir dir;
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run = runTool(
            transferArgs("read", sim.device(), program, count, dir.path()) << "--clamp", FastWaits);
        const bool refusals = count > 30;
        QVERIFY2(run.finished && run.exitCode == (refusals ? 1 : 0), qPrintable(run.describe()));
        QVERIFY2(run.err.contains(QStringLiteral("dcp30ctl read: ") + note), qPrintable(run.err));
        QList<int> segments = segmentRange(rows);
        QStringList log{QStringLiteral("Program 1:")};
        for (int s = rows + 1; refusals && s <= 30; ++s) {
            segments << -s;
            log << QStringLiteral("Seg%1:Program number or segment number is in error. No "
                                  "program in the segment.")
                       .arg(s);
        }
        QCOMPARE(readFile(programFile(dir.path(), takenProgram)),
                 expectedProgramFile(ProgramStore::samples(), takenProgram, segments));
        if (!refusals)
            return;
        const QString logFile =
            dir.filePath(QStringLiteral("READ_PROG_%1_ERROR.txt").arg(takenProgram));
        QCOMPARE(QString::fromLatin1(readFile(logFile)), log.join(QLatin1Char('\n')));
        QVERIFY2(run.err.contains(QLatin1String("was written with 30 segment rows")),
                 qPrintable(run.err));
        QVERIFY2(run.err.contains(QLatin1String("    Seg30:Program number")), qPrintable(run.err));
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

    void portProblems_data()
    {
        QTest::addColumn<bool>("holdPort");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("missing") << false << "dcp30ctl read: Port %1 does not exist.";
        QTest::newRow("busy") << true
                              << "dcp30ctl read: Port %1 is busy: another program has it open.";
    }
    void portProblems()
    {
        QFETCH(bool, holdPort);
        QFETCH(QString, complaint);
        QTemporaryDir dir;
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        SerialPortDevice holder(sim.device());
        QString port = dir.filePath(QStringLiteral("ttyNone"));
        if (holdPort) {
            QVERIFY2(holder.open(), qPrintable(holder.errorString()));
            port = sim.device();
        }
        const ToolRun run = runTool(transferArgs("read", port, 1, 1, dir.path()), FastWaits);
        QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
        QCOMPARE(run.err.trimmed(), complaint.arg(port));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList());
    }

    void badUsage_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("complaint");
        // The port named does not exist: usage is checked before it is opened.
        auto row = [](const char* name, const QString& args, const QString& complaint) {
            QTest::newRow(name) << args.split(' ') << complaint;
        };
        const QString ok = "--program 3 --segments 5";
        const QString read = "read --port /nonexistent/tty --usb /nonexistent/usb ";
        const QString write = "write --port /nonexistent/tty --usb /nonexistent/usb ";
        row("program zero, write", write + "--program 0 --segments 5",
            "write: program 0 is out of range 1..19 (--clamp takes 1, as a panel would)");
        row("segments above", read + "--program 3 --segments 31",
            "read: segment count 31 is out of range 1..30 (--clamp takes 30, as a panel would)");
        row("segments not a number", read + "--program 3 --segments ten",
            "read: --segments needs a whole number, not \"ten\"");
        row("no program", read + "--segments 5", "read: --program is needed");
        row("no directory for the medium", "read --port /dev/null " + ok,
            "read: --usb DIR is needed for --storage usb");
        row("sd without its directory", write + ok + " --storage sd",
            "write: --sd DIR is needed for --storage sd");
        row("unknown medium", read + ok + " --storage cd",
            "read: --storage takes usb or sd, not \"cd\"");
        row("retries", read + ok + " --retries -1", "read: --retries takes 0..20, not \"-1\"");
        row("line settings", read + ok + " --settings RS485,9600,EVEN",
            "read: bad --settings \"RS485,9600,EVEN\"");
        row("unknown option", read + ok + " --fast", "read: Unknown option 'fast'.");
        row("stray argument", write + ok + " PROG_3.txt", "write: unexpected argument PROG_3.txt");
        row("twice", read + ok + " --program 4", "read: --program is given more than once");
    }
    // Exit status 2, one line saying what is wrong, and a pointer to --help.
    void badUsage()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, complaint);
        const ToolRun run = runTool(args, 0);
        QVERIFY2(run.finished && run.exitCode == 2, qPrintable(run.describe()));
        const QStringList lines = run.err.trimmed().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines.at(0).startsWith("dcp30ctl " + complaint), qPrintable(lines.at(0)));
        QVERIFY(lines.at(1).contains(QLatin1String("--help")));
        QVERIFY(run.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestE2eTransfer)
#include "tst_e2e_transfer.moc"
