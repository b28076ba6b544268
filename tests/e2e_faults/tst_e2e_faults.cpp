// The fault matrix, end to end: every fault kind of the simulator at the
// open, at a middle segment and at the close, for reads and writes, with no
// retries and with three. Each run must end (the running flag drops), with
// the right exit status, error flag and log text, and with the file or the
// controller's program that the fault allows: a fault the retries overcome
// still gives a complete, correct file.
//
// How the controller behaves decides some rows: a reply lost after the
// controller carried out an open leaves its file open, so the repeated open
// is refused with "File is already open." - a controller error, which ends
// the attempt without a retry. Only a request the controller never heard
// ("deaf") is overcome at the open. A late reply (3 s here, far beyond the
// shortened waits) holds up every later reply on the line.
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "driver/segmentcodec.h"
#include "sim/programstore.h"

using namespace E2e;

namespace
{

constexpr int Waits = 30;       // percent of the fixed waits
constexpr int ReadProgram = 3;  // a sample program
constexpr int WriteProgram = 5; // empty in the samples
constexpr int Segments = 3;     // segment 2 is "the middle"
constexpr int LateMs = 3000;

enum class FileOutcome {
    Complete,        // rows 1, 2, 3
    WithoutSegment2, // rows 1 and 3: segment 2 failed and was not retried
    Segment2Refused, // rows 1, an unset row for 2, 3
    OnlySegment1,    // rows 1
    None             // no file
};

enum class ControllerOutcome { Written, Untouched, WithoutSegment2, Unchecked };

struct Expectation {
    QStringList log; // without the "Program 1:" line; empty: no error flag, exit 0
    FileOutcome file = FileOutcome::Complete;
    ControllerOutcome controller = ControllerOutcome::Written;
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
    const QStringList labels{QStringLiteral("First retry."), QStringLiteral("Second retry.")};
    for (int r = 1; r <= retries; ++r) {
        if (r < retries)
            log << (r <= 2 ? labels.at(r - 1) : QStringLiteral("%1 st retry.").arg(r));
        log << openFailure(read);
    }
    if (retries > 0)
        log << QStringLiteral("%1 File retry time is over %2 times.")
                   .arg(read ? QStringLiteral("Read") : QStringLiteral("Write"))
                   .arg(retries);
    return log;
}

// What a fault does to a transfer of segments 1..3, worked out from the
// controller's behaviour (above) and the workflows' retry rules.
Expectation expect(bool read, const QString& position, const QString& kind, int retries)
{
    Expectation e;
    e.controller = read ? ControllerOutcome::Unchecked : ControllerOutcome::Written;
    if (position == QLatin1String("close"))
        return e; // the close's reply is never examined

    const bool status = kind.startsWith(QLatin1String("status"));
    const bool late = kind.startsWith(QLatin1String("late"));
    const bool heard = kind != QLatin1String("deaf") && !status; // the controller acted on it
    if (position == QLatin1String("open")) {
        e.file = FileOutcome::None;
        e.controller = read ? ControllerOutcome::Unchecked : ControllerOutcome::Untouched;
        if (status) {
            e.log << (read ? QStringLiteral("Program number or segment number is in error. No "
                                            "program in the segment.")
                           : QStringLiteral("File OPEN, File block WRITE and File DELETE are "
                                            "inhibited."));
        } else if (late) {
            e.log = allAttemptsFail(read, retries);
        } else {
            e.log << openFailure(read);
            if (!heard && retries > 0) {
                e.file = FileOutcome::Complete;
                e.controller = read ? ControllerOutcome::Unchecked : ControllerOutcome::Written;
            }
        }
        return e;
    }

    // The middle segment.
    if (status) {
        e.log << (read ? QStringLiteral("Seg2:Program number or segment number is in error. No "
                                        "program in the segment.")
                       : QStringLiteral("Seg2:Block data of File block WRITE is in error."));
        e.file = FileOutcome::Segment2Refused;
        e.controller = read ? ControllerOutcome::Unchecked : ControllerOutcome::WithoutSegment2;
        return e;
    }
    const bool shortRecord =
        kind.startsWith(QLatin1String("truncate")) || kind.startsWith(QLatin1String("length"));
    const QString failure =
        !read ? QStringLiteral("Write File Fail. Error Code 21.")
        : shortRecord
            ? QStringLiteral("Reading the Program %1 file fail. Error Code 2.").arg(ReadProgram)
            : QStringLiteral("Reading the Program %1 file fail. Error Code 1.").arg(ReadProgram);
    if (late) {
        if (retries == 0) {
            // Segment 3's reply waits behind the late one: it fails as well.
            e.log << failure << failure;
            e.file = FileOutcome::OnlySegment1;
            return e; // the controller carried out every write
        }
        for (int i = 0; i <= retries; ++i)
            e.log << failure;
        e.log << (read ? QStringLiteral("The retry time of reading the Program %1 file is over %2 "
                                        "times.")
                             .arg(ReadProgram)
                             .arg(retries)
                       : QStringLiteral("\nThe retry time of writing the Program %1 file is over "
                                        "%2 times.")
                             .arg(WriteProgram)
                             .arg(retries));
        const QStringList attempts = allAttemptsFail(read, retries);
        e.log += attempts.mid(1); // the first attempt's own failure is the segment's
        e.file = FileOutcome::None;
        e.controller = ControllerOutcome::Unchecked;
        return e;
    }
    e.log << failure;
    if (retries == 0) {
        e.file = FileOutcome::WithoutSegment2;
        if (!read && !heard)
            e.controller = ControllerOutcome::WithoutSegment2;
    }
    return e;
}

QByteArray expectedFile(FileOutcome outcome)
{
    const ProgramStore samples = ProgramStore::samples();
    switch (outcome) {
    case FileOutcome::Complete:
        return expectedProgramFile(samples, ReadProgram, {1, 2, 3});
    case FileOutcome::WithoutSegment2:
        return expectedProgramFile(samples, ReadProgram, {1, 3});
    case FileOutcome::Segment2Refused: {
        auto row = [&](int segment) {
            return SegmentCodec::recordToRow(
                segment, QString::fromLatin1(samples.segment(ReadProgram, segment)));
        };
        return programFileBytes({SegmentCodec::headerRow(), row(1), refusedSegmentRow(2), row(3)});
    }
    case FileOutcome::OnlySegment1:
        return expectedProgramFile(samples, ReadProgram, {1});
    case FileOutcome::None:
        break;
    }
    return QByteArray();
}

} // namespace

Q_DECLARE_METATYPE(FileOutcome)
Q_DECLARE_METATYPE(ControllerOutcome)

class TestE2eFaults : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();
    void faults_data();
    void faults();
};

void TestE2eFaults::cleanup()
{
    QVERIFY2(livingChildren().isEmpty(), "a simulator or dcp30ctl outlived its test");
}

void TestE2eFaults::faults_data()
{
    QTest::addColumn<bool>("read");
    QTest::addColumn<QStringList>("rules");
    QTest::addColumn<int>("retries");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<FileOutcome>("file");
    QTest::addColumn<ControllerOutcome>("controller");

    struct Place {
        const char* name;
        const char* readCommand;
        const char* writeCommand;
        const char* readStatus;
        const char* writeStatus;
    };
    const Place places[] = {{"open", "FO-R", "FO-W", "52", "59"},
                            {"middle", "FR:2", "FW:2", "52", "57"},
                            {"close", "FC", "FC", "51", "51"}};
    const QStringList kinds{QStringLiteral("drop"),   QStringLiteral("deaf"),
                            QStringLiteral("garble"), QStringLiteral("truncate"),
                            QStringLiteral("late"),   QStringLiteral("noise"),
                            QStringLiteral("length"), QStringLiteral("status")};
    for (bool read : {true, false}) {
        for (const Place& place : places) {
            for (const QString& kind : kinds) {
                // Only a segment read's reply carries a record to lengthen.
                if (kind == QLatin1String("length") &&
                    !(read && qstrcmp(place.name, "middle") == 0))
                    continue;
                QString text = kind;
                if (kind == QLatin1String("late"))
                    text += QStringLiteral("=%1").arg(LateMs);
                if (kind == QLatin1String("status"))
                    text += QLatin1Char('=') +
                            QLatin1String(read ? place.readStatus : place.writeStatus);
                const QString rule = text + QLatin1Char(':') +
                                     QLatin1String(read ? place.readCommand : place.writeCommand) +
                                     QStringLiteral("@once");
                for (int retries : {0, 3}) {
                    const Expectation e = expect(read, QLatin1String(place.name), text, retries);
                    QTest::addRow("%s %s %s, %d retries", read ? "read" : "write", place.name,
                                  qPrintable(kind), retries)
                        << read << QStringList{rule} << retries << e.log << e.file << e.controller;
                }
            }
        }
    }

    // A segment that never gets through: its retries run out, and the
    // repeated attempt finds the controller's file still open.
    QTest::newRow("read middle garble always, 2 retries")
        << true << QStringList{"garble:FR:2@always"} << 2
        << QStringList{"Reading the Program 3 file fail. Error Code 1.",
                       "Reading the Program 3 file fail. Error Code 1.",
                       "Reading the Program 3 file fail. Error Code 1.",
                       "The retry time of reading the Program 3 file is over 2 times."}
        << FileOutcome::None << ControllerOutcome::Unchecked;
    QTest::newRow("write middle garble always, 1 retry")
        << false << QStringList{"garble:FW:2@always"} << 1
        << QStringList{"Write File Fail. Error Code 21.", "Write File Fail. Error Code 21.",
                       "\nThe retry time of writing the Program 5 file is over 1 times."}
        << FileOutcome::None << ControllerOutcome::Unchecked;
    // Two failures of one segment in a row, within a budget of three.
    QTest::newRow("read middle drop twice, 3 retries")
        << true << QStringList{"drop:FR:2@at=1", "drop:FR:2@at=2"} << 3
        << QStringList{"Reading the Program 3 file fail. Error Code 1.",
                       "Reading the Program 3 file fail. Error Code 1."}
        << FileOutcome::Complete << ControllerOutcome::Unchecked;
}

void TestE2eFaults::faults()
{
    QFETCH(bool, read);
    QFETCH(QStringList, rules);
    QFETCH(int, retries);
    QFETCH(QStringList, log);
    QFETCH(FileOutcome, file);
    QFETCH(ControllerOutcome, controller);
    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    QVERIFY(QDir().mkpath(usb));
    const QString programs = dir.filePath(QStringLiteral("programs.txt"));
    QStringList simArgs{QStringLiteral("--baud"), QStringLiteral("0"), QStringLiteral("--programs"),
                        programs, QStringLiteral("--save-on-exit")};
    for (const QString& rule : rules)
        simArgs << QStringLiteral("--fault") << rule;
    Simulator sim(simArgs);
    QVERIFY(sim.started());

    const int program = read ? ReadProgram : WriteProgram;
    const QString programFile = usb + QStringLiteral("/PROG_%1.txt").arg(program);
    const QString logFile = usb + QStringLiteral("/%1_PROG_%2_ERROR.txt")
                                      .arg(read ? QStringLiteral("READ") : QStringLiteral("WRITE"))
                                      .arg(program);
    const QByteArray source = expectedFile(FileOutcome::Complete);
    if (!read)
        QVERIFY(writeFile(programFile, source));

    const ToolRun run =
        runTool(transferArgs(read ? "read" : "write", sim.device(), program, Segments, usb)
                    << QStringLiteral("--retries") << QString::number(retries),
                Waits);
    QVERIFY2(run.finished && run.status == QProcess::NormalExit, qPrintable(run.describe()));
    QVERIFY2(!run.err.contains(QLatin1String("did not end")), qPrintable(run.describe()));
    const bool failed = !log.isEmpty();
    QVERIFY2(run.exitCode == (failed ? 1 : 0), qPrintable(run.describe()));

    if (failed) {
        QCOMPARE(QString::fromUtf8(readFile(logFile)),
                 (QStringList{QStringLiteral("Program 1:")} + log).join(QLatin1Char('\n')));
        QVERIFY2(run.err.contains(QStringLiteral("error log %1:").arg(logFile)),
                 qPrintable(run.err));
        QVERIFY2(run.err.contains(QStringLiteral("the driver raised %1")
                                      .arg(read ? QStringLiteral("RE0") : QStringLiteral("WE0"))),
                 qPrintable(run.err));
    } else {
        QVERIFY(!QFileInfo::exists(logFile));
    }
    if (read) {
        if (file == FileOutcome::None)
            QVERIFY(!QFileInfo::exists(programFile));
        else
            QCOMPARE(readFile(programFile), expectedFile(file));
    } else {
        QCOMPARE(readFile(programFile), source); // a write never touches its file
    }

    QVERIFY(sim.stop());
    if (controller == ControllerOutcome::Unchecked)
        return;
    ProgramStore saved;
    QString error;
    QVERIFY2(saved.load(programs, &error), qPrintable(error));
    const ProgramStore samples = ProgramStore::samples();
    switch (controller) {
    case ControllerOutcome::Written:
        QCOMPARE(saved.segmentCount(WriteProgram), Segments);
        for (int s = 1; s <= Segments; ++s)
            QCOMPARE(saved.segment(WriteProgram, s), samples.segment(ReadProgram, s));
        break;
    case ControllerOutcome::Untouched:
        QCOMPARE(saved.segmentCount(WriteProgram), 0);
        break;
    case ControllerOutcome::WithoutSegment2:
        QCOMPARE(saved.segment(WriteProgram, 1), samples.segment(ReadProgram, 1));
        QVERIFY(!saved.hasSegment(WriteProgram, 2));
        QCOMPARE(saved.segment(WriteProgram, 3), samples.segment(ReadProgram, 3));
        break;
    case ControllerOutcome::Unchecked:
        break;
    }
}

QTEST_GUILESS_MAIN(TestE2eFaults)
#include "tst_e2e_faults.moc"
