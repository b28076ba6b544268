// End to end, one simulator fault per path it takes through line, driver and
// controller: a reply lost after the controller acted (drop), a request it
// never heard (deaf), a reply late enough to hold up the rest, a refusal
// (status), a record of the wrong length; and a medium pulled mid-read.
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

using namespace E2e;

// ctest runs the suite twice, the second time with DCP30_E2E_PACED set: then
// every transfer is line-paced.
static bool paced()
{
    return qEnvironmentVariableIsSet("DCP30_E2E_PACED");
}

static QStringList inMode(QStringList arguments)
{
    if (paced())
        arguments << "--paced";
    return arguments;
}

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
        // A read: its file's segments (none: no file). A write: the segments
        // the controller holds afterwards.
        QTest::addColumn<QList<int>>("left");
        auto row = [](const char* name, bool read, const char* rule, int retries,
                      const QStringList& log, const QList<int>& left) {
            QTest::newRow(name) << read << QString(rule) << retries << log << left;
        };
        // The controller's file stays open, so the repeated open is refused,
        // which ends the attempts and leaves no message.
        row("write, open drop: the repeated open is refused", false, "drop:FO-W", 3,
            {"Opening the Program 5 file fail. Error Code 11."}, {});
        row("read, open refused: never repeated", true, "status=52:FO-R", 3,
            {"Program number or segment number is in error. No program in the segment."}, {});
        row("write, segment deaf: lost", false, "deaf:FW:2", 0, {"Write File Fail. Error Code 21."},
            {1, 3});
        row("read, segment of the wrong length: lost", true, "length:FR:2", 0,
            {"Reading the Program 3 file fail. Error Code 2."}, {1, 3});
        // Every later reply waits behind the late one: both retry levels run out.
        row("write, segment late, 1 retry", false, "late=3000:FW:2", 1,
            {"Write File Fail. Error Code 21.", "Write File Fail. Error Code 21.",
             "\nThe retry time of writing the Program 5 file is over 1 times.",
             "Opening the Program 5 file fail. Error Code 11.",
             "Write File retry time is over 1 times."},
            {1, 2});
        // The refused segment keeps its place in the file as an unset row.
        row("read, segment refused: never repeated", true, "status=52:FR:2", 3,
            {"Seg2:Program number or segment number is in error. No program in the segment."},
            {1, -2, 3});
        row("write, segment refused: never repeated", false, "status=57:FW:2", 3,
            {"Seg2:Block data of File block WRITE is in error."}, {1, 3});
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
                    QStringLiteral("progress "), [&usb] { QDir(usb).removeRecursively(); });
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
