// End to end: dcp30ctl hosting the real plug-in, talking over a pseudo-
// terminal to the simulator. What was written is checked in the controller's
// own store, which the simulator saves when it exits.
#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

using namespace E2e;

namespace
{

// 30 % of the fixed waits still leaves the simulator, sending at once, ample
// time.
constexpr int FastWaits = 30;
const QStringList FastLine{QStringLiteral("--baud"), QStringLiteral("0")};

} // namespace

class TestE2eTransfer : public QObject
{
    Q_OBJECT

private slots:
    void roundTrip_data()
    {
        QTest::addColumn<int>("source");
        QTest::addColumn<int>("segments");
        QTest::addColumn<int>("target");
        QTest::addColumn<bool>("realPace");
        QTest::newRow("30 segments, SD card") << 3 << 30 << 9 << false;
        QTest::newRow("3 segments, USB stick, real waits, 9600 baud") << 2 << 3 << 8 << true;
    }
    // Read a sample program, then write its file into an empty program.
    void roundTrip()
    {
        QFETCH(int, source);
        QFETCH(int, segments);
        QFETCH(int, target);
        QFETCH(bool, realPace);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        const QString medium = realPace ? usb : dir.filePath(QStringLiteral("sd"));
        QVERIFY(QDir().mkpath(usb) && QDir().mkpath(medium));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        Simulator sim(QStringList{"--programs", programs, "--save-on-exit"} +
                      (realPace ? QStringList() : FastLine));
        QVERIFY(sim.started());
        auto transfer = [&](const char* verb, int program) {
            return runTool(
                transferArgs(verb, sim.device(), program, segments, usb) +
                    (realPace ? QStringList() : QStringList{"--storage", "sd", "--sd", medium}),
                realPace ? 0 : FastWaits);
        };
        const QString file = medium + QStringLiteral("/PROG_%1.txt");

        const ProgramStore samples = ProgramStore::samples();
        QCOMPARE(samples.segmentCount(target), 0);
        const ToolRun read = transfer("read", source);
        QVERIFY2(read.ok(0) && read.err.contains(QLatin1String("progress 100%")) &&
                     read.out.contains(file.arg(source)),
                 qPrintable(read.describe()));
        QCOMPARE(readFile(file.arg(source)),
                 expectedProgramFile(samples, source, segmentRange(segments)));
        QCOMPARE(QDir(usb).isEmpty(), !realPace);

        QVERIFY(QFile::copy(file.arg(source), file.arg(target)));
        const ToolRun write = transfer("write", target);
        QVERIFY2(write.ok(0) && write.err.contains(QLatin1String("progress 100%")),
                 qPrintable(write.describe()));
        QVERIFY(sim.stop());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        QCOMPARE(saved.segmentCount(target), segments);
        for (int s = 1; s <= segments; ++s)
            QCOMPARE(saved.segment(target, s), samples.segment(source, s));
        QCOMPARE(saved.segmentCount(source), samples.segmentCount(source));
    }

    // The driver, taken down mid-transfer when --timeout runs out, lets the
    // process end.
    void givesUpAfterItsTimeout()
    {
        QTemporaryDir dir;
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run =
            runTool(transferArgs("read", sim.device(), 3, 30, dir.path()) << "--timeout"
                                                                          << "1");
        QVERIFY2(run.ok(1) && run.err.contains(
                                  QLatin1String("program 3 failed: RF0 still set after 1 s; the "
                                                "transfer did not end")),
                 qPrintable(run.describe()));
        QVERIFY(!QFileInfo::exists(dir.filePath(QStringLiteral("PROG_3.txt"))));
    }

    // Bad usage: what is wrong and where help is, nothing on stdout.
    void usageError()
    {
        const ToolRun run =
            runTool(transferArgs("read", "/nonexistent/tty", 3, 31, "/nonexistent/usb"));
        QVERIFY2(run.ok(2) && run.out.isEmpty(), qPrintable(run.describe()));
        QCOMPARE(run.err, QStringLiteral("dcp30ctl read: segment count 31 is out of range 1..30 "
                                         "(--clamp takes 30, as a panel would)\n"
                                         "(see 'dcp30ctl read --help')\n"));
    }

    // --json: one document per run, parsed back; the failing segment carries
    // its own messages. The write takes any file (staged as PROG_N.txt) and
    // counts its segment rows itself.
    void jsonReports()
    {
        QTemporaryDir dir;
        Simulator sim(FastLine + QStringList{"--fault", "status=52:FR:2"});
        QVERIFY(sim.started());
        auto segmentMessages = [](const QJsonObject& report, int segment) {
            const QJsonObject entry = report["segments"].toArray().at(segment - 1).toObject();
            return entry["segment"].toInt() == segment ? entry["messages"].toArray().toVariantList()
                                                       : QVariantList{"<no entry>"};
        };

        const ToolRun read =
            runTool(transferArgs("read", sim.device(), 3, 3, dir.path()) << "--json", FastWaits);
        const QJsonObject readReport = QJsonDocument::fromJson(read.out.toUtf8()).object();
        QVERIFY2(read.ok(1) && readReport["exitStatus"].toInt() == 1 &&
                     readReport["errorFlag"].toBool(),
                 qPrintable(read.describe()));
        QCOMPARE(segmentMessages(readReport, 1), QVariantList());
        QCOMPARE(segmentMessages(readReport, 2),
                 QVariantList{"Seg2:Program number or segment number is in error. No program in "
                              "the segment."});

        // Row 2's SP1 beyond the limits, in a file of any name.
        const QString source = dir.filePath("cold box.txt");
        QVERIFY(
            writeFile(source, withCell(expectedProgramFile(ProgramStore::samples(), 3, {1, 2, 3}),
                                       2, 1, "99999")));
        const ToolRun write = runTool({"write", "--port", sim.device(), "--program", "5", source,
                                       "--force", "--json", "--poll-ms", "20"},
                                      FastWaits);
        const QJsonObject writeReport = QJsonDocument::fromJson(write.out.toUtf8()).object();
        QVERIFY2(write.ok(1) && writeReport["segmentCount"].toInt() == 3 &&
                     writeReport["file"].toString() == source,
                 qPrintable(write.describe()));
        QCOMPARE(segmentMessages(writeReport, 2),
                 (QVariantList{"Segment 2 has following format error :",
                               "SP1 [99999] is out of range (-1999 ~ 9999)."}));
        QCOMPARE(segmentMessages(writeReport, 3), QVariantList());
    }
};

QTEST_GUILESS_MAIN(TestE2eTransfer)
#include "tst_e2e_transfer.moc"
