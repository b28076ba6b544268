// The program read: controller program to "PROG_<id>.txt", retries on both
// levels with their exact number of commands, progress, flags, messages, the
// read error log, a failed save and abort. (A medium pulled before the save
// is the media suite's.)
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

#include <future>
#include <thread>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

namespace
{

const QString OpenCode1 = "Opening the Program 1 file fail. Error Code 1.";
const QString ReadCode1 = "Reading the Program 1 file fail. Error Code 1.";
const QString SegmentRetriesOver = "The retry time of reading the Program 1 file is over %1 times.";
const QString AttemptRetriesOver = "Read File retry time is over %1 times.";

// The controller holds segments 1..count of program; open and close are
// accepted. Rules added earlier take precedence.
void scriptProgram(ScriptedPort& port, int program, int count)
{
    port.addAnswer("0100XFO", Answer::withReply(status("00")), ScriptedPort::Forever);
    port.addAnswer("0100XFC", Answer::withReply(status("00")), ScriptedPort::Forever);
    for (int s = 1; s <= count; ++s)
        port.addAnswer(QStringLiteral("0100XFR,%1,%2").arg(program).arg(s).toLatin1(),
                       Answer::withReply(readReply(program, s, sampleRecord(s))),
                       ScriptedPort::Forever);
}

// The header and the sample rows of segments; none: no file.
QList<QStringList> table(std::initializer_list<int> segments)
{
    QList<QStringList> rows;
    for (int s : segments)
        rows << sampleRow(s);
    return rows.isEmpty() ? rows : QList<QStringList>{header()} + rows;
}

} // namespace

class ReadWorkflowTest : public QObject
{
    Q_OBJECT

private slots:
    void readsProgram_data()
    {
        QTest::addColumn<int>("waitPercent");
        QTest::addColumn<int>("program");
        QTest::addColumn<int>("storageType");
        QTest::addColumn<int>("segments");
        QTest::addColumn<QStringList>("progress");
        QTest::newRow("program 2, 3 segments, USB stick, real pace")
            << 100 << 2 << 0 << 3 << QStringList{"read 33", "read 66", "read 100"};
        QTest::newRow("program 12, 11 segments, SD card")
            << 1 << 12 << 1 << 11
            << QStringList{"read 9",  "read 18", "read 27", "read 36", "read 45", "read 54",
                           "read 63", "read 72", "read 81", "read 90", "read 100"};
    }
    void readsProgram()
    {
        QFETCH(int, waitPercent);
        QFETCH(int, program);
        QFETCH(int, storageType);
        QFETCH(int, segments);
        QFETCH(QStringList, progress);
        WorkflowRig rig(waitPercent);
        rig.port.setRetryCount(3);
        scriptProgram(rig.port, program, segments);
        rig.worker().readProgramFileProcess(program, segments, storageType);

        const QByteArray p = QByteArray::number(program);
        QList<QByteArray> commands{"0100XFO," + p + ",R,0"};
        QList<QStringList> rows{header()};
        for (int s = 1; s <= segments; ++s) {
            commands << "0100XFR," + p + ',' + QByteArray::number(s);
            rows << sampleRow(s);
        }
        QCOMPARE(rig.port.sentCommands(), commands << "0100XFC," + p);
        QCOMPARE(rig.events(), progress << "RF 0");
        const QString name = QStringLiteral("PROG_%1.txt").arg(program);
        QCOMPARE(rig.files(), QStringList{(storageType ? "sd/" : "usb/") + name});
        QCOMPARE(fileBytes(storageType ? rig.sdFile(name) : rig.usbFile(name)), programFile(rows));
    }

    // Program 1 of three segments with one command unanswered `times` times:
    // how often each command goes out, the log and the file that is left.
    // (Refusals and other failures are rows of the end-to-end fault matrix.)
    void failures_data()
    {
        QTest::addColumn<int>("retries");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<int>("times"); // -1: every time
        QTest::addColumn<int>("opens");
        QTest::addColumn<int>("reads2"); // of segment 2
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QList<QStringList>>("saved"); // empty: no file
        auto row = [](const char* name, int retries, const char* command, int times, int opens,
                      int reads2, const QStringList& log, const QList<QStringList>& saved) {
            QTest::newRow(name) << retries << QByteArray(command) << times << opens << reads2 << log
                                << saved;
        };
        const char* read2 = "0100XFR,1,2";
        row("0 retries: segment lost, the read goes on", 0, read2, 1, 1, 1, {ReadCode1},
            table({1, 3}));
        row("2 retries: segment through at the last", 2, read2, 2, 1, 3, {ReadCode1, ReadCode1},
            table({1, 2, 3}));
        // The repeated attempt starts from an empty table: one header, each
        // segment once.
        row("1 retry: repeated attempt goes through", 1, read2, 2, 2, 3,
            {ReadCode1, ReadCode1, SegmentRetriesOver.arg(1)}, table({1, 2, 3}));
        row("2 retries: segment never through", 2, read2, -1, 3, 9,
            {ReadCode1, ReadCode1, ReadCode1, SegmentRetriesOver.arg(2), "First retry.", ReadCode1,
             ReadCode1, ReadCode1, SegmentRetriesOver.arg(2), ReadCode1, ReadCode1, ReadCode1,
             SegmentRetriesOver.arg(2), AttemptRetriesOver.arg(2)},
            {});
        row("4 retries: open never through, labelled repeats", 4, "0100XFO", -1, 5, 0,
            {OpenCode1, "First retry.", OpenCode1, "Second retry.", OpenCode1, "3 st retry.",
             OpenCode1, OpenCode1, AttemptRetriesOver.arg(4)},
            {});
    }
    void failures()
    {
        QFETCH(int, retries);
        QFETCH(QByteArray, command);
        QFETCH(int, times);
        QFETCH(QList<QStringList>, saved);
        WorkflowRig rig;
        rig.port.setRetryCount(retries);
        rig.port.addAnswer(command, Answer::noReply(), times < 0 ? ScriptedPort::Forever : times);
        scriptProgram(rig.port, 1, 3);
        rig.worker().readProgramFileProcess(1, 3, 0);

        const QList<QByteArray> sent = rig.port.sentCommands();
        QTEST(sent.count("0100XFO,1,R,0"), "opens");
        QTEST(sent.count("0100XFR,1,2"), "reads2");
        QCOMPARE(sent.count("0100XFC,1"), saved.isEmpty() ? 0 : 1);
        QCOMPARE(rig.events().filter(QRegularExpression("^R[EF] ")), (QStringList{"RF 0", "RE 1"}));
        QFETCH(QStringList, log);
        QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")), logText(log));
        QCOMPARE(fileBytes(rig.usbFile("PROG_1.txt")),
                 saved.isEmpty() ? QByteArray("<missing>") : programFile(saved));
    }

    // The saver's messages reach the user and the flag drops at once; the
    // table is lost and no log is written.
    void saveFails()
    {
        WorkflowRig rig;
        QVERIFY(QDir().mkpath(rig.usbFile("PROG_4.txt")));
        scriptProgram(rig.port, 4, 2);
        rig.worker().readProgramFileProcess(4, 2, 0);
        QCOMPARE(rig.events(),
                 (QStringList{"read 50", "read 100", "message DCP30: File cannot be opened.",
                              "RF 0", "RF 0"}));
        QVERIFY(!QFile::exists(rig.usbFile("READ_PROG_4_ERROR.txt")));
    }

    // At the real pace, the read running in a thread of its own as the
    // driver runs it: the driver's take-down asks the worker to stop right
    // after segment 3 was asked for. Nothing more goes on the line, nothing
    // is saved or logged, and the read reports its end.
    void abortEndsTransfer()
    {
        WorkflowRig rig(100);
        rig.port.setRetryCount(3);
        scriptProgram(rig.port, 1, 2); // segment 3 has no rule
        std::promise<void> reached, aborted;
        std::shared_future<void> abortDone = aborted.get_future().share();
        rig.port.setResponder([&reached, abortDone](const QByteArray&) {
            reached.set_value();
            abortDone.wait(); // the reply comes once the abort was asked for
            return Answer::withReply(readReply(1, 3, sampleRecord(3)));
        });
        std::thread transfer([&rig] { rig.worker().readProgramFileProcess(1, 30, 0); });
        reached.get_future().wait();
        rig.worker().requestAbort();
        aborted.set_value();
        transfer.join();
        QCOMPARE(rig.port.sentCommands(),
                 (QList<QByteArray>{"0100XFO,1,R,0", "0100XFR,1,1", "0100XFR,1,2", "0100XFR,1,3"}));
        QCOMPARE(rig.port.readLimits(), (QList<int>{16, 200, 200})); // the wait was cut short
        QCOMPARE(rig.events(), (QStringList{"read 3", "read 6", "RF 0"}));
        QVERIFY(rig.files().isEmpty());
    }

    // Where single precision falls short of the exact value, the panel shows
    // the lower number, as it always has.
    void progressInSinglePrecision()
    {
        const QList<QList<int>> cases{{1, 3, 33}, {2, 3, 66},    {3, 3, 100},
                                      {1, 30, 3}, {53, 100, 52}, {59, 100, 58}};
        for (const QList<int>& c : cases)
            QCOMPARE(int(FileAccessor::progressPercent(c[0], c[1])), c[2]);
    }
};

QTEST_GUILESS_MAIN(ReadWorkflowTest)
#include "tst_readworkflow.moc"
