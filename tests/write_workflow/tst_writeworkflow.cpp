// The program write: "PROG_<id>.txt" to the controller, row checks, the
// write's own retry messages (both retry levels are shared with the read and
// tabled there), progress, flags, the loader's failures and the write error
// log. (Abort is shared with the read and tried there.)
#include "tests/driver_core/tsanoptions.h"
#include "tests/support/workflowrig.h"

#include <QtTest>

using namespace WorkflowData;
using Answer = ScriptedPort::Answer;

namespace
{

const QList<int> Parameters{-1999, 9999, 0, 0, 0}; // SP1 limits; events of no specific kind
const QString NoTimeColon = "The format of TM is incorrect. There is no \":\" symbol.";

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

// A rig whose USB stick holds "PROG_1.txt" with the header and rows, and
// whose controller accepts every command that no rule answers.
struct WriteRig : WorkflowRig {
    explicit WriteRig(const QList<QStringList>& rows)
    {
        writeBytes(usbFile("PROG_1.txt"), programFile(QList<QStringList>{header()} + rows));
        port.setDefaultAnswer(Answer::withReply(status("00")));
    }
};

} // namespace

class WriteWorkflowTest : public QObject
{
    Q_OBJECT

private slots:
    // The rows a file holds, how many segments the write asks for, which of
    // them go to the controller, the progress and the log (empty: none).
    void writes_data()
    {
        QTest::addColumn<QList<QStringList>>("rows");
        QTest::addColumn<int>("segments");
        QTest::addColumn<QList<int>>("written");
        QTest::addColumn<QStringList>("progress");
        QTest::addColumn<QStringList>("log");
        auto row = [](const char* name, const QList<QStringList>& rows, int segments,
                      const QList<int>& written, const QStringList& progress,
                      const QStringList& log) {
            QTest::newRow(name) << rows << segments << written << progress << log;
        };
        // Progress counts the segments sent, not those asked for.
        row("3 rows for 5 segments", sampleRows({1, 2, 3}), 5, {1, 2, 3},
            {"write 33", "write 66", "write 100"},
            {"Segment 4 has no data in the csv file. Please check it.",
             "Segment 5 has no data in the csv file. Please check it."});
        row("rows beyond the count ignored", sampleRows({1, 2, 3}) << changedRow(4, 2, "x"), 2,
            {1, 2}, {"write 50", "write 100"}, {});
        QStringList twoProblems = changedRow(2, 1, "10000");
        twoProblems[19] = "9";
        row("row 2 of 3 fails its checks, every problem in column order",
            {sampleRow(1), twoProblems, sampleRow(3)}, 3, {1, 3}, {"write 50", "write 100"},
            {"\n\tSegment 2 has following format error : ",
             "\t\tSP1 [10000] is out of range (-1999 ~ 9999).",
             "\t\tPID1 [9] is out of range (0 ~ 8)."});
        row("all rows invalid: opened and closed, nothing written",
            {changedRow(1, 2, "1.30"), changedRow(2, 2, "----")}, 2, {}, {},
            {"\n\tSegment 1 has following format error : ", "\t\t" + NoTimeColon,
             "\n\tSegment 2 has following format error : ", "\t\t" + NoTimeColon,
             "\nThere is no data to write out. Maybe the format of all segments are incorrect."});
    }
    void writes()
    {
        QFETCH(int, segments);
        QFETCH(QList<int>, written);
        QFETCH(QStringList, progress);
        QFETCH(QStringList, log);
        QFETCH(QList<QStringList>, rows);
        WriteRig rig(rows);
        rig.worker().writeProgramFileProcess(Parameters, 1, segments, 0);

        QList<QByteArray> commands{"0100XFO,1,W,0"};
        for (int s : written)
            commands << writeCommand(1, s);
        QCOMPARE(rig.port.sentCommands(), commands << "0100XFC,1");
        QCOMPARE(rig.events(), progress + QStringList{"WF 0"} +
                                   (log.isEmpty() ? QStringList{} : QStringList{"WE 1"}));
        QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")),
                 log.isEmpty() ? QByteArray("<missing>") : logText(log));
        QCOMPARE(rig.files().size(), log.isEmpty() ? 1 : 2);
    }

    // Segment 2 never goes through, with one retry: its retries used up end
    // the attempt without closing the file, and the repeated attempt meets the
    // same fate. (Other failures, refusals and the labels of repeated attempts
    // are the read suite's and the end-to-end fault matrix's.)
    void segmentRetriesUsedUp()
    {
        WriteRig rig(sampleRows({1, 2, 3}));
        rig.port.setRetryCount(1);
        rig.port.addAnswer(writeCommand(1, 2), Answer::shortWrite(7), ScriptedPort::Forever);
        rig.worker().writeProgramFileProcess(Parameters, 1, 3, 0);
        const QList<QByteArray> attempt{"0100XFO,1,W,0", writeCommand(1, 1), writeCommand(1, 2),
                                        writeCommand(1, 2)};
        QCOMPARE(rig.port.sentCommands(), attempt + attempt);
        const QString failed = "Write File Fail. Error Code 22.";
        const QString over = "\nThe retry time of writing the Program 1 file is over 1 times.";
        QCOMPARE(fileBytes(rig.usbFile("WRITE_PROG_1_ERROR.txt")),
                 logText({failed, failed, over, failed, failed, over,
                          "Write File retry time is over 1 times."}));
        QCOMPARE(rig.events(), (QStringList{"write 33", "write 33", "WF 0", "WE 1"}));
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
    // and no log is written: the user is told directly.
    void loaderFailure()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        WorkflowRig rig;
        const QString file = rig.usbFile("PROG_3.txt");
        if (!content.isNull())
            QVERIFY(writeBytes(file, content));
        rig.worker().writeProgramFileProcess(Parameters, 3, 2, 0);
        QVERIFY(rig.port.trace().isEmpty());
        QCOMPARE(rig.events(), (QStringList{"message DCP30: " + message, "WF 0"}));
        QVERIFY(!QFile::exists(rig.usbFile("WRITE_PROG_3_ERROR.txt")));
    }
};

QTEST_GUILESS_MAIN(WriteWorkflowTest)
#include "tst_writeworkflow.moc"
