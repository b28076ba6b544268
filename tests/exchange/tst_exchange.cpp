// The worker's transfers against a scripted controller.
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

#include <sys/stat.h>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

Q_DECLARE_METATYPE(ScriptedPort::Answer)

namespace
{

// Segments 1..count answered, the close refused (unseen), the rest accepted
// with status 01; rules added before win.
void scriptProgram(ScriptedPort& port, int program, int count)
{
    auto reply = [](const QByteArray& t) { return Answer::withReply(ScriptedPort::framed(t)); };
    for (int s = 1; s <= count; ++s) {
        const QByteArray read = "FR," + QByteArray::number(program) + ',' + QByteArray::number(s);
        port.addAnswer("0100X" + read, reply("0100X00," + read + ',' + sampleRecord(s)),
                       ScriptedPort::Forever);
    }
    port.addAnswer("0100XFC", reply("0100X51"), ScriptedPort::Forever);
    port.addAnswer("", reply("0100X01"), ScriptedPort::Forever);
}

} // namespace

class ExchangeTest : public QObject
{
    Q_OBJECT

private slots:
    // One command answered so (Answer(): not at all) `times` times (-1: always):
    // how often the open, segment 2's read and the close go out, the log, the
    // rows saved. Every attempt that fails after its open went out closes
    // the controller's file before the next attempt (or the end).
    void readRetries_data()
    {
        QTest::addColumn<int>("retries");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<Answer>("answer");
        QTest::addColumn<int>("times");
        QTest::addColumn<int>("opens");
        QTest::addColumn<int>("reads2");
        QTest::addColumn<int>("closes");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QList<int>>("saved"); // none: no file
        const QString read1 = "Reading the Program 1 file fail. Error Code 1.";
        const QString open1 = "Opening the Program 1 file fail. Error Code 1.";
        const QString segmentOver =
            "The retry time of reading the Program 1 file is over %1 times.";
        const QString attemptOver = "Read File retry time is over %1 times.";
        const QByteArray read2 = "0100XFR,1,2";
        QTest::newRow("0 retries: segment lost, its row kept in place")
            << 0 << read2 << Answer::shortWrite(5) << 1 << 1 << 1 << 1
            << QStringList{"Reading the Program 1 file fail. Error Code 4."}
            << QList<int>{1, -2, 3};
        QTest::newRow("2 retries: segment through at the last")
            << 2 << read2 << Answer() << 2 << 1 << 3 << 1 << QStringList{read1, read1}
            << QList<int>{1, 2, 3};
        QTest::newRow("1 retry: repeated attempt from an empty table")
            << 1 << read2 << Answer() << 2 << 2 << 3 << 2
            << QStringList{read1, read1, segmentOver.arg(1)} << QList<int>{1, 2, 3};
        QTest::newRow("0 retries: a reply for another segment is no row")
            << 0 << read2
            << Answer::withReply(ScriptedPort::framed("0100X00,FR,1,3," + sampleRecord(3))) << 1
            << 1 << 1 << 1 << QStringList{"Reading the Program 1 file fail. Error Code 2."}
            << QList<int>{1, -2, 3};
        const QStringList attempt{read1, read1, read1, segmentOver.arg(2)};
        QTest::newRow("2 retries: segment never through")
            << 2 << read2 << Answer() << -1 << 3 << 9 << 3
            << (QStringList(attempt) << "First retry." << attempt << attempt << attemptOver.arg(2))
            << QList<int>{};
        QTest::newRow("0 retries: open cut short")
            << 0 << QByteArray("0100XFO") << Answer::shortWrite(0) << 1 << 1 << 0 << 0
            << QStringList{"Opening the Program 1 file fail. Error Code 3."} << QList<int>{};
        QTest::newRow("4 retries: open never through, labelled repeats")
            << 4 << QByteArray("0100XFO") << Answer() << -1 << 5 << 0 << 5
            << QStringList{open1,         "First retry.", open1, "Second retry.",   open1,
                           "3 st retry.", open1,          open1, attemptOver.arg(4)}
            << QList<int>{};
    }
    void readRetries()
    {
        QFETCH(int, times);
        QFETCH(QList<int>, saved);
        QFETCH(QStringList, log);
        WorkflowRig rig;
        QFETCH(int, retries);
        rig.port.setRetryCount(retries);
        QFETCH(QByteArray, command);
        QFETCH(Answer, answer);
        rig.port.addAnswer(command, answer, times < 0 ? ScriptedPort::Forever : times);
        scriptProgram(rig.port, 1, 3);
        rig.worker().readProgramFileProcess(1, 3, 0);

        const QList<QByteArray> sent = rig.port.sentCommands();
        QTEST(sent.count("0100XFO,1,R,0"), "opens");
        QTEST(sent.count("0100XFR,1,2"), "reads2");
        QTEST(sent.count("0100XFC,1"), "closes");
        QCOMPARE(rig.events().filter(QRegularExpression("^R[EF] ")), (QStringList{"RF 0", "RE 1"}));
        QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")),
                 "Program 1:\n" + log.join('\n').toUtf8());
        QCOMPARE(fileBytes(rig.usbFile("PROG_1.txt")),
                 saved.isEmpty() ? QByteArray("<missing>") : programFile(sampleRows(saved)));
    }

    // The controller's file after a read: a refused first open is taken for
    // a file an earlier session left open (closed once, opened again), a
    // close goes out until the controller answers it.
    void controllerFileReleased_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<Answer>("answer");
        QTest::addColumn<int>("times");
        QTest::addColumn<QList<QByteArray>>("sent");
        QTest::addColumn<QStringList>("log"); // empty: none
        QTest::addColumn<bool>("saved");
        const Answer alreadyOpen = Answer::withReply(ScriptedPort::framed("0100X50"));
        const QByteArray open = "0100XFO,1,R,0", close = "0100XFC,1";
        const QList<QByteArray> reads{"0100XFR,1,1", "0100XFR,1,2", "0100XFR,1,3"};
        QTest::newRow("left open by an earlier session")
            << open << alreadyOpen << 1 << (QList<QByteArray>{open, close, open} << reads << close)
            << QStringList() << true;
        QTest::newRow("held open by another client")
            << open << alreadyOpen << -1 << QList<QByteArray>{open, close, open}
            << QStringList{"File is already open.",
                           "The Program 1 file is held open by another client of the controller; "
                           "it was not closed by this panel."}
            << false;
        QTest::newRow("close never answered")
            << close << Answer() << -1 << (QList<QByteArray>{open} << reads << close << close)
            << QStringList{"Closing the Program 1 file fail. The file may still be open in the "
                           "controller."}
            << true;
    }
    void controllerFileReleased()
    {
        QFETCH(QByteArray, command);
        QFETCH(Answer, answer);
        QFETCH(int, times);
        QFETCH(QStringList, log);
        QFETCH(bool, saved);
        WorkflowRig rig;
        rig.port.setRetryCount(1);
        rig.port.addAnswer(command, answer, times < 0 ? ScriptedPort::Forever : times);
        scriptProgram(rig.port, 1, 3);
        rig.worker().readProgramFileProcess(1, 3, 0);
        QTEST(rig.port.sentCommands(), "sent");
        QCOMPARE(fileBytes(rig.usbFile("READ_PROG_1_ERROR.txt")),
                 log.isEmpty() ? "<missing>" : "Program 1:\n" + log.join('\n').toUtf8());
        QCOMPARE(fileBytes(rig.usbFile("PROG_1.txt")),
                 saved ? programFile(sampleRows({1, 2, 3})) : QByteArray("<missing>"));
    }

    // A write that must not reach the controller: parameters that did not
    // all come back (logged, WE raised), or a program file that is no
    // plausible program file (the user is told). Nothing goes on the line.
    void writeRefusedBeforeTheController_data()
    {
        QTest::addColumn<QList<int>>("paras");
        QTest::addColumn<QString>("file"); // "fifo", "dir", "big"
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QString>("log"); // empty: none
        const QList<int> all{-1999, 9999, 0, 0, 0};
        QTest::newRow("event 3 kind not read")
            << QList<int>{-1999, 9999, 0, 4} << "" << QStringList{"WF 0", "WE 1"}
            << "Reading RAM3509 (kind of event 3) from the controller fail. The Program 1 file "
               "was not written, nothing was checked against made-up limits.";
        QTest::newRow("limits not read")
            << QList<int>{} << "" << QStringList{"WF 0", "WE 1"}
            << "Reading RAM4509 (SP1 low limit) from the controller fail. The Program 1 file was "
               "not written, nothing was checked against made-up limits.";
        QTest::newRow("a FIFO") << all << "fifo"
                                << QStringList{"message DCP30: PROG_1.txt is a pipe (FIFO), not a "
                                               "program file. It was not opened.",
                                               "WF 0"}
                                << "";
        QTest::newRow("a directory") << all << "dir"
                                     << QStringList{"message DCP30: PROG_1.txt is a directory, "
                                                    "not a program file. It was not opened.",
                                                    "WF 0"}
                                     << "";
        QTest::newRow("too large")
            << all << "big"
            << QStringList{"message DCP30: PROG_1.txt is too large for a program file (1048578 "
                           "bytes, at most 1048576). It was not loaded.",
                           "WF 0"}
            << "";
    }
    void writeRefusedBeforeTheController()
    {
        QFETCH(QList<int>, paras);
        QFETCH(QString, file);
        WorkflowRig rig;
        const QString path = rig.usbFile("PROG_1.txt");
        const QByteArray content = programFile(sampleRows({1, 2, 3}));
        if (file == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else if (file == "dir")
            QVERIFY(QDir().mkpath(path));
        else {
            QFile out(path);
            QVERIFY(out.open(QIODevice::WriteOnly) &&
                    out.write(file == "big"
                                  ? content + QByteArray((1 << 20) + 2 - content.size(), ' ')
                                  : content) > 0);
        }
        scriptProgram(rig.port, 1, 0);
        rig.worker().writeProgramFileProcess(paras, 1, 3, 0);
        QCOMPARE(rig.port.sentCommands(), QList<QByteArray>{});
        QTEST(rig.events(), "events");
        QFETCH(QString, log);
        QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")),
                 log.isEmpty() ? "<missing>" : "Program 1:\n" + log.toUtf8());
    }

    // Program 12 of ten segments (records one and two places later), on the
    // line; the save fails: the user is told, RF drops at once, no log.
    void readOnTheLineSaveFails()
    {
        WorkflowRig rig;
        QVERIFY(QDir().mkpath(rig.usbFile("PROG_12.txt")));
        scriptProgram(rig.port, 12, 10);
        rig.worker().readProgramFileProcess(12, 10, 0);
        QStringList trace, events;
        for (int s = 0; s <= 11; ++s) {
            const QByteArray command = s == 0    ? "FO,12,R,0"
                                       : s == 11 ? "FC,12"
                                                 : "FR,12," + QByteArray::number(s);
            trace << "option 12=0 (int)"
                  << "write " + ScriptedPort::framed("0100X" + command).toHex()
                  << (command.startsWith("FR") ? "read 200" : "read 16");
            if (s > 0 && s < 11)
                events << QString("read %1").arg(10 * s);
        }
        QCOMPARE(rig.port.trace(), trace);
        QCOMPARE(rig.events(),
                 (events + QStringList{"message DCP30: File cannot be opened.", "RF 0", "RF 0"}));
        QVERIFY(!QFile::exists(rig.usbFile("READ_PROG_12_ERROR.txt")));
    }

    // The file's rows (none: no file), a command always cut short, events
    // before "WF 0", commands sent (0 the open, -1 the close) and the log.
    void writes_data()
    {
        QTest::addColumn<QList<QStringList>>("rows");
        QTest::addColumn<int>("segments");
        QTest::addColumn<QByteArray>("cut");
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QList<int>>("sent");
        QTest::addColumn<QStringList>("log"); // empty: none
        const QList<QStringList> three = sampleRows({1, 2, 3});
        const QString noColon = "\t\tThe format of TM is incorrect. There is no \":\" symbol.";
        QList<QStringList> beyond = sampleRows({1, 2, 3, 4}), invalid2 = three,
                           allInvalid = sampleRows({1, 2});
        beyond[3][2] = "x";
        invalid2[1][1] = "10000";
        invalid2[1][19] = "9";
        allInvalid[0][2] = "1.30";
        allInvalid[1][2] = "----";
        QTest::newRow("3 rows for 5 segments")
            << three << 5 << QByteArray() << QStringList{"write 33", "write 66", "write 100"}
            << QList<int>{0, 1, 2, 3, -1}
            << QStringList{"Segment 4 has no data in the csv file. Please check it.",
                           "Segment 5 has no data in the csv file. Please check it."};
        QTest::newRow("rows beyond the count ignored")
            << beyond << 2 << QByteArray() << QStringList{"write 50", "write 100"}
            << QList<int>{0, 1, 2, -1} << QStringList();
        QTest::newRow("row 2 of 3 fails its checks")
            << invalid2 << 3 << QByteArray() << QStringList{"write 50", "write 100"}
            << QList<int>{0, 1, 3, -1}
            << QStringList{"\n\tSegment 2 has following format error : ",
                           "\t\tSP1 [10000] is out of range (-1999 ~ 9999).",
                           "\t\tPID1 [9] is out of range (0 ~ 8)."};
        QTest::newRow("all rows invalid: opened and closed")
            << allInvalid << 2 << QByteArray() << QStringList() << QList<int>{0, -1}
            << QStringList{"\n\tSegment 1 has following format error : ", noColon,
                           "\n\tSegment 2 has following format error : ", noColon,
                           "\nThere is no data to write out. Maybe the format of all segments "
                           "are incorrect."};
        QTest::newRow("no file: the user is told, nothing sent")
            << QList<QStringList>{} << 2 << QByteArray()
            << QStringList{"message DCP30: File cannot be opened.\nPlease select the right file."}
            << QList<int>{} << QStringList();
        QTest::newRow("open cut short, 0 retries")
            << three << 3 << QByteArray("0100XFO") << QStringList() << QList<int>{0}
            << QStringList{"Opening the Program 1 file fail. Error Code 13."};
        QTest::newRow("segment cut short, 0 retries: the next goes on")
            << three << 3 << QByteArray("0100XFW,1,2")
            << QStringList{"write 33", "write 66", "write 100"} << QList<int>{0, 1, 2, 3, -1}
            << QStringList{"Write File Fail. Error Code 22."};
    }
    void writes()
    {
        QFETCH(QList<QStringList>, rows);
        QFETCH(QByteArray, cut);
        QFETCH(QStringList, events);
        QFETCH(QList<int>, sent);
        QFETCH(QStringList, log);
        WorkflowRig rig;
        QFile file(rig.usbFile("PROG_1.txt"));
        QVERIFY(rows.isEmpty() || (file.open(QIODevice::WriteOnly) &&
                                   file.write(programFile(rows)) > 0 && file.flush()));
        if (!cut.isEmpty())
            rig.port.addAnswer(cut, Answer::shortWrite(1), ScriptedPort::Forever);
        scriptProgram(rig.port, 1, 0);
        QFETCH(int, segments);
        rig.worker().writeProgramFileProcess({-1999, 9999, 0, 0, 0}, 1, segments, 0);

        QList<QByteArray> commands;
        for (int s : sent)
            commands << (s == 0  ? "0100XFO,1,W,0"
                         : s < 0 ? "0100XFC,1"
                                 : "0100XFW,1," + QByteArray::number(s) + ',' + sampleRecord(s));
        QCOMPARE(rig.port.sentCommands(), commands);
        QCOMPARE(rig.events(),
                 events << "WF 0" << (log.isEmpty() ? QStringList() : QStringList{"WE 1"}));
        QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")),
                 log.isEmpty() ? "<missing>" : "Program 1:\n" + log.join('\n').toUtf8());
    }

    // Line-paced, a reply is read as it arrives until its frame is complete
    // (here after three empty reads); one that never completes is read to the
    // wait's end and judged as without pacing.
    void pacedReplies()
    {
        using Outcome = FileAccessor::ExchangeOutcome;
        using ControllerFrames::Command;
        // Waits of 60 ms leave the paced reads their time in any build.
        RuntimeProperties::setLinePacing(0);
        WorkflowRig paced(20);
        RuntimeProperties::setLinePacing(-1);
        WorkflowRig fixed(20);
        const QByteArray cut("\x02"
                             "0100X5");
        for (WorkflowRig* rig : {&paced, &fixed}) {
            rig->worker().initRWCommand();
            rig->port.addAnswer("0100XFO", Answer::withReply(ScriptedPort::framed("0100X00"), 3));
            rig->port.addAnswer("0100XFC", Answer::withReply(cut));
        }
        QCOMPARE(paced.worker().exchange(Command::OpenRead, 1).outcome, Outcome::Accepted);
        QCOMPARE(paced.port.trace().mid(2), QVector<QString>(4, "read 16").toList());
        QCOMPARE(fixed.worker().exchange(Command::OpenRead, 1).outcome, Outcome::HeaderFailure);

        const int before = paced.port.trace().size();
        QCOMPARE(paced.worker().exchange(Command::Close, 1).outcome, Outcome::ControllerError);
        QCOMPARE(fixed.worker().exchange(Command::Close, 1).outcome, Outcome::ControllerError);
        const QStringList reads = paced.port.trace().mid(before + 2);
        QVERIFY(reads.size() >= 2);
        QCOMPARE(reads.first(), "read 16");
        QCOMPARE(reads.mid(1), QVector<QString>(reads.size() - 1, "read 9").toList());
    }
};

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"
