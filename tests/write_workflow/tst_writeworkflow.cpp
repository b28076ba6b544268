// The program write: "PROG_<id>.txt" to the controller, row checks, retries
// on both levels with their exact number of commands, progress, flags, the
// loader's failures, the write error log, a read-back round trip through the
// simulated controller, and abort.
#include "sim/controllerengine.h"
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

namespace
{

const QList<int> Parameters{-1999, 9999, 0, 0, 0}; // SP1 limits; events of no specific kind
const QString Code22 = "Write File Fail. Error Code 22.";
const QString SegmentRetriesOver =
    "\nThe retry time of writing the Program 1 file is over %1 times.";
const QString AttemptRetriesOver = "Write File retry time is over %1 times.";
const QString NoTimeColon = "The format of TM is incorrect. There is no \":\" symbol.";

// Row s with one cell replaced.
QStringList changedRow(int segment, int column, const QString& cell)
{
    QStringList r = sampleRow(segment);
    r[column] = cell;
    return r;
}

QList<QStringList> sampleRows(int count)
{
    QList<QStringList> rows;
    for (int s = 1; s <= count; ++s)
        rows << sampleRow(s);
    return rows;
}

QByteArray writeCommand(int program, int segment)
{
    return "0100XFW," + QByteArray::number(program) + ',' + QByteArray::number(segment) + ',' +
           sampleRecord(segment);
}

void acceptEverything(ScriptedPort& port)
{
    port.setDefaultAnswer(Answer::withReply(status("00")));
}

} // namespace

class WriteWorkflowTest : public QObject
{
    Q_OBJECT

private slots:
    void writesProgram_data();
    void writesProgram();
    void rowChecks_data();
    void rowChecks();
    void segmentRetries_data();
    void segmentRetries();
    void attemptRetries_data();
    void attemptRetries();
    void refusals_data();
    void refusals();
    void loaderFailure_data();
    void loaderFailure();
    void loaderKeptForLaterWrites();
    void mediumGoneAtLogTime();
    void refusedSegmentReadAndWrittenBack();
    void abortEndsTransfer();
};

void WriteWorkflowTest::writesProgram_data()
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

void WriteWorkflowTest::writesProgram()
{
    QFETCH(int, waitPercent);
    QFETCH(int, program);
    QFETCH(int, storageType);
    QFETCH(int, segments);
    QFETCH(QStringList, progress);
    WorkflowRig rig(waitPercent);
    QVERIFY(rig.isValid());
    const QString name = QStringLiteral("PROG_%1.txt").arg(program);
    QVERIFY(writeBytes(storageType ? rig.sdFile(name) : rig.usbFile(name),
                       programFile(QList<QStringList>{header()} + sampleRows(segments))));
    rig.port.setRetryCount(3);
    acceptEverything(rig.port);
    rig.worker().writeProgramFileProcess(Parameters, program, segments, storageType);

    QList<QByteArray> frames{
        ScriptedPort::framed("0100XFO," + QByteArray::number(program) + ",W,0")};
    QList<int> limits{16};
    for (int s = 1; s <= segments; ++s) {
        frames << ScriptedPort::framed(writeCommand(program, s));
        limits << 200;
    }
    frames << ScriptedPort::framed("0100XFC," + QByteArray::number(program));
    limits << 16;
    QCOMPARE(rig.port.sentFrames(), frames);
    QCOMPARE(rig.port.readLimits(), limits);
    QCOMPARE(rig.port.unpreparedWrites(), 0);
    QCOMPARE(rig.events(), progress + QStringList{"WF 0"});
    QCOMPARE(rig.files().size(), 1); // the program file alone: no log
}

void WriteWorkflowTest::rowChecks_data()
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
    QTest::newRow("row 2 of 3 fails its checks")
        << QList<QStringList>{sampleRow(1), changedRow(2, 1, "10000"), sampleRow(3)} << 3
        << QList<int>{1, 3} << progressEvents("write", {50, 100})
        << QStringList{"\n\tSegment 2 has following format error : ",
                       "\t\tSP1 [10000] is out of range (-1999 ~ 9999)."};
    QList<QStringList> twoProblems = sampleRows(2);
    twoProblems[0][1] = "-2000";
    twoProblems[0][19] = "9";
    QTest::newRow("every problem of a row, in column order")
        << twoProblems << 2 << QList<int>{2} << progressEvents("write", {100})
        << QStringList{"\n\tSegment 1 has following format error : ",
                       "\t\tSP1 [-2000] is out of range (-1999 ~ 9999).",
                       "\t\tPID1 [9] is out of range (0 ~ 8)."};
    QTest::newRow("all rows invalid")
        << QList<QStringList>{changedRow(1, 2, "1.30"), changedRow(2, 2, "----")} << 2
        << QList<int>{} << QStringList{}
        << QStringList{"\n\tSegment 1 has following format error : ", "\t\t" + NoTimeColon,
                       "\n\tSegment 2 has following format error : ", "\t\t" + NoTimeColon,
                       "\nThere is no data to write out. Maybe the format of all segments are "
                       "incorrect."};
}

void WriteWorkflowTest::rowChecks()
{
    QFETCH(QList<QStringList>, rows);
    QFETCH(int, segments);
    QFETCH(QList<int>, written);
    QFETCH(QStringList, progress);
    QFETCH(QStringList, log);
    WorkflowRig rig;
    QVERIFY(
        writeBytes(rig.usbFile("PROG_1.txt"), programFile(QList<QStringList>{header()} + rows)));
    rig.port.setRetryCount(2);
    acceptEverything(rig.port);
    rig.worker().writeProgramFileProcess(Parameters, 1, segments, 0);

    QList<QByteArray> commands{"0100XFO,1,W,0"};
    for (int s : written)
        commands << writeCommand(1, s);
    commands << "0100XFC,1"; // closed even when nothing was written
    QCOMPARE(rig.port.sentCommands(), commands);
    QCOMPARE(rig.events(), progress + QStringList{"WF 0"} +
                               (log.isEmpty() ? QStringList{} : QStringList{"WE 1"}));
    QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")),
             log.isEmpty() ? QByteArray("<missing>") : logText(log));
}

void WriteWorkflowTest::segmentRetries_data()
{
    QTest::addColumn<int>("retries");
    QTest::addColumn<int>("failures"); // short writes of segment 2; -1: every time
    QTest::addColumn<int>("opens");
    QTest::addColumn<int>("writes2");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<bool>("completed"); // segment 3 written and the file closed
    QTest::newRow("0 retries: segment lost, write goes on")
        << 0 << 1 << 1 << 1 << QStringList{Code22} << true;
    QTest::newRow("1 retry, 1 failure") << 1 << 1 << 1 << 2 << QStringList{Code22} << true;
    QTest::newRow("2 retries, 2 failures")
        << 2 << 2 << 1 << 3 << QStringList{Code22, Code22} << true;
    QTest::newRow("3 retries, 3 failures")
        << 3 << 3 << 1 << 4 << QStringList{Code22, Code22, Code22} << true;
    QTest::newRow("1 retry, always failing") << 1 << -1 << 2 << 4
                                             << QStringList{Code22,
                                                            Code22,
                                                            SegmentRetriesOver.arg(1),
                                                            Code22,
                                                            Code22,
                                                            SegmentRetriesOver.arg(1),
                                                            AttemptRetriesOver.arg(1)}
                                             << false;
    QTest::newRow("2 retries, always failing") << 2 << -1 << 3 << 9
                                               << QStringList{Code22,
                                                              Code22,
                                                              Code22,
                                                              SegmentRetriesOver.arg(2),
                                                              "First retry.",
                                                              Code22,
                                                              Code22,
                                                              Code22,
                                                              SegmentRetriesOver.arg(2),
                                                              Code22,
                                                              Code22,
                                                              Code22,
                                                              SegmentRetriesOver.arg(2),
                                                              AttemptRetriesOver.arg(2)}
                                               << false;
}

void WriteWorkflowTest::segmentRetries()
{
    QFETCH(int, retries);
    QFETCH(int, failures);
    QFETCH(int, opens);
    QFETCH(int, writes2);
    QFETCH(QStringList, log);
    QFETCH(bool, completed);
    WorkflowRig rig;
    QVERIFY(writeBytes(rig.usbFile("PROG_1.txt"),
                       programFile(QList<QStringList>{header()} + sampleRows(3))));
    rig.port.setRetryCount(retries);
    rig.port.addAnswer("0100XFW,1,2", Answer::shortWrite(7),
                       failures < 0 ? ScriptedPort::Forever : failures);
    acceptEverything(rig.port);
    rig.worker().writeProgramFileProcess(Parameters, 1, 3, 0);

    const QList<QByteArray> sent = rig.port.sentCommands();
    QCOMPARE(countOf(sent, "0100XFO,1,W,0"), opens);
    QCOMPARE(countOf(sent, writeCommand(1, 1)), opens);
    QCOMPARE(countOf(sent, writeCommand(1, 2)), writes2);
    QCOMPARE(countOf(sent, writeCommand(1, 3)), completed ? 1 : 0);
    QCOMPARE(countOf(sent, "0100XFC,1"), completed ? 1 : 0);
    QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")), logText(log));
    QCOMPARE(rig.events("WE"), QStringList{"WE 1"});
    QCOMPARE(rig.events("write").last(), completed ? QString("write 100") : QString("write 33"));
}

void WriteWorkflowTest::attemptRetries_data()
{
    QTest::addColumn<int>("retries");
    QTest::addColumn<QStringList>("log");
    const QString code11 = "Opening the Program 1 file fail. Error Code 11.";
    QTest::newRow("0 retries") << 0 << QStringList{code11};
    QTest::newRow("3 retries")
        << 3 << QStringList{code11, "First retry.",           code11, "Second retry.", code11,
                            code11, AttemptRetriesOver.arg(3)};
    QTest::newRow("4 retries") << 4
                               << QStringList{
                                      code11,          "First retry.", code11,
                                      "Second retry.", code11,         "3 st retry.",
                                      code11,          code11,         AttemptRetriesOver.arg(4)};
}

void WriteWorkflowTest::attemptRetries()
{
    QFETCH(int, retries);
    QFETCH(QStringList, log);
    WorkflowRig rig;
    QVERIFY(writeBytes(rig.usbFile("PROG_1.txt"),
                       programFile(QList<QStringList>{header()} + sampleRows(2))));
    rig.port.setRetryCount(retries);
    rig.port.setDefaultAnswer(Answer::withReply(ScriptedPort::framed("0100x00"))); // garbled
    rig.worker().writeProgramFileProcess(Parameters, 1, 2, 0);
    QList<QByteArray> opens;
    for (int attempt = 0; attempt <= retries; ++attempt)
        opens << "0100XFO,1,W,0";
    QCOMPARE(rig.port.sentCommands(), opens);
    QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")), logText(log));
    QCOMPARE(rig.events(), (QStringList{"WF 0", "WE 1"}));
}

void WriteWorkflowTest::refusals_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("code");
    QTest::addColumn<QList<QByteArray>>("sent");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QString>("message");
    QTest::newRow("open refused: nothing checked, written or closed")
        << QByteArray("0100XFO") << QByteArray("59") << QList<QByteArray>{"0100XFO,1,W,0"}
        << QStringList{"WF 0", "WE 1"}
        << "File OPEN, File block WRITE and File DELETE are inhibited.";
    QTest::newRow("segment refused: not repeated, the write goes on")
        << QByteArray("0100XFW,1,2") << QByteArray("57")
        << QList<QByteArray>{"0100XFO,1,W,0", writeCommand(1, 1), writeCommand(1, 2),
                             writeCommand(1, 3), "0100XFC,1"}
        << progressEvents("write", {33, 66, 100}) + QStringList{"WF 0", "WE 1"}
        << "Seg2:Block data of File block WRITE is in error.";
}

void WriteWorkflowTest::refusals()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, code);
    QFETCH(QList<QByteArray>, sent);
    QFETCH(QStringList, events);
    QFETCH(QString, message);
    WorkflowRig rig;
    QVERIFY(writeBytes(rig.usbFile("PROG_1.txt"),
                       programFile(QList<QStringList>{header()} + sampleRows(3))));
    rig.port.setRetryCount(3);
    rig.port.addAnswer(command, Answer::withReply(status(code)));
    acceptEverything(rig.port);
    rig.worker().writeProgramFileProcess(Parameters, 1, 3, 0);
    QCOMPARE(rig.port.sentCommands(), sent);
    QCOMPARE(rig.events(), events);
    QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")), logText({message}));
}

void WriteWorkflowTest::loaderFailure_data()
{
    QTest::addColumn<QByteArray>("content"); // null: no file
    QTest::addColumn<QString>("message");
    QTest::newRow("no program file")
        << QByteArray() << "File cannot be opened.\nPlease select the right file.";
    QTest::newRow("empty file") << QByteArray("") << "No content found in the imported file.";
    QTest::newRow("header only") << programFile({header()})
                                 << "No content found in the imported file.";
}

// Nothing goes to the controller, the loader's messages go to the user, and
// no log is written: the user is told directly.
void WriteWorkflowTest::loaderFailure()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    WorkflowRig rig;
    if (!content.isNull())
        QVERIFY(writeBytes(rig.usbFile("PROG_3.txt"), content));
    acceptEverything(rig.port);
    rig.worker().writeProgramFileProcess(Parameters, 3, 2, 0);
    QVERIFY(rig.port.events().isEmpty());
    QCOMPARE(rig.events(), (QStringList{"message DCP30: " + message, "WF 0"}));
    QCOMPARE(rig.centre.texts(), QStringList{message});
    QVERIFY(!QFile::exists(rig.usbFile("WRITE_PROG_3_ERROR.txt")));
}

void WriteWorkflowTest::loaderKeptForLaterWrites()
{
    WorkflowRig rig;
    acceptEverything(rig.port);
    FileAccessor& worker = rig.worker();
    QVERIFY(!worker.csvLoader);
    worker.writeProgramFileProcess(Parameters, 3, 1, 0); // no file yet
    KCSVLoader* const first = worker.csvLoader;
    QVERIFY(first);
    QVERIFY(writeBytes(rig.usbFile("PROG_3.txt"), programFile({header(), sampleRow(1)})));
    worker.writeProgramFileProcess(Parameters, 3, 1, 0);
    QCOMPARE(worker.csvLoader, first);
    QCOMPARE(rig.port.sentCommands(),
             (QList<QByteArray>{"0100XFO,3,W,0", writeCommand(3, 1), "0100XFC,3"}));
}

void WriteWorkflowTest::mediumGoneAtLogTime()
{
    WorkflowRig rig;
    QVERIFY(writeBytes(rig.usbFile("PROG_1.txt"),
                       programFile(QList<QStringList>{header()} + sampleRows(2))));
    rig.port.addAnswer("0100XFO", Answer::withReply(status("00")));
    rig.port.addAnswer("0100XFW", Answer::withReply(status("00")), 2);
    rig.port.setResponder([&rig](const QByteArray&) { // the close
        rig.pullUsbStick();
        return Answer::withReply(status("00"));
    });
    rig.worker().writeProgramFileProcess(Parameters, 1, 3, 0);
    QCOMPARE(rig.port.sentCommands().size(), 4);
    const QStringList ending{"WF 0", "WE 1",
                             "message DCP30: The system can't not detect the USB Stick."};
    QCOMPARE(rig.events(), progressEvents("write", {50, 100}) + ending);
    QVERIFY(rig.files().isEmpty());
}

// A segment the controller refuses during a read keeps its row in the file;
// written back unchanged, that row is reported as a format error and every
// other segment goes back to its own number.
void WriteWorkflowTest::refusedSegmentReadAndWrittenBack()
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
    QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")),
             logText({"Seg3:Program number or segment number is in error. No program in the "
                      "segment."}));

    const QList<int> parameters{-1999, 9999, 0, 4, 50}; // what the controller holds
    rig.worker().writeProgramFileProcess(parameters, 1, segments, 0);
    QStringList written;
    for (const QByteArray& command : rig.port.sentCommands()) {
        if (command.startsWith("0100XFW"))
            written << QString::fromLatin1(command.left(command.lastIndexOf(',')));
    }
    QStringList expected;
    for (int s = 1; s <= segments; ++s) {
        if (s != 3)
            expected << QStringLiteral("0100XFW,1,%1").arg(s);
    }
    QCOMPARE(written, expected);
    // Every record went back to its own segment. (Segment 3 itself is the
    // controller's business: this one drops what lies above a segment being
    // written until it is written again.)
    for (int s = 1; s <= segments; ++s) {
        if (s != 3)
            QCOMPARE(controller.programs().segment(1, s), before.segment(1, s));
    }
    const QStringList log = QString::fromUtf8(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")))
                                .split(QLatin1Char('\n'));
    QVERIFY2(log.size() >= 4, qPrintable(log.join('|')));
    QCOMPARE(log.mid(0, 4), (QStringList{"Program 1:", "",
                                         "\tSegment 3 has following format "
                                         "error : ",
                                         "\t\t" + NoTimeColon}));
    QVERIFY(!log.join('\n').contains("Segment 2 ") && !log.join('\n').contains("Segment 4 "));
}

// At the real pace: the driver's take-down asks the worker, from another
// thread, to stop while segment 2 is being written; nothing more goes on the
// line and no log is written.
void WriteWorkflowTest::abortEndsTransfer()
{
    WorkflowRig rig(100);
    QVERIFY(writeBytes(rig.usbFile("PROG_1.txt"),
                       programFile(QList<QStringList>{header()} + sampleRows(5))));
    rig.port.setRetryCount(3);
    rig.port.addAnswer("0100XFO", Answer::withReply(status("00")));
    rig.port.addAnswer("0100XFW,1,1", Answer::withReply(status("00")));
    FileAccessor& worker = rig.worker();
    rig.abortAtUnscriptedCommand([&worker] { worker.writeProgramFileProcess(Parameters, 1, 5, 0); },
                                 Answer::withReply(status("00")));
    QCOMPARE(rig.port.sentCommands(),
             (QList<QByteArray>{"0100XFO,1,W,0", writeCommand(1, 1), writeCommand(1, 2)}));
    QCOMPARE(rig.events(), (QStringList{"write 20", "WF 0"}));
    QCOMPARE(rig.files(), QStringList{"usb/PROG_1.txt"});
}

QTEST_GUILESS_MAIN(WriteWorkflowTest)
#include "tst_writeworkflow.moc"
