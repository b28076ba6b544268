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
    void cleanup();
    void missingMedium_data();
    void missingMedium();
    void readOnlyMedium();
    void logOnReadOnlyMedium();
    void fullMedium_data();
    void fullMedium();
    void pulledDuringTransfer_data();
    void pulledDuringTransfer();
};

void TestE2eMedia::cleanup()
{
    QVERIFY2(livingChildren().isEmpty(), "a simulator or dcp30ctl outlived its test");
}

void TestE2eMedia::missingMedium_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<QString>("storage");
    QTest::addColumn<QString>("medium");
    QTest::newRow("read, USB") << "read"
                               << "usb"
                               << "USB Stick";
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
void TestE2eMedia::missingMedium()
{
    QFETCH(QString, verb);
    QFETCH(QString, storage);
    QFETCH(QString, medium);
    QTemporaryDir dir;
    const QString missing = dir.filePath(QStringLiteral("stick"));
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
    QVERIFY(sim.started());
    const ToolRun run = runTool(
        transferArgs(qPrintable(verb), sim.device(), 2, 3, missing) +
            QStringList{QStringLiteral("--storage"), storage, QStringLiteral("--sd"), missing},
        Waits);
    QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(
                 QStringLiteral("DCP30: The system can't not detect the %1.\n").arg(medium)),
             qPrintable(run.err));
    QVERIFY2(run.err.contains(
                 QStringLiteral("%1 directory %2 does not exist").arg(storage.toUpper(), missing)),
             qPrintable(run.err));
    QVERIFY2(!run.err.contains(QLatin1String("raised")), qPrintable(run.err));
    QVERIFY(!QFileInfo::exists(missing));
}

void TestE2eMedia::readOnlyMedium()
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
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
    QVERIFY(sim.started());
    const ToolRun run = runTool(transferArgs("read", sim.device(), 1, 6, usb), Waits);
    QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QLatin1String("DCP30: File cannot be opened.\n")),
             qPrintable(run.err));
    QVERIFY2(run.err.contains(QLatin1String("no program file was written")), qPrintable(run.err));
    QVERIFY(!run.err.contains(QLatin1String("raised")));
    QCOMPARE(QDir(usb).entryList(QDir::Files), QStringList());
}

// The program file loads, the controller refuses a segment, and the log
// cannot be written: the error flag still rises and the tool says the log
// is missing.
void TestE2eMedia::logOnReadOnlyMedium()
{
    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    ScratchMount mount(usb, "size=64k");
    if (!mount.mounted)
        QSKIP(qPrintable(QStringLiteral("no tmpfs to make read-only: %1").arg(mount.why)));
    const QString file = usb + QStringLiteral("/PROG_5.txt");
    QVERIFY(writeFile(file, expectedProgramFile(ProgramStore::samples(), 3, segmentRange(3))));
    QVERIFY(mount.remountReadOnly());
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0"), QStringLiteral("--fault"),
                   QStringLiteral("status=57:FW:2")});
    QVERIFY(sim.started());
    const ToolRun run = runTool(transferArgs("write", sim.device(), 5, 3, usb), Waits);
    QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QLatin1String("the driver raised WE0 but left no error log")),
             qPrintable(run.err));
    QCOMPARE(QDir(usb).entryList(QDir::Files), QStringList{QStringLiteral("PROG_5.txt")});
}

void TestE2eMedia::fullMedium_data()
{
    QTest::addColumn<bool>("tmpfs");
    QTest::newRow("small tmpfs") << true;
    QTest::newRow("file on /dev/full") << false;
}

// The medium fills up while the table is saved: the saver notices, the
// driver shows its message, and the half-written file is not taken for a
// saved program.
void TestE2eMedia::fullMedium()
{
    QFETCH(bool, tmpfs);
    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    QVERIFY(QDir().mkpath(usb));
    const QString file = usb + QStringLiteral("/PROG_3.txt");
    std::unique_ptr<ScratchMount> mount;
    if (tmpfs) {
        // One page: the header and a few rows fit, thirty segments do not.
        mount.reset(new ScratchMount(usb, "size=4k"));
        if (!mount->mounted)
            QSKIP(qPrintable(QStringLiteral("no small tmpfs here: %1").arg(mount->why)));
    } else {
        QVERIFY(QFile::link(QStringLiteral("/dev/full"), file));
    }
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0")});
    QVERIFY(sim.started());
    const ToolRun run = runTool(transferArgs("read", sim.device(), 3, 30, usb), Waits);
    QVERIFY2(run.finished && run.exitCode == 1, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QLatin1String("DCP30: File cannot be written.\n")),
             qPrintable(run.err));
    QVERIFY2(run.err.contains(QLatin1String("the driver reported: File cannot be written.")),
             qPrintable(run.err));
    if (tmpfs) {
        const QByteArray written = readFile(file);
        QVERIFY(written.size() <
                expectedProgramFile(ProgramStore::samples(), 3, segmentRange(30)).size());
    }
}

void TestE2eMedia::pulledDuringTransfer_data()
{
    QTest::addColumn<QString>("verb");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("read: nothing to save into") << "read" << 1;
    QTest::newRow("write: the file was loaded before") << "write" << 0;
}

// The directory disappears after the first segment. A read has nowhere to
// save and says so; a write has loaded its file before the first segment
// and completes.
void TestE2eMedia::pulledDuringTransfer()
{
    QFETCH(QString, verb);
    QFETCH(int, exitCode);
    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    QVERIFY(QDir().mkpath(usb));
    const QString programs = dir.filePath(QStringLiteral("programs.txt"));
    const int segments = 10;
    const int program = verb == QLatin1String("read") ? 2 : 6;
    const ProgramStore samples = ProgramStore::samples();
    if (verb == QLatin1String("write"))
        QVERIFY(writeFile(usb + QStringLiteral("/PROG_%1.txt").arg(program),
                          expectedProgramFile(samples, 2, segmentRange(segments))));
    Simulator sim({QStringLiteral("--baud"), QStringLiteral("0"), QStringLiteral("--programs"),
                   programs, QStringLiteral("--save-on-exit")});
    QVERIFY(sim.started());

    RunningTool tool(transferArgs(qPrintable(verb), sim.device(), program, segments, usb), Waits);
    QVERIFY(tool.waitForError(QStringLiteral("progress "), 30000));
    QVERIFY(QDir(usb).removeRecursively());
    const ToolRun run = tool.finish();
    QVERIFY2(run.finished && run.exitCode == exitCode, qPrintable(run.describe()));
    QVERIFY2(run.err.contains(QLatin1String("progress 100%")), qPrintable(run.err));
    QVERIFY(!QFileInfo::exists(usb));
    if (exitCode == 1) {
        QVERIFY2(run.err.contains(QLatin1String("DCP30: The system can't not detect the USB "
                                                "Stick.\n")),
                 qPrintable(run.err));
        QVERIFY2(run.err.contains(QStringLiteral("USB directory %1 does not exist").arg(usb)),
                 qPrintable(run.err));
        return;
    }
    QVERIFY(sim.stop());
    ProgramStore saved;
    QString error;
    QVERIFY2(saved.load(programs, &error), qPrintable(error));
    QCOMPARE(saved.segmentCount(program), segments);
    for (int s = 1; s <= segments; ++s)
        QCOMPARE(saved.segment(program, s), samples.segment(2, s));
}

QTEST_GUILESS_MAIN(TestE2eMedia)
#include "tst_e2e_media.moc"
