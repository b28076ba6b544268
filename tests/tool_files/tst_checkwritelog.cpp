// `dcp30ctl check` against the real thing: the same file written into the
// simulator through the plug-in (`dcp30ctl write`) must leave a write log
// holding exactly the messages check printed, with the same controller
// parameters (check reads them through --port, as the driver does).
#include <QtTest>

#include "toolfilessupport.h"

using namespace tooltest;

class TestCheckWriteLog : public QObject
{
    Q_OBJECT
private slots:
    void checkMatchesWriteLog_data();
    void checkMatchesWriteLog();
};

void TestCheckWriteLog::checkMatchesWriteLog_data()
{
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<QString>("limits");
    QTest::addColumn<QString>("kinds");
    QTest::addColumn<int>("segments");

    QList<QStringList> mixed = edited(validRows(4), {{1, Tag, "ab{"},
                                                     {1, Ev1First, "10000"},
                                                     {2, T1First, "x"},
                                                     {3, Time, "1:xx"},
                                                     {3, T1First + 2, "2.00"},
                                                     {3, T1First + 3, "1.00"},
                                                     {4, Time, "90"}});
    mixed[3] << "extra"; // segment 4 also has a cell too many
    QTest::newRow("PV event, tag, times, cells, missing rows") << mixed << "-1999,9999"
                                                               << "0,4,50" << 6;
    // A negative limit survives the double-word reads of check and driver.
    QTest::newRow("MV/MFB, deviation and kindless events, narrow limits")
        << edited(validRows(3), {{1, Sp1, "600"},
                                 {1, Ev1First, "-101"},
                                 {2, Ev2First, "-1"},
                                 {2, Ev3First, "6000"},
                                 {3, Time, "100:00"}})
        << "-100,500"
        << "8,5,7" << 3;
    QTest::newRow("time event pairs, nothing left to write")
        << edited(validRows(2),
                  {{1, Ev3First + 1, "0"}, {2, Ev3First, "100"}, {2, Ev3First + 1, "50"}})
        << "-1999,9999"
        << "0,4,50" << 2;
    QTest::newRow("valid program, no log") << validRows(3) << "-1999,9999"
                                           << "0,4,50" << 3;
}

void TestCheckWriteLog::checkMatchesWriteLog()
{
    QFETCH(QList<QStringList>, rows);
    QFETCH(QString, limits);
    QFETCH(QString, kinds);
    QFETCH(int, segments);

    QTemporaryDir usb;
    const QString program = writeProgram(usb, QStringLiteral("PROG_1.txt"), rows);
    E2e::Simulator sim({"--baud", "0", "--sp-limits", limits, "--event-kinds", kinds});
    QVERIFY(sim.started());

    const E2e::ToolRun check = runTool(
        {"check", program, "--port", sim.device(), "--segments", QString::number(segments)});
    QVERIFY(ranToEnd(check));
    QStringList warnings;
    QString summary;
    const QString checkLog = checkLogPart(check.out, &warnings, &summary);
    // The parameters came from the simulator, not from the defaults.
    QVERIFY2(summary.endsWith(QStringLiteral("(SP1 %1, event kinds %2 from the controller)")
                                  .arg(QString(limits).replace(',', ".."), kinds)),
             qPrintable(summary));

    const E2e::ToolRun write =
        runTool({"write", "--port", sim.device(), "--program", "1", "--segments",
                 QString::number(segments), "--usb", usb.path()},
                10);
    QVERIFY2(ranToEnd(write), qPrintable(write.describe()));
    const QString log = QString::fromUtf8(E2e::readFile(usb.filePath("WRITE_PROG_1_ERROR.txt")));
    QCOMPARE(log, checkLog.isEmpty() ? QString() : "Program 1:\n" + checkLog);
    QCOMPARE(write.exitCode, checkLog.isEmpty() ? 0 : 1);
    QCOMPARE(check.exitCode, checkLog.isEmpty() ? 0 : 1);
}

QTEST_GUILESS_MAIN(TestCheckWriteLog)

#include "tst_checkwritelog.moc"
