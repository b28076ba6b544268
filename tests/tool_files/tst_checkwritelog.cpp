// `dcp30ctl check` against the real thing: the same file written into the
// simulator through the plug-in (`dcp30ctl write`) must leave a write log
// holding exactly the messages check printed, with the same controller
// parameters (check reads them through --port, as the driver does).
#include <QtTest>

#include "toolfilessupport.h"

using namespace tooltest;

namespace
{

// The simulator on a fresh pseudo-terminal; it ends when its stdin closes.
class Simulator
{
public:
    explicit Simulator(const QStringList& arguments)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(qEnvironmentVariable("DCP_BUILD_DIR") + QStringLiteral("/bin/dcp30-sim"),
                      QStringList{"--baud", "0", "--exit-on-stdin-eof"} + arguments);
        if (!process.waitForStarted(5000))
            return;
        while (!process.canReadLine() && process.waitForReadyRead(5000)) {
        }
        device = QString::fromLocal8Bit(process.readLine()).trimmed().section("listening on ", 1);
    }
    ~Simulator()
    {
        process.closeWriteChannel();
        if (!process.waitForFinished(5000)) {
            process.kill();
            process.waitForFinished(2000);
        }
    }
    QString device;

private:
    QProcess process;
};

struct Edit {
    int segment;
    int column;
    QString text;
};

QList<QStringList> edited(QList<QStringList> rows, const QList<Edit>& edits)
{
    for (const Edit& e : edits)
        rows[e.segment - 1][e.column] = e.text;
    return rows;
}

} // namespace

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
                                                     {3, Time, "1:xx"},
                                                     {3, T2First, "2.00"},
                                                     {3, T2Second, "1.00"},
                                                     {2, T1First, "x"}});
    mixed[3] << "extra";
    QTest::newRow("sample controller: PV, time event, times, tag, cells, missing rows")
        << mixed << "-1999,9999"
        << "0,4,50" << 6;
    QTest::newRow("narrow limits: MV/MFB, deviation and kindless events")
        << edited(validRows(3), {{1, Sp1, "600"},
                                 {1, Ev1First, "-101"},
                                 {2, Ev2First, "-1"},
                                 {2, Ev3First, "6000"},
                                 {3, Ev3First, "100"},
                                 {3, Ev3Second, "----"}})
        << "0,500"
        << "8,5,7" << 3;
    QTest::newRow("time event pairs, nothing left to write")
        << edited(validRows(2), {{1, Ev3Second, "0"}, {2, Ev3First, "100"}, {2, Ev3Second, "50"}})
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
    QVERIFY(!program.isEmpty());
    Simulator sim({"--sp-limits", limits, "--event-kinds", kinds});
    QVERIFY(sim.device.startsWith(QLatin1String("/dev/")));

    const ToolRun check =
        runTool({"check", program, "--port", sim.device, "--segments", QString::number(segments)});
    QVERIFY(!check.crashed);
    QString summary;
    const QString checkLog = checkLogPart(check.out, nullptr, &summary);
    // The parameters came from the simulator, not from the defaults.
    const QString parameters = QStringLiteral("SP1 %1, event kinds %2 from the controller")
                                   .arg(QString(limits).replace(QLatin1Char(','), ".."), kinds);
    QVERIFY2(summary.contains(parameters), qPrintable(summary));

    QProcessEnvironment fast;
    fast.insert(QStringLiteral("DCP30_WAIT_PERCENT"), QStringLiteral("10"));
    const ToolRun write = runTool({"write", "--port", sim.device, "--program", "1", "--segments",
                                   QString::number(segments), "--usb", usb.path()},
                                  fast, 60000);
    QVERIFY(!write.crashed);
    QVERIFY2(write.exitCode == 0 || write.exitCode == 1, qPrintable(write.err));

    QFile log(usb.filePath(QStringLiteral("WRITE_PROG_1_ERROR.txt")));
    if (checkLog.isEmpty()) {
        QCOMPARE(check.exitCode, 0);
        QCOMPARE(write.exitCode, 0);
        QVERIFY(!log.exists());
        return;
    }
    QCOMPARE(check.exitCode, 1);
    QVERIFY2(log.open(QIODevice::ReadOnly | QIODevice::Text), qPrintable(write.err));
    QCOMPARE(QString::fromUtf8(log.readAll()), QStringLiteral("Program 1:\n") + checkLog);
}

QTEST_GUILESS_MAIN(TestCheckWriteLog)

#include "tst_checkwritelog.moc"
