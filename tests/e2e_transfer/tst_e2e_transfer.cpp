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

} // namespace

class TestE2eTransfer : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();
    void roundTrip_data();
    void roundTrip();
    void clampedNumbers_data();
    void clampedNumbers();
    void sdCard();
    void writeParametersFromTheController();
    void givesUpAfterItsTimeout();
    void portProblems_data();
    void portProblems();
    void badUsage_data();
    void badUsage();
};

void TestE2eTransfer::cleanup()
{
    QVERIFY2(livingChildren().isEmpty(), "a simulator or dcp30ctl outlived its test");
}

void TestE2eTransfer::roundTrip_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<int>("segments");
    QTest::addColumn<int>("target");
    QTest::addColumn<bool>("realPace");
    QTest::newRow("1 segment") << 1 << 1 << 7 << false;
    QTest::newRow("10 segments") << 2 << 10 << 8 << false;
    QTest::newRow("30 segments") << 3 << 30 << 9 << false;
    QTest::newRow("30 segments, real waits, 9600 baud") << 3 << 30 << 9 << true;
}

// Read a sample program, write the file into an empty program, read that
// back: both files are exactly the bytes the records make, and the
// controller holds the source's records under the target number.
void TestE2eTransfer::roundTrip()
{
    QFETCH(int, source);
    QFETCH(int, segments);
    QFETCH(int, target);
    QFETCH(bool, realPace);
    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    const QString back = dir.filePath(QStringLiteral("back"));
    QVERIFY(QDir().mkpath(usb) && QDir().mkpath(back));
    const QString programs = dir.filePath(QStringLiteral("programs.txt"));
    QStringList simArgs{QStringLiteral("--programs"), programs, QStringLiteral("--save-on-exit")};
    if (!realPace)
        simArgs << QStringLiteral("--baud") << QStringLiteral("0");
    const int waits = realPace ? 0 : FastWaits;
    Simulator sim(simArgs);
    QVERIFY(sim.started());

    const ProgramStore samples = ProgramStore::samples();
    QCOMPARE(samples.segmentCount(target), 0);
    const QByteArray expected = expectedProgramFile(samples, source, segmentRange(segments));

    const ToolRun read = runTool(transferArgs("read", sim.device(), source, segments, usb), waits);
    QVERIFY2(read.finished && read.exitCode == 0, qPrintable(read.describe()));
    QCOMPARE(readFile(programFile(usb, source)), expected);
    QVERIFY2(read.err.contains(QLatin1String("progress 100%")), qPrintable(read.err));
    QVERIFY(read.out.contains(programFile(usb, source)));

    QVERIFY(QFile::copy(programFile(usb, source), programFile(usb, target)));
    const ToolRun write =
        runTool(transferArgs("write", sim.device(), target, segments, usb), waits);
    QVERIFY2(write.finished && write.exitCode == 0, qPrintable(write.describe()));
    QVERIFY2(write.err.contains(QLatin1String("progress 100%")), qPrintable(write.err));

    if (!realPace) { // one real-pace read is enough for the test time
        const ToolRun again =
            runTool(transferArgs("read", sim.device(), target, segments, back), waits);
        QVERIFY2(again.finished && again.exitCode == 0, qPrintable(again.describe()));
        QCOMPARE(readFile(programFile(back, target)), expected);
    }

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

void TestE2eTransfer::clampedNumbers_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("segments");
    QTest::addColumn<QString>("note");
    QTest::addColumn<int>("takenProgram");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<int>("rows");
    QTest::newRow("program 0") << "0"
                               << "2"
                               << "program 0 is out of range 1..19; using 1" << 1 << 0 << 2;
    // Program 2 has ten segments: the controller refuses 11..30, which keep
    // their places in the file as unset rows, and every refusal is logged.
    QTest::newRow("99 segments") << "2"
                                 << "99"
                                 << "segment count 99 is out of range 1..30; using 30" << 2 << 1
                                 << 10;
}

void TestE2eTransfer::clampedNumbers()
{
    QFETCH(QString, program);
    QFETCH(QString, segments);
    QFETCH(QString, note);
    QFETCH(int, takenProgram);
    QFETCH(int, exitCode);
    QFETCH(int, rows);
    QTemporaryDir dir;
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
    QVERIFY(sim.started());
    const ToolRun run =
        runTool({QStringLiteral("read"), QStringLiteral("--port"), sim.device(),
                 QStringLiteral("--program"), program, QStringLiteral("--segments"), segments,
                 QStringLiteral("--usb"), dir.path(), QStringLiteral("--clamp"),
                 QStringLiteral("--poll-ms"), QStringLiteral("20")},
                FastWaits);
    QVERIFY2(run.finished && run.exitCode == exitCode, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QStringLiteral("dcp30ctl read: ") + note), qPrintable(run.err));
    const ProgramStore samples = ProgramStore::samples();
    QByteArray expected = expectedProgramFile(samples, takenProgram, segmentRange(rows));
    if (exitCode == 0) {
        QCOMPARE(readFile(programFile(dir.path(), takenProgram)), expected);
        return;
    }
    QList<QStringList> refused;
    for (int s = rows + 1; s <= 30; ++s)
        refused << refusedSegmentRow(s);
    expected += programFileBytes(refused).mid(2);
    QCOMPARE(readFile(programFile(dir.path(), takenProgram)), expected);
    QStringList log{QStringLiteral("Program 1:")};
    for (int s = rows + 1; s <= 30; ++s)
        log << QStringLiteral("Seg%1:Program number or segment number is in error. No program in "
                              "the segment.")
                   .arg(s);
    const QString logFile =
        dir.filePath(QStringLiteral("READ_PROG_%1_ERROR.txt").arg(takenProgram));
    QCOMPARE(QString::fromLatin1(readFile(logFile)), log.join(QLatin1Char('\n')));
    QVERIFY2(run.err.contains(QLatin1String("was written with 30 segment rows")),
             qPrintable(run.err));
    QVERIFY2(run.err.contains(QLatin1String("    Seg30:Program number")), qPrintable(run.err));
}

void TestE2eTransfer::sdCard()
{
    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    const QString sd = dir.filePath(QStringLiteral("sd"));
    QVERIFY(QDir().mkpath(usb) && QDir().mkpath(sd));
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
    QVERIFY(sim.started());
    const ToolRun run = runTool(transferArgs("read", sim.device(), 1, 6, usb) +
                                    QStringList{QStringLiteral("--storage"), QStringLiteral("sd"),
                                                QStringLiteral("--sd"), sd},
                                FastWaits);
    QVERIFY2(run.finished && run.exitCode == 0, qPrintable(run.describe()));
    QCOMPARE(readFile(programFile(sd, 1)),
             expectedProgramFile(ProgramStore::samples(), 1, segmentRange(6)));
    QVERIFY(!QFileInfo::exists(programFile(usb, 1)));
}

// The five values a write hands to the worker come from controller memory
// through the driver and the companion; negative limits survive the
// double-word decoding.
void TestE2eTransfer::writeParametersFromTheController()
{
    QTemporaryDir dir;
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0"), QStringLiteral("--sp-limits"),
                   QStringLiteral("-100,500"), QStringLiteral("--event-kinds"),
                   QStringLiteral("1,5,50")});
    QVERIFY(sim.started());
    QVERIFY(writeFile(programFile(dir.path(), 4),
                      expectedProgramFile(ProgramStore::samples(), 1, {1})));
    const ToolRun run = runTool(transferArgs("write", sim.device(), 4, 1, dir.path())
                                    << QStringLiteral("--verbose"),
                                FastWaits);
    QVERIFY2(run.finished && run.exitCode == 0, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QLatin1String("SP1 limits -100..500, event kinds 1, 5, 50\n")),
             qPrintable(run.err));
}

// A transfer that outlasts --timeout: the tool says so and fails, and the
// driver, taken down mid-transfer, lets the process end.
void TestE2eTransfer::givesUpAfterItsTimeout()
{
    QTemporaryDir dir;
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
    QVERIFY(sim.started());
    const ToolRun run = runTool(transferArgs("read", sim.device(), 3, 30, dir.path())
                                    << QStringLiteral("--timeout") << QStringLiteral("1"),
                                0, 30000);
    QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QLatin1String("program 3 failed: RF0 still set after 1 s; the "
                                            "transfer did not end")),
             qPrintable(run.err));
    QVERIFY(!QFileInfo::exists(programFile(dir.path(), 3)));
}

void TestE2eTransfer::portProblems_data()
{
    QTest::addColumn<bool>("holdPort");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("missing") << false << "dcp30ctl read: Port %1 does not exist.";
    QTest::newRow("busy") << true << "dcp30ctl read: Port %1 is busy: another program has it open.";
}

void TestE2eTransfer::portProblems()
{
    QFETCH(bool, holdPort);
    QFETCH(QString, complaint);
    QTemporaryDir dir;
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
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

void TestE2eTransfer::badUsage_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("complaint");
    const QStringList base{QStringLiteral("--port"), QStringLiteral("/nonexistent/tty"),
                           QStringLiteral("--usb"), QStringLiteral("/nonexistent/usb")};
    auto with = [&](const char* verb, const QStringList& more) {
        return QStringList{QString::fromLatin1(verb)} + base + more;
    };
    const QStringList ok{QStringLiteral("--program"), QStringLiteral("3"),
                         QStringLiteral("--segments"), QStringLiteral("5")};
    QTest::newRow("program above")
        << with("read", {"--program", "25", "--segments", "5"})
        << "dcp30ctl read: program 25 is out of range 1..19 (--clamp takes 19, as a panel would)";
    QTest::newRow("program zero, write")
        << with("write", {"--program", "0", "--segments", "5"})
        << "dcp30ctl write: program 0 is out of range 1..19 (--clamp takes 1, as a panel would)";
    QTest::newRow("segments above")
        << with("read", {"--program", "3", "--segments", "31"})
        << "dcp30ctl read: segment count 31 is out of range 1..30 (--clamp takes 30, as a panel "
           "would)";
    QTest::newRow("segments not a number")
        << with("read", {"--program", "3", "--segments", "ten"})
        << "dcp30ctl read: --segments needs a whole number, not \"ten\"";
    QTest::newRow("no program") << with("read", {"--segments", "5"})
                                << "dcp30ctl read: --program is needed";
    QTest::newRow("no port") << QStringList{"read", "--usb", "/tmp"} + ok
                             << "dcp30ctl read: --port is needed";
    QTest::newRow("no directory for the medium")
        << QStringList{"read", "--port", "/dev/null"} + ok
        << "dcp30ctl read: --usb DIR is needed for --storage usb";
    QTest::newRow("sd without its directory")
        << with("write", ok + QStringList{"--storage", "sd"})
        << "dcp30ctl write: --sd DIR is needed for --storage sd";
    QTest::newRow("unknown medium") << with("read", ok + QStringList{"--storage", "cd"})
                                    << "dcp30ctl read: --storage takes usb or sd, not \"cd\"";
    QTest::newRow("retries") << with("read", ok + QStringList{"--retries", "-1"})
                             << "dcp30ctl read: --retries takes 0..20, not \"-1\"";
    QTest::newRow("line settings")
        << with("read", ok + QStringList{"--settings", "RS485,9600,EVEN"})
        << "dcp30ctl read: bad --settings \"RS485,9600,EVEN\"";
    QTest::newRow("unknown option")
        << with("read", ok + QStringList{"--fast"}) << "dcp30ctl read: Unknown option 'fast'.";
    QTest::newRow("stray argument") << with("write", ok + QStringList{"PROG_3.txt"})
                                    << "dcp30ctl write: unexpected argument PROG_3.txt";
    QTest::newRow("twice") << with("read", ok + QStringList{"--program", "4"})
                           << "dcp30ctl read: --program is given more than once";
}

// Usage is checked before any port is opened (the port named does not
// exist): exit status 2, one line saying what is wrong, and a pointer to
// --help.
void TestE2eTransfer::badUsage()
{
    QFETCH(QStringList, args);
    QFETCH(QString, complaint);
    const ToolRun run = runTool(args, 0);
    QVERIFY2(run.finished && run.exitCode == 2, qPrintable(run.describe()));
    const QStringList lines = run.err.trimmed().split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines.at(0).startsWith(complaint), qPrintable(lines.at(0)));
    QVERIFY(lines.at(1).contains(QLatin1String("--help")));
    QVERIFY(run.out.isEmpty());
}

QTEST_GUILESS_MAIN(TestE2eTransfer)
#include "tst_e2e_transfer.moc"
