// End to end: the medium misbehaves while the controller behaves. A missing,
// read-only, full or pulled medium must end every transfer with the running
// flag dropped, the driver's complaint shown, a failure status, and nothing
// passed off as a saved program.
#include <QtTest>

#include "../driver_core/tsanoptions.h"
#include "../e2e_support/e2eprocesses.h"
#include "sim/programstore.h"

#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace E2e;

namespace
{

constexpr int Waits = 30;
const QStringList FastLine{QStringLiteral("--baud"), QStringLiteral("0")};

// What is wrong with a run that should have ended with exitCode and said
// each of texts on stderr; empty when nothing is.
QString mismatch(const ToolRun& run, int exitCode, const QStringList& texts)
{
    if (!run.finished || run.exitCode != exitCode)
        return run.describe();
    for (const QString& text : texts) {
        if (!run.err.contains(text))
            return QStringLiteral("no \"%1\" in:\n%2").arg(text, run.err);
    }
    return QString();
}

// A small tmpfs mounted for one test, unmounted when it goes. Root can
// mount here; where mounting is not permitted the test says so and skips.
class ScratchMount
{
public:
    ScratchMount(const QString& directory, const QByteArray& options, unsigned long flags = 0)
        : path(QFile::encodeName(directory))
    {
        QDir().mkpath(directory);
        if (::mount("tmpfs", path.constData(), "tmpfs", flags, options.constData()) == 0)
            mounted = true;
        else
            why = QString::fromLocal8Bit(std::strerror(errno));
    }
    ~ScratchMount()
    {
        if (mounted)
            ::umount2(path.constData(), MNT_DETACH);
    }
    bool remountReadOnly()
    {
        return ::mount("tmpfs", path.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }
    bool mounted = false;
    QString why;

private:
    QByteArray path;
};

} // namespace

class TestE2eMedia : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        QVERIFY2(livingChildren().isEmpty(), "a simulator or dcp30ctl outlived its test");
    }

    void missingMedium_data()
    {
        QTest::addColumn<QString>("verb");
        QTest::addColumn<QString>("storage");
        QTest::addColumn<QString>("medium");
        QTest::newRow("read, SD") << "read"
                                  << "sd"
                                  << "SD Card";
        QTest::newRow("write, USB") << "write"
                                    << "usb"
                                    << "USB Stick";
    }
    // A directory that does not exist is an unmounted medium: the driver says
    // so, the flag drops without an error flag, and the tool names the
    // directory.
    void missingMedium()
    {
        QFETCH(QString, verb);
        QFETCH(QString, storage);
        QFETCH(QString, medium);
        QTemporaryDir dir;
        const QString missing = dir.filePath(QStringLiteral("stick"));
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run = runTool(transferArgs(qPrintable(verb), sim.device(), 2, 3, missing)
                                        << "--storage" << storage << "--sd" << missing,
                                    Waits);
        const QString wrong = mismatch(
            run, 1,
            {QStringLiteral("DCP30: The system can't not detect the %1.\n").arg(medium),
             QStringLiteral("%1 directory %2 does not exist").arg(storage.toUpper(), missing)});
        QVERIFY2(wrong.isEmpty() && !run.err.contains("raised"), qPrintable(wrong + run.err));
        QVERIFY(!QFileInfo::exists(missing));
    }

    void readOnlyMedium()
    {
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        ScratchMount mount(usb, "size=64k", MS_RDONLY);
        if (!mount.mounted) {
            if (::geteuid() == 0)
                QSKIP(qPrintable(QStringLiteral("root ignores permissions and a read-only tmpfs "
                                                "cannot be mounted: %1")
                                     .arg(mount.why)));
            QVERIFY(QFile::setPermissions(usb, QFile::ReadOwner | QFile::ExeOwner));
        }
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run = runTool(transferArgs("read", sim.device(), 1, 6, usb), Waits);
        const QString wrong =
            mismatch(run, 1, {"DCP30: File cannot be opened.\n", "no program file was written"});
        QVERIFY2(wrong.isEmpty() && !run.err.contains("raised"), qPrintable(wrong + run.err));
        QCOMPARE(QDir(usb).entryList(QDir::Files), QStringList());
    }

    // The program file loads, the controller refuses a segment, and the log
    // cannot be written: the error flag still rises and the tool says the log
    // is missing.
    void logOnReadOnlyMedium()
    {
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        ScratchMount mount(usb, "size=64k");
        if (!mount.mounted)
            QSKIP(qPrintable(QStringLiteral("no tmpfs to make read-only: %1").arg(mount.why)));
        const QString file = usb + QStringLiteral("/PROG_5.txt");
        QVERIFY(writeFile(file, expectedProgramFile(ProgramStore::samples(), 3, segmentRange(3))));
        QVERIFY(mount.remountReadOnly());
        Simulator sim(FastLine + QStringList{"--fault", "status=57:FW:2"});
        QVERIFY(sim.started());
        const ToolRun run = runTool(transferArgs("write", sim.device(), 5, 3, usb), Waits);
        const QString wrong = mismatch(run, 1, {"the driver raised WE0 but left no error log"});
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
        QCOMPARE(QDir(usb).entryList(QDir::Files), QStringList{QStringLiteral("PROG_5.txt")});
    }

    void fullMedium_data()
    {
        QTest::addColumn<bool>("tmpfs");
        QTest::addColumn<int>("segments");
        // One page: the header and a few rows fit, thirty segments do not.
        QTest::newRow("small tmpfs") << true << 30;
        QTest::newRow("file on /dev/full") << false << 2;
    }
    // The medium fills up while the table is saved: the saver notices, the
    // driver shows its message, and the half-written file is not taken for a
    // saved program.
    void fullMedium()
    {
        QFETCH(bool, tmpfs);
        QFETCH(int, segments);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        const QString file = usb + QStringLiteral("/PROG_3.txt");
        std::unique_ptr<ScratchMount> mount;
        if (tmpfs) {
            mount.reset(new ScratchMount(usb, "size=4k"));
            if (!mount->mounted)
                QSKIP(qPrintable(QStringLiteral("no small tmpfs here: %1").arg(mount->why)));
        } else {
            QVERIFY(QFile::link(QStringLiteral("/dev/full"), file));
        }
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run = runTool(transferArgs("read", sim.device(), 3, segments, usb), Waits);
        const QString wrong = mismatch(
            run, 1,
            {"DCP30: File cannot be written.\n", "the driver reported: File cannot be written."});
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
        if (tmpfs)
            QVERIFY(readFile(file).size() <
                    expectedProgramFile(ProgramStore::samples(), 3, segmentRange(30)).size());
    }

    void pulledDuringTransfer_data()
    {
        QTest::addColumn<QString>("verb");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("read: nothing to save into") << "read" << 1;
        QTest::newRow("write: the file was loaded before") << "write" << 0;
    }
    // The directory disappears after the first segment. A read has nowhere to
    // save and says so, without an error flag; a write has loaded its file
    // before the first segment and completes.
    void pulledDuringTransfer()
    {
        QFETCH(QString, verb);
        QFETCH(int, exitCode);
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        const QString programs = dir.filePath(QStringLiteral("programs.txt"));
        const int segments = 10;
        const int program = verb == "read" ? 2 : 6;
        const ProgramStore samples = ProgramStore::samples();
        if (verb == "write")
            QVERIFY(writeFile(usb + QStringLiteral("/PROG_%1.txt").arg(program),
                              expectedProgramFile(samples, 2, segmentRange(segments))));
        Simulator sim(FastLine + QStringList{"--programs", programs, "--save-on-exit"});
        QVERIFY(sim.started());

        RunningTool tool(transferArgs(qPrintable(verb), sim.device(), program, segments, usb),
                         Waits);
        QVERIFY(tool.waitForError(QStringLiteral("progress "), 30000));
        QVERIFY(QDir(usb).removeRecursively());
        QStringList said{"progress 100%"};
        if (exitCode == 1)
            said << "DCP30: The system can't not detect the USB Stick.\n"
                 << QStringLiteral("USB directory %1 does not exist").arg(usb);
        const ToolRun run = tool.finish();
        const QString wrong = mismatch(run, exitCode, said);
        QVERIFY2(wrong.isEmpty() && !run.err.contains("raised"), qPrintable(wrong + run.err));
        QVERIFY(!QFileInfo::exists(usb));
        if (exitCode == 1)
            return;
        QVERIFY(sim.stop());
        ProgramStore saved;
        QString error;
        QVERIFY2(saved.load(programs, &error), qPrintable(error));
        QCOMPARE(saved.segmentCount(program), segments);
        for (int s = 1; s <= segments; ++s)
            QCOMPARE(saved.segment(program, s), samples.segment(2, s));
    }
};

QTEST_GUILESS_MAIN(TestE2eMedia)
#include "tst_e2e_media.moc"
