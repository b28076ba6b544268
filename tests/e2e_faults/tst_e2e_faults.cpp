// End to end against the simulator: one fault per path it takes through line,
// driver and controller; faults and interruptions that used to leave the
// controller's program file open (after each, the same transfer succeeds
// again on the same controller); the traffic of fault-free transfers; writes
// refused before they touch the controller; and a medium pulled mid-read.
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

#include <csignal>

using namespace E2e;

namespace
{

// The frames the simulator heard, one text per line.
QStringList framesIn(const QString& path)
{
    return QString::fromLatin1(readFile(path)).split('\n', Qt::SkipEmptyParts);
}

// ctest runs the suite twice, the second time with DCP30_E2E_PACED set: then
// every transfer is line-paced.
bool paced()
{
    return qEnvironmentVariableIsSet("DCP30_E2E_PACED");
}

QStringList inMode(QStringList arguments)
{
    if (paced())
        arguments << "--paced";
    return arguments;
}

} // namespace

class TestE2eFaults : public QObject
{
    Q_OBJECT

private slots:
    void faults_data()
    {
        QTest::addColumn<bool>("read"); // of program 3, else a write into the empty program 5
        QTest::addColumn<QString>("rule");
        QTest::addColumn<int>("retries");
        QTest::addColumn<QStringList>("log"); // after "Program 1:"
        // A read: its file's segments (none: no file; -s a placeholder row).
        // A write: the segments the controller holds afterwards.
        QTest::addColumn<QList<int>>("left");
        auto row = [](const char* name, bool read, const char* rule, int retries,
                      const QStringList& log, const QList<int>& left) {
            QTest::newRow(name) << read << QString(rule) << retries << log << left;
        };
        // The open went through; closed before the repeat, the file opens again.
        row("write, open reply lost: closed and opened again", false, "drop:FO-W", 3,
            {"Opening the Program 5 file fail. Error Code 11."}, {1, 2, 3});
        row("read, open refused: never repeated", true, "status=52:FO-R", 3,
            {"Program number or segment number is in error. No program in the segment."}, {});
        row("write, segment deaf: lost", false, "deaf:FW:2", 0, {"Write File Fail. Error Code 21."},
            {1, 3});
        // Lost or refused, a segment keeps its place in the file.
        row("read, segment of the wrong length: lost", true, "length:FR:2", 0,
            {"Reading the Program 3 file fail. Error Code 2."}, {1, -2, 3});
        row("read, segment refused: never repeated", true, "status=52:FR:2", 3,
            {"Seg2:Program number or segment number is in error. No program in the segment."},
            {1, -2, 3});
        row("write, segment refused: never repeated", false, "status=57:FW:2", 3,
            {"Seg2:Block data of File block WRITE is in error."}, {1, 3});
        row("write, close never answered", false, "deaf:FC@always", 1,
            {"Closing the Program 5 file fail. The file may still be open in the controller."},
            {1, 2, 3});
    }
    // Each run fails, raises the error flag and logs; the file or the
    // controller's program holds what the fault allows.
    void faults()
    {
        QFETCH(bool, read);
        QFETCH(QString, rule);
        QFETCH(int, retries);
        QFETCH(QStringList, log);
        QFETCH(QList<int>, left);
        QTemporaryDir dir;
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        Simulator sim({"--baud", "0", "--programs", programs, "--save-on-exit", "--fault", rule});
        QVERIFY(sim.started());
        const int program = read ? 3 : 5;
        const QString programFile = dir.filePath(QStringLiteral("PROG_%1.txt").arg(program));
        const QString logFile = dir.filePath(
            QStringLiteral("%1_PROG_%2_ERROR.txt").arg(read ? "READ" : "WRITE").arg(program));
        const ProgramStore samples = ProgramStore::samples();
        const QByteArray source = expectedProgramFile(samples, 3, {1, 2, 3});
        if (!read)
            QVERIFY(writeFile(programFile, source));

        const ToolRun run = runTool(
            inMode(transferArgs(read ? "read" : "write", sim.device(), program, 3, dir.path())
                   << "--retries" << QString::number(retries)),
            30);
        QVERIFY2(
            run.ok(1) && !run.err.contains(QLatin1String("did not end")) &&
                run.err.contains(QStringLiteral("error log %1:").arg(logFile)) &&
                run.err.contains(QStringLiteral("the driver raised %1").arg(read ? "RE0" : "WE0")),
            qPrintable(run.describe()));
        QCOMPARE(QString::fromUtf8(readFile(logFile)),
                 "Program 1:\n" + log.join(QLatin1Char('\n')));
        if (!read) // a write never touches its file
            QCOMPARE(readFile(programFile), source);
        else if (left.isEmpty())
            QVERIFY(!QFileInfo::exists(programFile));
        else
            QCOMPARE(readFile(programFile), expectedProgramFile(samples, 3, left));

        QVERIFY(sim.stop());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        for (int s = 1; s <= 3 && !read; ++s)
            QCOMPARE(saved.segment(5, s), left.contains(s) ? samples.segment(3, s) : QByteArray());
    }

    // Faults and interruptions that used to leave the controller's file
    // open: the first transfer ends as it must, and the same transfer
    // straight after succeeds on the same controller (no restart, no idle
    // timeout).
    void noLockOut_data()
    {
        QTest::addColumn<bool>("read"); // program 3, else a write of it into program 5
        QTest::addColumn<QStringList>("rules");
        QTest::addColumn<int>("retries");
        QTest::addColumn<QString>("interrupt"); // "timeout", "INT", "TERM" or none
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("said");
        auto twice = [](const char* rule) {
            QStringList rules;
            for (int at = 1; at <= 4; ++at)
                rules << QString("%1@at=%2").arg(rule).arg(at);
            return rules;
        };
        QTest::newRow("read, open reply lost") << true << QStringList{"drop:FO-R"} << 1 << "" << 1
                                               << "Opening the Program 3 file fail. Error Code 1.";
        QTest::newRow("read, segment retries used up") << true << twice("deaf:FR:2") << 1 << "" << 1
                                                       << "Read File retry time is over 1 times.";
        QTest::newRow("write, segment retries used up")
            << false << twice("deaf:FW:2") << 1 << "" << 1
            << "Write File retry time is over 1 times.";
        QTest::newRow("write, close lost: repeated")
            << false << QStringList{"deaf:FC"} << 1 << "" << 0 << "write: ";
        QTest::newRow("write, close lost, no retries")
            << false << QStringList{"deaf:FC"} << 0 << "" << 1
            << "The file may still be open in the controller.";
        QTest::newRow("read, driver taken down mid-transfer")
            << true << QStringList() << 3 << "timeout" << 1 << "RF0 still set after 1 s";
        QTest::newRow("read, Ctrl-C") << true << QStringList() << 3 << "INT" << 130
                                      << "interrupted: program 3 in the controller is unchanged";
        QTest::newRow("write, SIGTERM")
            << false << QStringList() << 3 << "TERM" << 143 << "interrupted: program 5: segment";
    }
    void noLockOut()
    {
        QFETCH(bool, read);
        QFETCH(QStringList, rules);
        QFETCH(int, retries);
        QFETCH(QString, interrupt);
        QTemporaryDir dir;
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        QStringList simArgs{"--baud",     "0",      "--open-timeout", "0",
                            "--programs", programs, "--save-on-exit"};
        for (const QString& rule : rules)
            simArgs << "--fault" << rule;
        Simulator sim(simArgs);
        QVERIFY(sim.started());
        const ProgramStore samples = ProgramStore::samples();
        const int segments = interrupt.isEmpty() ? 3 : 10;
        const int program = read ? 3 : 5;
        const QString programFile = dir.filePath(QStringLiteral("PROG_%1.txt").arg(program));
        const QByteArray source = expectedProgramFile(samples, 3, segmentRange(segments));
        if (!read)
            QVERIFY(writeFile(programFile, source));
        const QStringList args =
            transferArgs(read ? "read" : "write", sim.device(), program, segments, dir.path())
            << "--retries" << QString::number(retries);

        // Interrupted runs go at the real pace, so there is a transfer to cut short.
        const int signal = interrupt == "INT" ? SIGINT : interrupt == "TERM" ? SIGTERM : 0;
        const ToolRun first = runTool(interrupt == "timeout" ? QStringList(args) << "--timeout"
                                                                                 << "1"
                                                             : args,
                                      interrupt.isEmpty() ? 30 : 100,
                                      signal ? QStringLiteral("progress ") : QString(),
                                      [signal](qint64 pid) { ::kill(pid_t(pid), signal); });
        QFETCH(int, exitCode);
        QFETCH(QString, said);
        QVERIFY2(first.ok(exitCode) && (first.err + first.out).contains(said),
                 qPrintable(first.describe()));

        // Judges the controller's state, not the pace: waits with slack.
        const ToolRun again = runTool(args, 60);
        QVERIFY2(again.ok(0), qPrintable(again.describe()));
        if (read)
            QCOMPARE(readFile(programFile), source);
        QVERIFY(sim.stop());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        for (int s = 1; s <= segments && !read; ++s)
            QCOMPARE(saved.segment(5, s), samples.segment(3, s));
    }

    // What fault-free transfers put on the line, frame by frame: the
    // driver's commands as they always were; a write is preceded by the
    // tool's own reads of the limits (the very reads the driver makes).
    // A file with a faulty row is refused with nothing but those reads on
    // the line; --force writes the rows that pass, as a panel does; a lost
    // parameter answer stops the driver's write before it opens the file.
    void lineTraffic()
    {
        QTemporaryDir dir;
        const QString frameLog = dir.filePath("frames.txt");
        Simulator sim({"--baud", "0", "--frame-log", frameLog, "--fault", "drop:RS@at=28"});
        QVERIFY(sim.started());
        const ProgramStore samples = ProgramStore::samples();
        auto record = [&](int s) { return QString::fromLatin1(samples.segment(3, s)); };
        int seen = 0; // frames of earlier runs
        auto newFrames = [&] {
            const QStringList all = framesIn(frameLog);
            const QStringList fresh = all.mid(seen);
            seen = all.size();
            return fresh;
        };

        ToolRun run = runTool(inMode(transferArgs("read", sim.device(), 3, 3, dir.path())), 30);
        QVERIFY2(run.ok(0), qPrintable(run.describe()));
        QCOMPARE(newFrames(), (QStringList{"0100XFO,3,R,0", "0100XFR,3,1", "0100XFR,3,2",
                                           "0100XFR,3,3", "0100XFC,3"}));

        QVERIFY(QFile::rename(dir.filePath("PROG_3.txt"), dir.filePath("PROG_5.txt")));
        run = runTool(inMode(transferArgs("write", sim.device(), 5, 3, dir.path())), 30);
        QVERIFY2(run.ok(0), qPrintable(run.describe()));
        const QStringList frames = newFrames();
        QCOMPARE(frames.size(), 13);
        const QStringList reads = frames.mid(0, 4);
        QCOMPARE(reads.filter(QRegularExpression("^0100XRS,")).size(), 4);
        QCOMPARE(frames.mid(4, 4), reads);
        QCOMPARE(frames.mid(8), (QStringList{"0100XFO,5,W,0", "0100XFW,5,1," + record(1),
                                             "0100XFW,5,2," + record(2), "0100XFW,5,3," + record(3),
                                             "0100XFC,5"}));

        // Row 2's SP1 beyond the limits.
        QVERIFY(writeFile(dir.filePath("PROG_6.txt"),
                          withCell(readFile(dir.filePath("PROG_5.txt")), 2, 1, "99999")));
        run = runTool(inMode(transferArgs("write", sim.device(), 6, 3, dir.path())), 30);
        QVERIFY2(run.ok(1) && run.err.contains("program 6 not written") &&
                     run.err.contains("SP1 [99999] is out of range"),
                 qPrintable(run.describe()));
        QCOMPARE(newFrames(), reads);

        run =
            runTool(inMode(transferArgs("write", sim.device(), 6, 3, dir.path()) << "--force"), 30);
        QVERIFY2(run.ok(1) && run.err.contains("the driver raised WE0"),
                 qPrintable(run.describe()));
        QCOMPARE(newFrames().mid(8), (QStringList{"0100XFO,6,W,0", "0100XFW,6,1," + record(1),
                                                  "0100XFW,6,3," + record(3), "0100XFC,6"}));

        // The 28th register read is the driver's last one of this write.
        run =
            runTool(inMode(transferArgs("write", sim.device(), 5, 3, dir.path()) << "--force"), 30);
        const QString log = QString::fromUtf8(readFile(dir.filePath("WRITE_PROG_5_ERROR.txt")));
        QVERIFY2(run.ok(1) && log.contains("Reading RAM3509 (kind of event 3) from the "
                                           "controller fail. The Program 5 file was not written"),
                 qPrintable(run.describe() + log));
        QCOMPARE(newFrames().filter(QRegularExpression("^0100XF")), QStringList());
    }

    // The directory goes after the first segment: the read has nowhere to
    // save, says so, and raises no error flag.
    void mediumPulledDuringRead()
    {
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        // Paced, a controller answering at once would be done before the tool
        // first looks at the progress: it answers at the line's pace, within
        // the real waits.
        Simulator sim({"--baud", paced() ? "9600" : "0"});
        QVERIFY(sim.started());
        const ToolRun run =
            runTool(inMode(transferArgs("read", sim.device(), 2, 10, usb)), paced() ? 0 : 30,
                    QStringLiteral("progress "), [&usb](qint64) { QDir(usb).removeRecursively(); });
        for (const QString& said :
             {QStringLiteral("progress 100%"),
              QStringLiteral("DCP30: The system can't not detect the USB Stick.\n"),
              QStringLiteral("USB directory %1 does not exist").arg(usb)})
            QVERIFY2(run.err.contains(said), qPrintable(run.describe()));
        QVERIFY2(run.ok(1) && !run.err.contains(QLatin1String("raised")),
                 qPrintable(run.describe()));
        QVERIFY(!QFileInfo::exists(usb));
    }
};

QTEST_GUILESS_MAIN(TestE2eFaults)
#include "tst_e2e_faults.moc"
