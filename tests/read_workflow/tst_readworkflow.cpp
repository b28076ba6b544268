// The program read: controller program to "PROG_<id>.txt", retries on both
// levels with their exact number of commands, progress, flags, messages, the
// read error log, missing media and abort.
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

namespace
{

const QString NoProgram =
    "Program number or segment number is in error. No program in the segment.";
const QString OpenCode1 = "Opening the Program 1 file fail. Error Code 1.";
const QString ReadCode1 = "Reading the Program 1 file fail. Error Code 1.";
const QString SegmentRetriesOver = "The retry time of reading the Program 1 file is over %1 times.";
const QString AttemptRetriesOver = "Read File retry time is over %1 times.";

// The controller holds segments 1..count of program; open and close are
// accepted. Rules added earlier (failures) take precedence.
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
    void readsProgram_data();
    void readsProgram();
    void segmentRetries_data();
    void segmentRetries();
    void attemptRetries_data();
    void attemptRetries();
    void repeatedAttemptStartsAfresh();
    void refusedSegmentKeepsItsRow();
    void openRefused();
    void mediumGone_data();
    void mediumGone();
    void saveFails_data();
    void saveFails();
    void abortEndsTransfer();
    void progressInSinglePrecision_data();
    void progressInSinglePrecision();
};

void ReadWorkflowTest::readsProgram_data()
{
    QTest::addColumn<int>("waitPercent");
    QTest::addColumn<int>("program");
    QTest::addColumn<int>("storageType");
    QTest::addColumn<int>("segments");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("progress");
    QTest::newRow("program 2, 3 segments, USB stick, real pace")
        << 100 << 2 << 0 << 3 << "usb/PROG_2.txt" << progressEvents("read", {33, 66, 100});
    QTest::newRow("program 5, 7 segments") << 1 << 5 << 0 << 7 << "usb/PROG_5.txt"
                                           << progressEvents("read", {14, 28, 42, 57, 71, 85, 100});
    QTest::newRow("program 12, 11 segments, SD card")
        << 1 << 12 << 1 << 11 << "sd/PROG_12.txt"
        << progressEvents("read", {9, 18, 27, 36, 45, 54, 63, 72, 81, 90, 100});
}

void ReadWorkflowTest::readsProgram()
{
    QFETCH(int, waitPercent);
    QFETCH(int, program);
    QFETCH(int, storageType);
    QFETCH(int, segments);
    QFETCH(QString, file);
    QFETCH(QStringList, progress);
    WorkflowRig rig(waitPercent);
    QVERIFY(rig.isValid());
    rig.port.setRetryCount(3);
    scriptProgram(rig.port, program, segments);
    rig.worker().readProgramFileProcess(program, segments, storageType);

    QList<QByteArray> frames{
        ScriptedPort::framed(QByteArray("0100XFO,") + QByteArray::number(program) + ",R,0")};
    QList<int> limits{16};
    QList<QStringList> table{header()};
    for (int s = 1; s <= segments; ++s) {
        frames << ScriptedPort::framed("0100XFR," + QByteArray::number(program) + ',' +
                                       QByteArray::number(s));
        limits << 200;
        table << sampleRow(s);
    }
    frames << ScriptedPort::framed("0100XFC," + QByteArray::number(program));
    limits << 16;
    QCOMPARE(rig.port.sentFrames(), frames);
    QCOMPARE(rig.port.readLimits(), limits);
    QCOMPARE(rig.port.unpreparedWrites(), 0);
    QCOMPARE(rig.events(), progress + QStringList{"RF 0"});
    QCOMPARE(rig.files(), QStringList{file});
    const QString path =
        file.startsWith("usb") ? rig.usbFile(file.mid(4)) : rig.sdFile(file.mid(3));
    QCOMPARE(fileBytes(path), programFile(table));
}

void ReadWorkflowTest::segmentRetries_data()
{
    QTest::addColumn<int>("retries");
    QTest::addColumn<int>("failures"); // of segment 2, each without a reply; -1: every time
    QTest::addColumn<int>("opens");
    QTest::addColumn<int>("reads2");
    QTest::addColumn<QStringList>("log");  // empty: no log
    QTest::addColumn<QList<int>>("saved"); // segments in the file; empty: no file
    const QString over1 = SegmentRetriesOver.arg(1);
    QTest::newRow("0 retries: segment lost, read goes on")
        << 0 << 1 << 1 << 1 << QStringList{ReadCode1} << QList<int>{1, 3};
    QTest::newRow("1 retry, 1 failure")
        << 1 << 1 << 1 << 2 << QStringList{ReadCode1} << QList<int>{1, 2, 3};
    QTest::newRow("2 retries, 2 failures")
        << 2 << 2 << 1 << 3 << QStringList{ReadCode1, ReadCode1} << QList<int>{1, 2, 3};
    QTest::newRow("3 retries, 3 failures")
        << 3 << 3 << 1 << 4 << QStringList{ReadCode1, ReadCode1, ReadCode1} << QList<int>{1, 2, 3};
    QTest::newRow("3 retries, no failure")
        << 3 << 0 << 1 << 1 << QStringList{} << QList<int>{1, 2, 3};
    QTest::newRow("1 retry, always failing")
        << 1 << -1 << 2 << 4 << QStringList{ReadCode1,
                                            ReadCode1,
                                            over1,
                                            ReadCode1,
                                            ReadCode1,
                                            over1,
                                            AttemptRetriesOver.arg(1)}
        << QList<int>{};
    QTest::newRow("2 retries, always failing") << 2 << -1 << 3 << 9
                                               << QStringList{ReadCode1,
                                                              ReadCode1,
                                                              ReadCode1,
                                                              SegmentRetriesOver.arg(2),
                                                              "First retry.",
                                                              ReadCode1,
                                                              ReadCode1,
                                                              ReadCode1,
                                                              SegmentRetriesOver.arg(2),
                                                              ReadCode1,
                                                              ReadCode1,
                                                              ReadCode1,
                                                              SegmentRetriesOver.arg(2),
                                                              AttemptRetriesOver.arg(2)}
                                               << QList<int>{};
}

void ReadWorkflowTest::segmentRetries()
{
    QFETCH(int, retries);
    QFETCH(int, failures);
    QFETCH(int, opens);
    QFETCH(int, reads2);
    QFETCH(QStringList, log);
    QFETCH(QList<int>, saved);
    WorkflowRig rig;
    rig.port.setRetryCount(retries);
    if (failures != 0)
        rig.port.addAnswer("0100XFR,1,2", Answer::noReply(),
                           failures < 0 ? ScriptedPort::Forever : failures);
    scriptProgram(rig.port, 1, 3);
    rig.worker().readProgramFileProcess(1, 3, 0);

    const QList<QByteArray> sent = rig.port.sentCommands();
    QCOMPARE(countOf(sent, "0100XFO,1,R,0"), opens);
    QCOMPARE(countOf(sent, "0100XFR,1,1"), opens);
    QCOMPARE(countOf(sent, "0100XFR,1,2"), reads2);
    QCOMPARE(countOf(sent, "0100XFR,1,3"), saved.isEmpty() ? 0 : 1);
    QCOMPARE(countOf(sent, "0100XFC,1"), saved.isEmpty() ? 0 : 1);
    QCOMPARE(rig.events("RE"), log.isEmpty() ? QStringList{} : QStringList{"RE 1"});
    QCOMPARE(rig.events("RF"), QStringList{"RF 0"});
    QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")),
             log.isEmpty() ? QByteArray("<missing>") : logText(log));
    if (saved.isEmpty()) {
        QVERIFY(!QFile::exists(rig.usbFile("PROG_1.txt")));
    } else {
        QList<QStringList> table{header()};
        for (int s : saved)
            table << sampleRow(s);
        QCOMPARE(fileBytes(rig.usbFile("PROG_1.txt")), programFile(table));
    }
}

void ReadWorkflowTest::attemptRetries_data()
{
    QTest::addColumn<int>("retries");
    QTest::addColumn<int>("failures"); // of the open, each without a reply; -1: every time
    QTest::addColumn<int>("opens");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<bool>("saved");
    QTest::newRow("0 retries") << 0 << -1 << 1 << QStringList{OpenCode1} << false;
    QTest::newRow("1 retry") << 1 << -1 << 2
                             << QStringList{OpenCode1, OpenCode1, AttemptRetriesOver.arg(1)}
                             << false;
    QTest::newRow("2 retries") << 2 << -1 << 3
                               << QStringList{OpenCode1, "First retry.", OpenCode1, OpenCode1,
                                              AttemptRetriesOver.arg(2)}
                               << false;
    QTest::newRow("3 retries")
        << 3 << -1 << 4
        << QStringList{OpenCode1, "First retry.",           OpenCode1, "Second retry.", OpenCode1,
                       OpenCode1, AttemptRetriesOver.arg(3)}
        << false;
    QTest::newRow("4 retries")
        << 4 << -1 << 5 << QStringList{OpenCode1,       "First retry.", OpenCode1,
                                       "Second retry.", OpenCode1,      "3 st retry.",
                                       OpenCode1,       OpenCode1,      AttemptRetriesOver.arg(4)}
        << false;
    QTest::newRow("2 retries, second attempt goes through")
        << 2 << 1 << 2 << QStringList{OpenCode1} << true;
    QTest::newRow("2 retries, third attempt goes through")
        << 2 << 2 << 3 << QStringList{OpenCode1, "First retry.", OpenCode1} << true;
}

void ReadWorkflowTest::attemptRetries()
{
    QFETCH(int, retries);
    QFETCH(int, failures);
    QFETCH(int, opens);
    QFETCH(QStringList, log);
    QFETCH(bool, saved);
    WorkflowRig rig;
    rig.port.setRetryCount(retries);
    rig.port.addAnswer("0100XFO", Answer::noReply(),
                       failures < 0 ? ScriptedPort::Forever : failures);
    scriptProgram(rig.port, 1, 1);
    rig.worker().readProgramFileProcess(1, 1, 0);
    const QList<QByteArray> sent = rig.port.sentCommands();
    QCOMPARE(countOf(sent, "0100XFO,1,R,0"), opens);
    QCOMPARE(sent.size(), opens + (saved ? 2 : 0));
    QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")), logText(log));
    const QStringList ending{"RF 0", "RE 1"};
    QCOMPARE(rig.events(), saved ? QStringList("read 100") + ending : ending);
    QCOMPARE(QFile::exists(rig.usbFile("PROG_1.txt")), saved);
}

// A whole attempt that read some segments and then gave up is repeated; the
// saved file must hold one header and each segment once, in order.
void ReadWorkflowTest::repeatedAttemptStartsAfresh()
{
    WorkflowRig rig;
    rig.port.setRetryCount(1);
    rig.port.addAnswer("0100XFR,1,2", Answer::noReply(), 2); // the first attempt gives up
    scriptProgram(rig.port, 1, 3);
    rig.worker().readProgramFileProcess(1, 3, 0);
    QCOMPARE(rig.port.sentCommands(),
             (QList<QByteArray>{"0100XFO,1,R,0", "0100XFR,1,1", "0100XFR,1,2", "0100XFR,1,2",
                                "0100XFO,1,R,0", "0100XFR,1,1", "0100XFR,1,2", "0100XFR,1,3",
                                "0100XFC,1"}));
    QCOMPARE(fileBytes(rig.usbFile("PROG_1.txt")),
             programFile({header(), sampleRow(1), sampleRow(2), sampleRow(3)}));
    QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")),
             logText({ReadCode1, ReadCode1, SegmentRetriesOver.arg(1)}));
    QCOMPARE(rig.events(),
             (progressEvents("read", {33, 33, 66, 100}) + QStringList{"RF 0", "RE 1"}));
}

void ReadWorkflowTest::refusedSegmentKeepsItsRow()
{
    WorkflowRig rig;
    rig.port.setRetryCount(2);
    rig.port.addAnswer("0100XFR,1,2", Answer::withReply(status("52")));
    scriptProgram(rig.port, 1, 3);
    rig.worker().readProgramFileProcess(1, 3, 0);
    QCOMPARE(countOf(rig.port.sentCommands(), "0100XFR,1,2"), 1); // never repeated
    QCOMPARE(fileBytes(rig.usbFile("PROG_1.txt")),
             programFile({header(), sampleRow(1), placeholderRow(2), sampleRow(3)}));
    QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")), logText({"Seg2:" + NoProgram}));
    QCOMPARE(rig.events(), (progressEvents("read", {33, 66, 100}) + QStringList{"RF 0", "RE 1"}));
}

void ReadWorkflowTest::openRefused()
{
    WorkflowRig rig;
    rig.port.setRetryCount(3);
    rig.port.addAnswer("0100XFO", Answer::withReply(status("50")));
    scriptProgram(rig.port, 6, 2);
    rig.worker().readProgramFileProcess(6, 2, 1);
    QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{"0100XFO,6,R,0"});
    QCOMPARE(rig.files(), QStringList{"sd/READ_PROG_6_ERROR.txt"});
    QCOMPARE(fileBytes(rig.sdFile("READ_PROG_6_ERROR.txt")), logText({"File is already open."}));
    QCOMPARE(rig.events(), (QStringList{"RF 0", "RE 1"}));
}

void ReadWorkflowTest::mediumGone_data()
{
    QTest::addColumn<bool>("withErrors");
    QTest::addColumn<QStringList>("events");
    const QString gone = "message DCP30: The system can't not detect the USB Stick.";
    QTest::newRow("at save") << false
                             << progressEvents("read", {33, 66, 100}) + QStringList{gone, "RF 0"};
    QTest::newRow("at save and at log time")
        << true << progressEvents("read", {33, 66, 100}) + QStringList{gone, "RF 0", "RE 1", gone};
}

// The stick is pulled while the controller's file is being closed.
void ReadWorkflowTest::mediumGone()
{
    QFETCH(bool, withErrors);
    QFETCH(QStringList, events);
    WorkflowRig rig;
    if (withErrors)
        rig.port.addAnswer("0100XFR,1,3", Answer::withReply(status("52")));
    rig.port.addAnswer("0100XFO", Answer::withReply(status("00")));
    rig.port.addAnswer("0100XFR,1,1", Answer::withReply(readReply(1, 1, sampleRecord(1))));
    rig.port.addAnswer("0100XFR,1,2", Answer::withReply(readReply(1, 2, sampleRecord(2))));
    rig.port.addAnswer("0100XFR,1,3", Answer::withReply(readReply(1, 3, sampleRecord(3))));
    rig.port.setResponder([&rig](const QByteArray&) {
        rig.pullUsbStick();
        return Answer::withReply(status("00"));
    });
    rig.worker().readProgramFileProcess(1, 3, 0);
    QCOMPARE(rig.port.sentCommands().last(), QByteArray("0100XFC,1"));
    QCOMPARE(rig.events(), events);
    QVERIFY(rig.files().isEmpty());
    const QString gone = "The system can't not detect the USB Stick.";
    QCOMPARE(rig.centre.texts(), (withErrors ? QStringList{gone, gone} : QStringList{gone}));
}

void ReadWorkflowTest::saveFails_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QString>("message");
    QTest::newRow("medium full") << "full"
                                 << "File cannot be written.";
    QTest::newRow("directory in the way") << "directory"
                                          << "File cannot be opened.";
}

void ReadWorkflowTest::saveFails()
{
    QFETCH(QString, obstacle);
    QFETCH(QString, message);
    WorkflowRig rig;
    if (obstacle == "full")
        QVERIFY(QFile::link("/dev/full", rig.usbFile("PROG_4.txt")));
    else
        QVERIFY(QDir().mkpath(rig.usbFile("PROG_4.txt")));
    scriptProgram(rig.port, 4, 2);
    rig.worker().readProgramFileProcess(4, 2, 0);
    QCOMPARE(rig.events(), (progressEvents("read", {50, 100}) +
                            QStringList{"message DCP30: " + message, "RF 0", "RF 0"}));
    QVERIFY(!QFile::exists(rig.usbFile("READ_PROG_4_ERROR.txt")));
}

// At the real pace: the driver's take-down asks the worker, from another
// thread, to stop while it waits for the reply to segment 3. Nothing more goes
// on the line, nothing is saved or logged, and the read reports its end.
void ReadWorkflowTest::abortEndsTransfer()
{
    WorkflowRig rig(100);
    rig.port.setRetryCount(3);
    FileAccessor& worker = rig.worker();
    scriptProgram(rig.port, 1, 2); // segment 3 has no rule
    rig.abortAtUnscriptedCommand([&worker] { worker.readProgramFileProcess(1, 30, 0); },
                                 Answer::withReply(readReply(1, 3, sampleRecord(3))));
    QCOMPARE(rig.port.sentCommands(),
             (QList<QByteArray>{"0100XFO,1,R,0", "0100XFR,1,1", "0100XFR,1,2", "0100XFR,1,3"}));
    QCOMPARE(rig.port.readLimits(), (QList<int>{16, 200, 200})); // the wait was cut short
    QCOMPARE(rig.events(), progressEvents("read", {3, 6}) + QStringList{"RF 0"});
    QVERIFY(rig.files().isEmpty());
}

void ReadWorkflowTest::progressInSinglePrecision_data()
{
    QTest::addColumn<int>("done");
    QTest::addColumn<int>("total");
    QTest::addColumn<int>("percent");
    QTest::newRow("1 of 3") << 1 << 3 << 33;
    QTest::newRow("2 of 3") << 2 << 3 << 66;
    QTest::newRow("3 of 3") << 3 << 3 << 100;
    QTest::newRow("1 of 30") << 1 << 30 << 3;
    // Where single precision falls short of the exact value, the panel
    // shows the lower number, as it always has.
    QTest::newRow("53 of 100") << 53 << 100 << 52;
    QTest::newRow("59 of 100") << 59 << 100 << 58;
}

void ReadWorkflowTest::progressInSinglePrecision()
{
    QFETCH(int, done);
    QFETCH(int, total);
    QFETCH(int, percent);
    QCOMPARE(int(FileAccessor::progressPercent(done, total)), percent);
}

QTEST_GUILESS_MAIN(ReadWorkflowTest)
#include "tst_readworkflow.moc"
