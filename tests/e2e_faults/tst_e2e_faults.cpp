// The fault matrix, end to end: one simulator fault at the open, at segment 2
// of 3 or at the close, one row per path it takes through line, driver and
// controller: a reply lost after the controller acted (drop), a request it
// never heard (deaf), a reply 3 s late (it holds up every later reply), a
// refusal (status), a record of the wrong length. Each run must end with the
// right exit status, error flag and log, and with the file or the
// controller's program the fault allows. (Garbled, cut or noisy replies and
// a segment read that succeeds when repeated are the exchange and workflow
// suites'.)
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

using namespace E2e;

namespace
{

constexpr int ReadProgram = 3;  // a sample program
constexpr int WriteProgram = 5; // empty in the samples
constexpr int Unchecked = -99;  // a write whose stored segments timing decides

const QString ReadOpen = "Opening the Program 3 file fail. Error Code 1.";
const QString WriteOpen = "Opening the Program 5 file fail. Error Code 11.";
const QString ReadSegment = "Reading the Program 3 file fail. Error Code 1.";
const QString WriteSegment = "Write File Fail. Error Code 21.";

} // namespace

class TestE2eFaults : public QObject
{
    Q_OBJECT

private slots:
    void faults_data()
    {
        QTest::addColumn<bool>("read");
        QTest::addColumn<QString>("rule");
        QTest::addColumn<int>("retries");
        QTest::addColumn<QStringList>("log"); // after "Program 1:"; empty: none, exit 0
        // A read: the rows of its file (-s refused; none: no file). A write:
        // the segments of the program the controller holds afterwards.
        QTest::addColumn<QList<int>>("left");
        auto row = [](const char* name, bool read, const char* rule, int retries,
                      const QStringList& log, const QList<int>& left) {
            QTest::newRow(name) << read << QString(rule) << retries << log << left;
        };
        const QList<int> all{1, 2, 3};
        row("read, open deaf: the repeated attempt goes through", true, "deaf:FO-R", 3, {ReadOpen},
            all);
        // The controller's file stays open, so the repeated open is refused,
        // which ends the attempts and leaves no message.
        row("write, open drop: the repeated open is refused", false, "drop:FO-W", 3, {WriteOpen},
            {});
        row("read, open refused: never repeated", true, "status=52:FO-R", 3,
            {"Program number or segment number is in error. No program in the segment."}, {});
        row("write, segment deaf: lost", false, "deaf:FW:2", 0, {WriteSegment}, {1, 3});
        row("read, segment of the wrong length: lost", true, "length:FR:2", 0,
            {"Reading the Program 3 file fail. Error Code 2."}, {1, 3});
        row("read, segment late: the next reply waits behind it", true, "late=3000:FR:2", 0,
            {ReadSegment, ReadSegment}, {1});
        row("write, segment late: every retry of both levels fails", false, "late=3000:FW:2", 3,
            {WriteSegment, WriteSegment, WriteSegment, WriteSegment,
             "\nThe retry time of writing the Program 5 file is over 3 times.", "First retry.",
             WriteOpen, "Second retry.", WriteOpen, WriteOpen,
             "Write File retry time is over 3 times."},
            {Unchecked});
        row("write, segment refused: never repeated", false, "status=57:FW:2", 3,
            {"Seg2:Block data of File block WRITE is in error."}, {1, 3});
        row("read, close refused: not examined", true, "status=51:FC", 0, {}, all);
        // The segment's retries run out and the repeated open is refused.
        row("read, segment drop always", true, "drop:FR:2@always", 2,
            {ReadSegment, ReadSegment, ReadSegment,
             "The retry time of reading the Program 3 file is over 2 times."},
            {});
    }

    void faults()
    {
        QFETCH(bool, read);
        QFETCH(QString, rule);
        QFETCH(int, retries);
        QFETCH(QStringList, log);
        QFETCH(QList<int>, left);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        Simulator sim({"--baud", "0", "--programs", programs, "--save-on-exit", "--fault", rule});
        QVERIFY(sim.started());

        const int program = read ? ReadProgram : WriteProgram;
        const QString programFile = usb + QStringLiteral("/PROG_%1.txt").arg(program);
        const QString logFile =
            usb + QStringLiteral("/%1_PROG_%2_ERROR.txt").arg(read ? "READ" : "WRITE").arg(program);
        const ProgramStore samples = ProgramStore::samples();
        const QByteArray source = expectedProgramFile(samples, ReadProgram, {1, 2, 3});
        if (!read)
            QVERIFY(writeFile(programFile, source));

        const ToolRun run =
            runTool(transferArgs(read ? "read" : "write", sim.device(), program, 3, usb)
                        << "--retries" << QString::number(retries),
                    30);
        QVERIFY2(run.finished && run.status == QProcess::NormalExit, qPrintable(run.describe()));
        QVERIFY2(!run.err.contains("did not end"), qPrintable(run.describe()));
        QVERIFY2(run.exitCode == (log.isEmpty() ? 0 : 1), qPrintable(run.describe()));
        if (log.isEmpty()) {
            QVERIFY(!QFileInfo::exists(logFile));
        } else {
            QCOMPARE(QString::fromUtf8(readFile(logFile)),
                     (QStringList{QStringLiteral("Program 1:")} + log).join(QLatin1Char('\n')));
            QVERIFY2(run.err.contains(QStringLiteral("error log %1:").arg(logFile)) &&
                         run.err.contains(
                             QStringLiteral("the driver raised %1").arg(read ? "RE0" : "WE0")),
                     qPrintable(run.err));
        }
        if (!read) // a write never touches its file
            QCOMPARE(readFile(programFile), source);
        else if (left.isEmpty())
            QVERIFY(!QFileInfo::exists(programFile));
        else
            QCOMPARE(readFile(programFile), expectedProgramFile(samples, ReadProgram, left));

        QVERIFY(sim.stop());
        if (read || left.contains(Unchecked))
            return;
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        for (int s = 1; s <= 3; ++s) {
            QCOMPARE(saved.hasSegment(WriteProgram, s), left.contains(s));
            if (left.contains(s))
                QCOMPARE(saved.segment(WriteProgram, s), samples.segment(ReadProgram, s));
        }
    }
};

QTEST_GUILESS_MAIN(TestE2eFaults)
#include "tst_e2e_faults.moc"
