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

} // namespace

class ReadWorkflowTest : public QObject
{
    Q_OBJECT

private slots:
    // Program and segment numbers above 9 move the record one place each.
    void readsProgram()
    {
        WorkflowRig rig;
        scriptProgram(rig.port, 12, 10);
        rig.worker().readProgramFileProcess(12, 10, 1);
        QList<QByteArray> commands{"0100XFO,12,R,0"};
        QStringList events;
        for (int s = 1; s <= 10; ++s) {
            commands << "0100XFR,12," + QByteArray::number(s);
            events << QStringLiteral("read %1").arg(10 * s);
        }
        QCOMPARE(rig.port.sentCommands(), commands << "0100XFC,12");
        QCOMPARE(rig.events(), events << "RF 0");
        QCOMPARE(rig.files(), QStringList{"sd/PROG_12.txt"});
        QCOMPARE(fileBytes(rig.sdFile("PROG_12.txt")),
                 programFile(QList<QStringList>{header()} +
                             sampleRows({1, 2, 3, 4, 5, 6, 7, 8, 9, 10})));
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
        QTest::addColumn<QList<int>>("saved"); // the file's segments; none: no file
        auto row = [](const char* name, int retries, const char* command, int times, int opens,
                      int reads2, const QStringList& log, const QList<int>& saved) {
            QTest::newRow(name) << retries << QByteArray(command) << times << opens << reads2 << log
                                << saved;
        };
        const char* read2 = "0100XFR,1,2";
        row("0 retries: segment lost, the read goes on", 0, read2, 1, 1, 1, {ReadCode1}, {1, 3});
        row("2 retries: segment through at the last", 2, read2, 2, 1, 3, {ReadCode1, ReadCode1},
            {1, 2, 3});
        // The repeated attempt starts from an empty table: one header, each
        // segment once.
        row("1 retry: repeated attempt goes through", 1, read2, 2, 2, 3,
            {ReadCode1, ReadCode1, SegmentRetriesOver.arg(1)}, {1, 2, 3});
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
        QFETCH(QList<int>, saved);
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
                 saved.isEmpty() ? QByteArray("<missing>")
                                 : programFile(QList<QStringList>{header()} + sampleRows(saved)));
    }

    // Progress is truncated (66, not 67). The saver's messages reach the
    // user and the flag drops at once; the table is lost and no log is
    // written.
    void saveFails()
    {
        WorkflowRig rig;
        QVERIFY(QDir().mkpath(rig.usbFile("PROG_4.txt")));
        scriptProgram(rig.port, 4, 3);
        rig.worker().readProgramFileProcess(4, 3, 0);
        QCOMPARE(rig.events(),
                 (QStringList{"read 33", "read 66", "read 100",
                              "message DCP30: File cannot be opened.", "RF 0", "RF 0"}));
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
        QCOMPARE(rig.port.trace().filter("read "), // the last wait was cut short
                 (QStringList{"read 16", "read 200", "read 200"}));
        QCOMPARE(rig.events(), (QStringList{"read 3", "read 6", "RF 0"}));
        QVERIFY(rig.files().isEmpty());
    }
};

QTEST_GUILESS_MAIN(ReadWorkflowTest)
#include "tst_readworkflow.moc"
