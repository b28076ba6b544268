// The fault matrix, end to end: the simulator's fault kinds at the open, at
// a middle segment and at the close, for reads and writes, with no retries
// and with three. Each run must end (the running flag drops), with the right
// exit status, error flag and log text, and with the file or the
// controller's program that the fault allows: a fault the retries overcome
// still gives a complete, correct file.
//
// The kinds are those that take different paths through line, driver and
// controller: a reply lost after the controller acted (drop), a request it
// never heard (deaf), a reply that comes late (3 s here, far beyond the
// shortened waits, so it holds up every later reply on the line), a refusal
// (status) and, for a segment read, a record of the wrong length. A garbled,
// cut or noisy reply fails the same checks as a lost one or a wrong length
// (the exchange suite has those replies). A refusal is never retried and the
// close's reply is never examined, so those run once.
//
// How the controller behaves decides some rows: a reply lost after the
// controller carried out an open leaves its file open, so the repeated open
// is refused with "File is already open." - a controller error, which ends
// the attempt without a retry. Only a request the controller never heard is
// overcome at the open.
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

using namespace E2e;

namespace
{

constexpr int Waits = 30;       // percent of the fixed waits
constexpr int ReadProgram = 3;  // a sample program
constexpr int WriteProgram = 5; // empty in the samples
constexpr int Segments = 3;     // segment 2 is "the middle"
constexpr int LateMs = 3000;
const QString NoProgram =
    "Program number or segment number is in error. No program in the segment.";

struct Expectation {
    QStringList log;            // without the "Program 1:" line; empty: exit 0
    QList<int> file{1, 2, 3};   // rows of the read's file (-s: refused); empty: no file
    QList<int> stored{1, 2, 3}; // segments the write leaves in the controller
    bool storeChecked = true;   // false: reads, and writes the fault leaves undecided
};

QString openFailure(bool read)
{
    return read ? QStringLiteral("Opening the Program %1 file fail. Error Code 1.").arg(ReadProgram)
                : QStringLiteral("Opening the Program %1 file fail. Error Code 11.")
                      .arg(WriteProgram);
}

// Every attempt of a read or write whose open is never answered in time.
QStringList allAttemptsFail(bool read, int retries)
{
    QStringList log{openFailure(read)};
    for (int r = 1; r <= retries; ++r) {
        if (r < retries) // at most three retries here
            log << (r == 1 ? "First retry." : "Second retry.");
        log << openFailure(read);
    }
    if (retries > 0)
        log << QStringLiteral("%1 File retry time is over %2 times.")
                   .arg(read ? "Read" : "Write")
                   .arg(retries);
    return log;
}

// The retry counts a kind runs with at a place; none where the row would
// take a path another row takes.
QList<int> retryCounts(bool read, const QString& place, const QString& kind)
{
    if (place == "close")
        return kind == "status" ? QList<int>{0} : QList<int>{};
    if (kind == "status")
        return {3};
    if (kind == "length")
        return read && place == "middle" ? QList<int>{0} : QList<int>{};
    if (kind == "drop" && place == "open")
        return {3}; // with none it fails as a deaf open does
    if (kind == "deaf" && place == "middle")
        return read ? QList<int>{} : QList<int>{0}; // a read changes nothing in the controller
    return {0, 3};
}

// What a fault does to a transfer of segments 1..3, worked out from the
// controller's behaviour (above) and the workflows' retry rules.
Expectation expect(bool read, const QString& place, const QString& kind, int retries)
{
    Expectation e;
    e.storeChecked = !read;
    if (place == "close")
        return e;
    const bool status = kind == "status";
    const bool late = kind == "late";
    if (place == "open") {
        e.file = e.stored = {};
        if (status)
            e.log << (read ? NoProgram
                           : "File OPEN, File block WRITE and File DELETE are inhibited.");
        else if (late)
            e.log = allAttemptsFail(read, retries);
        else
            e.log << openFailure(read);
        if (kind == "deaf" && retries > 0)
            e.file = e.stored = {1, 2, 3};
        return e;
    }

    // The middle segment.
    if (status) {
        e.log << (read ? "Seg2:" + NoProgram : "Seg2:Block data of File block WRITE is in error.");
        e.file = {1, -2, 3};
        e.stored = {1, 3};
        return e;
    }
    const QString failure = !read
                                ? QStringLiteral("Write File Fail. Error Code 21.")
                                : QStringLiteral("Reading the Program %1 file fail. Error Code %2.")
                                      .arg(ReadProgram)
                                      .arg(kind == "length" ? 2 : 1);
    if (late && retries == 0) {
        // Segment 3's reply waits behind the late one: it fails as well. The
        // controller carried out every write.
        e.log << failure << failure;
        e.file = {1};
        return e;
    }
    if (late) {
        for (int i = 0; i <= retries; ++i)
            e.log << failure;
        const QString over =
            read ? "The retry time of reading the Program %1 file is over %2 times."
                 : "\nThe retry time of writing the Program %1 file is over %2 times.";
        e.log << over.arg(read ? ReadProgram : WriteProgram).arg(retries);
        // The first attempt's own failure is the segment's.
        e.log += allAttemptsFail(read, retries).mid(1);
        e.file = {};
        e.storeChecked = false;
        return e;
    }
    e.log << failure;
    if (retries == 0) {
        e.file = {1, 3};
        if (kind == "deaf")
            e.stored = {1, 3};
    }
    return e;
}

} // namespace

class TestE2eFaults : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        QVERIFY2(livingChildren().isEmpty(), "a simulator or dcp30ctl outlived its test");
    }

    void faults_data()
    {
        QTest::addColumn<bool>("read");
        QTest::addColumn<QString>("rule");
        QTest::addColumn<int>("retries");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QList<int>>("file");
        QTest::addColumn<QList<int>>("stored");
        QTest::addColumn<bool>("storeChecked");
        auto add = [](const QString& name, bool read, const QString& rule, int retries,
                      const Expectation& e) {
            QTest::newRow(qPrintable(name))
                << read << rule << retries << e.log << e.file << e.stored << e.storeChecked;
        };
        struct Place {
            const char* name;
            const char* command[2]; // write, read
            const char* status[2];
        };
        const Place places[] = {{"open", {"FO-W", "FO-R"}, {"59", "52"}},
                                {"middle", {"FW:2", "FR:2"}, {"57", "52"}},
                                {"close", {"FC", "FC"}, {"51", "51"}}};
        for (bool read : {true, false}) {
            for (const Place& place : places) {
                for (const QString kind : {"drop", "deaf", "late", "length", "status"}) {
                    QString rule = kind;
                    if (kind == "late")
                        rule += QStringLiteral("=%1").arg(LateMs);
                    if (kind == "status")
                        rule += QLatin1Char('=') + QLatin1String(place.status[read]);
                    rule += QStringLiteral(":%1@once").arg(place.command[read]);
                    for (int retries : retryCounts(read, place.name, kind))
                        add(QStringLiteral("%1 %2 %3, %4 retries")
                                .arg(read ? "read" : "write", place.name, kind)
                                .arg(retries),
                            read, rule, retries, expect(read, place.name, kind, retries));
                }
            }
        }

        // A segment that never gets through: its retries run out, and the
        // repeated attempt finds the controller's file still open.
        const QString readCode1 = "Reading the Program 3 file fail. Error Code 1.";
        const QString writeCode21 = "Write File Fail. Error Code 21.";
        Expectation always;
        always.file = {};
        always.storeChecked = false;
        always.log = QStringList{readCode1, readCode1, readCode1,
                                 "The retry time of reading the Program 3 file is over 2 times."};
        add("read middle drop always, 2 retries", true, "drop:FR:2@always", 2, always);
        always.log = QStringList{writeCode21, writeCode21,
                                 "\nThe retry time of writing the Program 5 file is over 1 times."};
        add("write middle drop always, 1 retry", false, "drop:FW:2@always", 1, always);
    }

    void faults()
    {
        QFETCH(bool, read);
        QFETCH(QString, rule);
        QFETCH(int, retries);
        QFETCH(QStringList, log);
        QFETCH(QList<int>, file);
        QFETCH(QList<int>, stored);
        QFETCH(bool, storeChecked);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        Simulator sim({"--baud", "0", "--programs", programs, "--save-on-exit", "--fault", rule});
        QVERIFY(sim.started());

        const int program = read ? ReadProgram : WriteProgram;
        const QString programFile = usb + QStringLiteral("/PROG_%1.txt").arg(program);
        const QString logFile =
            usb + QStringLiteral("/%1_PROG_%2_ERROR.txt").arg(read ? "READ" : "WRITE").arg(program);
        const ProgramStore samples = ProgramStore::samples();
        const QByteArray source = expectedProgramFile(samples, ReadProgram, {1, 2, 3});
        if (!read)
            QVERIFY(writeFile(programFile, source));

        const ToolRun run =
            runTool(transferArgs(read ? "read" : "write", sim.device(), program, Segments, usb)
                        << "--retries" << QString::number(retries),
                    Waits);
        QVERIFY2(run.finished && run.status == QProcess::NormalExit, qPrintable(run.describe()));
        QVERIFY2(!run.err.contains("did not end"), qPrintable(run.describe()));
        QVERIFY2(run.exitCode == (log.isEmpty() ? 0 : 1), qPrintable(run.describe()));
        if (log.isEmpty()) {
            QVERIFY(!QFileInfo::exists(logFile));
        } else {
            QCOMPARE(QString::fromUtf8(readFile(logFile)),
                     (QStringList{QStringLiteral("Program 1:")} + log).join(QLatin1Char('\n')));
            QVERIFY2(run.err.contains(QStringLiteral("error log %1:").arg(logFile)) &&
                         run.err.contains(
                             QStringLiteral("the driver raised %1").arg(read ? "RE0" : "WE0")),
                     qPrintable(run.err));
        }
        if (!read) // a write never touches its file
            QCOMPARE(readFile(programFile), source);
        else if (file.isEmpty())
            QVERIFY(!QFileInfo::exists(programFile));
        else
            QCOMPARE(readFile(programFile), expectedProgramFile(samples, ReadProgram, file));

        QVERIFY(sim.stop());
        if (!storeChecked)
            return;
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        for (int s = 1; s <= Segments; ++s) {
            QCOMPARE(saved.hasSegment(WriteProgram, s), stored.contains(s));
            if (stored.contains(s))
                QCOMPARE(saved.segment(WriteProgram, s), samples.segment(ReadProgram, s));
        }
    }
};

QTEST_GUILESS_MAIN(TestE2eFaults)
#include "tst_e2e_faults.moc"
