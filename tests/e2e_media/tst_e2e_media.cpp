// End to end: the medium misbehaves while the controller behaves. A
// read-only, full or pulled medium must end every transfer with the running
// flag dropped, the driver's complaint shown, a failure status, and nothing
// passed off as a saved program. (A medium missing from the start is the
// worker suite's; the tool says the same as for a pulled one.)
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

// The run failed (exit status 1), said each of texts on stderr and raised an
// error flag only when raised.
bool failedSaying(const ToolRun& run, const QStringList& texts, bool raised = false)
{
    for (const QString& text : texts)
        if (!run.err.contains(text))
            return false;
    return run.finished && run.exitCode == 1 && run.err.contains(QLatin1String("raised")) == raised;
}

} // namespace

class TestE2eMedia : public QObject
{
    Q_OBJECT

private slots:
    // A read cannot save into the medium. A write loads its file, the
    // controller refuses a segment, and the log cannot be written: the error
    // flag still rises and the tool says the log is missing.
    void readOnlyMedium()
    {
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        // Root ignores permissions, but may mount a small tmpfs of its own.
        const QByteArray mountPoint = QFile::encodeName(usb);
        const bool mounted = ::mount("tmpfs", mountPoint, "tmpfs", 0, "size=64k") == 0;
        const QString why = QString::fromLocal8Bit(std::strerror(errno));
        const auto unmount = qScopeGuard([&] {
            if (mounted)
                ::umount2(mountPoint, MNT_DETACH);
        });
        QVERIFY(writeFile(usb + QStringLiteral("/PROG_5.txt"),
                          expectedProgramFile(ProgramStore::samples(), 3, segmentRange(3))));
        if (mounted)
            QVERIFY(::mount("tmpfs", mountPoint, "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0);
        else if (::geteuid() == 0)
            QSKIP(qPrintable("no tmpfs to make read-only: " + why));
        else
            QVERIFY(QFile::setPermissions(usb, QFile::ReadOwner | QFile::ExeOwner));
        Simulator sim(FastLine + QStringList{"--fault", "status=57:FW:2"});
        QVERIFY(sim.started());

        const ToolRun read = runTool(transferArgs("read", sim.device(), 1, 6, usb), Waits);
        QVERIFY2(
            failedSaying(read, {"DCP30: File cannot be opened.\n", "no program file was written"}),
            qPrintable(read.describe()));
        const ToolRun write = runTool(transferArgs("write", sim.device(), 5, 3, usb), Waits);
        QVERIFY2(failedSaying(write, {"the driver raised WE0 but left no error log"}, true),
                 qPrintable(write.describe()));
        QCOMPARE(QDir(usb).entryList(QDir::Files), QStringList{QStringLiteral("PROG_5.txt")});
    }

    // The medium takes nothing while the table is saved (the file is
    // /dev/full): the saver notices, the driver shows its message, and the
    // tool does not take the file for a saved program.
    void fullMedium()
    {
        QTemporaryDir dir;
        QVERIFY(
            QFile::link(QStringLiteral("/dev/full"), dir.filePath(QStringLiteral("PROG_3.txt"))));
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run = runTool(transferArgs("read", sim.device(), 3, 2, dir.path()), Waits);
        QVERIFY2(failedSaying(run, {"DCP30: File cannot be written.\n",
                                    "the driver reported: File cannot be written."}),
                 qPrintable(run.describe()));
    }

    // The directory disappears after the first segment: the read has nowhere
    // to save and says so, without an error flag.
    void pulledDuringRead()
    {
        QTemporaryDir dir;
        const QString usb = dir.filePath(QStringLiteral("usb"));
        QVERIFY(QDir().mkpath(usb));
        Simulator sim(FastLine);
        QVERIFY(sim.started());
        const ToolRun run =
            runTool(transferArgs("read", sim.device(), 2, 10, usb), Waits, 120000,
                    QStringLiteral("progress "), [&usb] { QDir(usb).removeRecursively(); });
        QVERIFY2(failedSaying(run, {"progress 100%",
                                    "DCP30: The system can't not detect the USB Stick.\n",
                                    QStringLiteral("USB directory %1 does not exist").arg(usb)}),
                 qPrintable(run.describe()));
        QVERIFY(!QFileInfo::exists(usb));
    }
};

QTEST_GUILESS_MAIN(TestE2eMedia)
#include "tst_e2e_media.moc"
