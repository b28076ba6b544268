// The program write: "PROG_<id>.txt" to the controller, row checks, the
// write's own retry messages (both retry levels are shared with the read and
// tabled there), progress, flags, the loader's failures, the write error log,
// a read-back round trip through the simulated controller, and abort.
#include "sim/controllerengine.h"
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

Q_DECLARE_METATYPE(ScriptedPort::Answer)

namespace
{

const QList<int> Parameters{-1999, 9999, 0, 0, 0}; // SP1 limits; events of no specific kind
const QString Code22 = "Write File Fail. Error Code 22.";
const QString NoTimeColon = "The format of TM is incorrect. There is no \":\" symbol.";

QList<QStringList> sampleRows(int count)
{
    QList<QStringList> rows;
    for (int s = 1; s <= count; ++s)
        rows << sampleRow(s);
    return rows;
}

// Row s with one cell replaced.
QStringList changedRow(int segment, int column, const QString& cell)
{
    QStringList r = sampleRow(segment);
    r[column] = cell;
    return r;
}

QByteArray writeCommand(int program, int segment)
{
    return "0100XFW," + QByteArray::number(program) + ',' + QByteArray::number(segment) + ',' +
           sampleRecord(segment);
}

// A rig whose medium (USB stick or SD card) holds "PROG_<program>.txt" with
// the header and rows, and whose controller accepts every command that no
// rule answers.
struct WriteRig : WorkflowRig {
    explicit WriteRig(const QList<QStringList>& rows, int program = 1, int storage = 0,
                      int waitPercent = 1)
        : WorkflowRig(waitPercent)
    {
        const QString name = QStringLiteral("PROG_%1.txt").arg(program);
        writeBytes(storage ? sdFile(name) : usbFile(name),
                   programFile(QList<QStringList>{header()} + rows));
        port.setDefaultAnswer(Answer::withReply(status("00")));
    }
};

} // namespace

class WriteWorkflowTest : public QObject
{
    Q_OBJECT

private slots:
    void writesProgram_data()
    {
        QTest::addColumn<int>("waitPercent");
        QTest::addColumn<int>("program");
        QTest::addColumn<int>("storageType");
        QTest::addColumn<int>("segments");
        QTest::addColumn<QStringList>("progress");
        QTest::newRow("program 2, 3 segments, USB stick, real pace")
            << 100 << 2 << 0 << 3 << progressEvents("write", {33, 66, 100});
        QTest::newRow("program 12, 11 segments, SD card")
            << 1 << 12 << 1 << 11
            << progressEvents("write", {9, 18, 27, 36, 45, 54, 63, 72, 81, 90, 100});
    }
    void writesProgram()
    {
        QFETCH(int, waitPercent);
        QFETCH(int, program);
        QFETCH(int, storageType);
        QFETCH(int, segments);
        QFETCH(QStringList, progress);
        WriteRig rig(sampleRows(segments), program, storageType, waitPercent);
        rig.port.setRetryCount(3);
        rig.worker().writeProgramFileProcess(Parameters, program, segments, storageType);

        const QByteArray p = QByteArray::number(program);
        QList<QByteArray> commands{"0100XFO," + p + ",W,0"};
        for (int s = 1; s <= segments; ++s)
            commands << writeCommand(program, s);
        QCOMPARE(rig.port.sentCommands(), commands << "0100XFC," + p);
        QCOMPARE(rig.events(), progress << "WF 0");
        QCOMPARE(rig.files().size(), 1); // the program file alone: no log
    }

    void rowChecks_data()
    {
        QTest::addColumn<QList<QStringList>>("rows");
        QTest::addColumn<int>("segments");
        QTest::addColumn<QList<int>>("written");
        QTest::addColumn<QStringList>("progress");
        QTest::addColumn<QStringList>("log"); // empty: no log
        QTest::newRow("fewer rows than segments")
            << sampleRows(3) << 5 << QList<int>{1, 2, 3} << progressEvents("write", {33, 66, 100})
            << QStringList{"Segment 4 has no data in the csv file. Please check it.",
                           "Segment 5 has no data in the csv file. Please check it."};
        QTest::newRow("rows beyond the count ignored")
            << sampleRows(3) + QList<QStringList>{changedRow(4, 2, "x")} << 2 << QList<int>{1, 2}
            << progressEvents("write", {50, 100}) << QStringList{};
        QStringList twoProblems = changedRow(2, 1, "10000");
        twoProblems[19] = "9";
        QTest::newRow("row 2 of 3 fails its checks, every problem in column order")
            << QList<QStringList>{sampleRow(1), twoProblems, sampleRow(3)} << 3 << QList<int>{1, 3}
            << progressEvents("write", {50, 100})
            << QStringList{"\n\tSegment 2 has following format error : ",
                           "\t\tSP1 [10000] is out of range (-1999 ~ 9999).",
                           "\t\tPID1 [9] is out of range (0 ~ 8)."};
        QTest::newRow("all rows invalid: opened and closed, nothing written")
            << QList<QStringList>{changedRow(1, 2, "1.30"), changedRow(2, 2, "----")} << 2
            << QList<int>{} << QStringList{}
            << QStringList{"\n\tSegment 1 has following format error : ", "\t\t" + NoTimeColon,
                           "\n\tSegment 2 has following format error : ", "\t\t" + NoTimeColon,
                           "\nThere is no data to write out. Maybe the format of all segments "
                           "are incorrect."};
    }
    void rowChecks()
    {
        QFETCH(QList<QStringList>, rows);
        QFETCH(int, segments);
        QFETCH(QList<int>, written);
        QFETCH(QStringList, progress);
        QFETCH(QStringList, log);
        WriteRig rig(rows);
        rig.port.setRetryCount(2);
        rig.worker().writeProgramFileProcess(Parameters, 1, segments, 0);

        QList<QByteArray> commands{"0100XFO,1,W,0"};
        for (int s : written)
            commands << writeCommand(1, s);
        QCOMPARE(rig.port.sentCommands(), commands << "0100XFC,1");
        QCOMPARE(rig.events(), progress + QStringList{"WF 0"} +
                                   (log.isEmpty() ? QStringList{} : QStringList{"WE 1"}));
        QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")),
                 log.isEmpty() ? QByteArray("<missing>") : logText(log));
    }

    // Program 1 of three valid rows with one command failing for good and
    // one retry: the segment's retries used up end the attempt without
    // closing the file, and the repeated attempt meets the same fate. (A
    // single failure, refusals and the labels of repeated attempts are the
    // read suite's and the end-to-end fault matrix's.)
    void failures_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<Answer>("answer");
        QTest::addColumn<int>("opens");
        QTest::addColumn<int>("writes2"); // of segment 2
        QTest::addColumn<QStringList>("log");
        const QString code11 = "Opening the Program 1 file fail. Error Code 11.";
        const QString segmentOver =
            "\nThe retry time of writing the Program 1 file is over 1 times.";
        const QString attemptOver = "Write File retry time is over 1 times.";
        QTest::newRow("segment 2")
            << writeCommand(1, 2) << Answer::shortWrite(7) << 2 << 4
            << QStringList{Code22, Code22, segmentOver, Code22, Code22, segmentOver, attemptOver};
        QTest::newRow("open") << QByteArray("0100XFO")
                              << Answer::withReply(ScriptedPort::framed("0100x00")) << 2 << 0
                              << QStringList{code11, code11, attemptOver};
    }
    void failures()
    {
        QFETCH(QByteArray, command);
        QFETCH(Answer, answer);
        QFETCH(QStringList, log);
        WriteRig rig(sampleRows(3));
        rig.port.setRetryCount(1);
        rig.port.addAnswer(command, answer, ScriptedPort::Forever);
        rig.worker().writeProgramFileProcess(Parameters, 1, 3, 0);

        const QList<QByteArray> sent = rig.port.sentCommands();
        QTEST(countOf(sent, "0100XFO,1,W,0"), "opens");
        QTEST(countOf(sent, writeCommand(1, 2)), "writes2");
        QCOMPARE(countOf(sent, writeCommand(1, 3)) + countOf(sent, "0100XFC,1"), 0);
        QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")), logText(log));
        QCOMPARE(rig.events("W"), (QStringList{"WF 0", "WE 1"}));
    }

    void loaderFailure_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no file
        QTest::addColumn<QString>("message");
        QTest::newRow("no program file")
            << QByteArray() << "File cannot be opened.\nPlease select the right file.";
        QTest::newRow("header only")
            << programFile({header()}) << "No content found in the imported file.";
    }
    // Nothing goes to the controller, the loader's messages go to the user,
    // and no log is written: the user is told directly. The loader stays for
    // the next write.
    void loaderFailure()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        WorkflowRig rig;
        const QString file = rig.usbFile("PROG_3.txt");
        if (!content.isNull())
            QVERIFY(writeBytes(file, content));
        rig.port.setDefaultAnswer(Answer::withReply(status("00")));
        FileAccessor& worker = rig.worker();
        worker.writeProgramFileProcess(Parameters, 3, 2, 0);
        QVERIFY(rig.port.trace().isEmpty());
        QCOMPARE(rig.events(), (QStringList{"message DCP30: " + message, "WF 0"}));
        QCOMPARE(rig.centre.texts(), QStringList{message});
        QVERIFY(!QFile::exists(rig.usbFile("WRITE_PROG_3_ERROR.txt")));

        KCSVLoader* const loader = worker.csvLoader;
        QVERIFY(writeBytes(file, programFile({header(), sampleRow(1)})));
        worker.writeProgramFileProcess(Parameters, 3, 1, 0);
        QCOMPARE(worker.csvLoader, loader);
        QCOMPARE(rig.port.sentCommands(),
                 (QList<QByteArray>{"0100XFO,3,W,0", writeCommand(3, 1), "0100XFC,3"}));
    }

    // A segment the controller refuses during a read keeps its row in the
    // file; written back unchanged, that row is reported as a format error
    // and every other segment goes back to its own number.
    void refusedSegmentReadAndWrittenBack()
    {
        WorkflowRig rig;
        ControllerEngine controller; // sample program 1, default limits and event kinds
        const ProgramStore before = controller.programs();
        const int segments = before.segmentCount(1);
        QVERIFY(segments >= 4);
        FaultRule refuse;
        QString error;
        QVERIFY2(FaultRule::parse("status=52:FR:3", &refuse, &error), qPrintable(error));
        controller.addFault(refuse);
        rig.port.setResponder([&controller](const QByteArray& frame) {
            return Answer::withReply(controller.feed(frame));
        });

        rig.worker().readProgramFileProcess(1, segments, 0);
        const QList<int> parameters{-1999, 9999, 0, 4, 50}; // what the controller holds
        rig.worker().writeProgramFileProcess(parameters, 1, segments, 0);
        QList<QByteArray> written;
        for (const QByteArray& command : rig.port.sentCommands()) {
            if (command.startsWith("0100XFW"))
                written << command.left(command.lastIndexOf(','));
        }
        QList<QByteArray> expected;
        for (int s = 1; s <= segments; ++s) {
            if (s != 3)
                expected << "0100XFW,1," + QByteArray::number(s);
        }
        QCOMPARE(written, expected);
        // Every record went back to its own segment. (Segment 3 itself is the
        // controller's business: this one drops what lies above a segment
        // being written until it is written again.)
        for (int s = 1; s <= segments; ++s) {
            if (s != 3)
                QCOMPARE(controller.programs().segment(1, s), before.segment(1, s));
        }
        // Segment 3 alone is reported, its missing TIME first.
        const QString log = QString::fromUtf8(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")));
        const QByteArray start =
            logText({"\n\tSegment 3 has following format error : ", "\t\t" + NoTimeColon});
        QVERIFY2(log.startsWith(start) && log.count("Segment") == 1, qPrintable(log));
    }

    // At the real pace: the driver's take-down asks the worker, from another
    // thread, to stop while segment 2 is being written; nothing more goes on
    // the line and no log is written.
    void abortEndsTransfer()
    {
        WriteRig rig(sampleRows(5), 1, 0, 100);
        rig.port.setRetryCount(3);
        rig.port.addAnswer("0100XFO", Answer::withReply(status("00")));
        rig.port.addAnswer("0100XFW,1,1", Answer::withReply(status("00")));
        FileAccessor& worker = rig.worker();
        rig.abortAtUnscriptedCommand(
            [&worker] { worker.writeProgramFileProcess(Parameters, 1, 5, 0); },
            Answer::withReply(status("00")));
        QCOMPARE(rig.port.sentCommands(),
                 (QList<QByteArray>{"0100XFO,1,W,0", writeCommand(1, 1), writeCommand(1, 2)}));
        QCOMPARE(rig.events(), (QStringList{"write 20", "WF 0"}));
        QCOMPARE(rig.files(), QStringList{"usb/PROG_1.txt"});
    }
};

QTEST_GUILESS_MAIN(WriteWorkflowTest)
#include "tst_writeworkflow.moc"
