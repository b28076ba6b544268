#ifndef TESTS_E2E_PROCESSES_H
#define TESTS_E2E_PROCESSES_H

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

class ProgramStore;

// The simulator and dcp30ctl as child processes of a test, and the program
// files a transfer must produce.
namespace E2e
{

QString toolPath();

// dcp30-sim on a fresh pseudo-terminal. Its stdin is a pipe from the test, so
// it ends with the test process however that goes; the destructor stops it.
class Simulator
{
public:
    explicit Simulator(const QStringList& arguments);
    ~Simulator() { stop(); }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    bool started() const { return !devicePath.isEmpty(); }
    QString device() const { return devicePath; }
    // Closes stdin (or sends signal) and waits (the simulator saves its
    // programs on the way out when asked to); SIGKILL when it does not go.
    // True for a clean exit 0.
    bool stop(int signal = 0);

private:
    QProcess process;
    QString devicePath;
};

struct ToolRun {
    bool finished = false; // false: killed after the time limit
    QProcess::ExitStatus status = QProcess::CrashExit;
    int exitCode = -1;
    QString out;
    QString err;
    QString describe() const; // for failure messages
};

// Runs dcp30ctl to its end (killed after timeoutMs), headless, its runtime
// directory below the build tree, with waitPercent (1..100, 0 = unset) as
// DCP30_WAIT_PERCENT. Once its stderr holds cue, whileRunning is called.
ToolRun runTool(const QStringList& arguments, int waitPercent, int timeoutMs = 120000,
                const QString& cue = QString(), const std::function<void()>& whileRunning = {});

// "read"/"write" with port, program, segment count and USB directory,
// watching the flags every 20 ms.
QStringList transferArgs(const char* verb, const QString& port, int program, int segments,
                         const QString& usb);

// Byte-order mark FF FE, then text as UTF-16LE: what the panel's saver writes.
QByteArray utf16File(const QString& text);
// PROG_N.txt as a read saves the given segments of program in store: the
// header row, one row per segment, tab-separated, each row ending in a line
// feed. A segment given as -s is one the controller refused: its label, then
// "----" in every other cell. (No sample cell needs quoting.)
QByteArray expectedProgramFile(const ProgramStore& store, int program, const QList<int>& segments);
QList<int> segmentRange(int count); // 1..count

QByteArray readFile(const QString& path);
bool writeFile(const QString& path, const QByteArray& bytes);

} // namespace E2e

#endif
