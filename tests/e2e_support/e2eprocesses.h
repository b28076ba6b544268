#ifndef TESTS_E2E_PROCESSES_H
#define TESTS_E2E_PROCESSES_H

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

class ProgramStore;

// Helpers of the end-to-end suites: the simulator and dcp30ctl as child
// processes of the test, and the program files a transfer must produce.
namespace E2e
{

QString toolPath();

// dcp30-sim on a fresh pseudo-terminal. Its stdin is a pipe from the test:
// when the test process goes, however it goes, the simulator ends too. The
// destructor ends it (stdin closed, then SIGKILL if it does not go) and
// reaps it, so no failing check leaves one behind.
class Simulator
{
public:
    explicit Simulator(const QStringList& arguments);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    bool started() const { return !devicePath.isEmpty(); }
    QString device() const { return devicePath; }
    // Closes stdin and waits for the exit (the simulator saves its programs
    // on the way out when asked to). True when it exited by itself with 0.
    bool stop();

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

// Runs dcp30ctl to its end (killed after timeoutMs), headless, with its
// runtime directory below the build tree and waitPercent (1..100, 0 =
// unset) as DCP30_WAIT_PERCENT.
ToolRun runTool(const QStringList& arguments, int waitPercent, int timeoutMs = 120000);

// dcp30ctl running in the background as runTool runs it; stderr can be
// watched while it runs.
class RunningTool
{
public:
    RunningTool(const QStringList& arguments, int waitPercent);
    ~RunningTool(); // kills and reaps it if it still runs
    // Waits until stderr holds text (true) or the tool has ended / time is up.
    bool waitForError(const QString& text, int timeoutMs);
    ToolRun finish(int timeoutMs = 120000);

private:
    QProcess process;
    QString err;
};

// "read"/"write" with the port, program, segment count and USB directory,
// watching the flags every 20 ms.
QStringList transferArgs(const char* verb, const QString& port, int program, int segments,
                         const QString& usb);

// Program numbers of the children of this process that are still there
// (not yet reaped ones included). Empty after a clean test.
QList<qint64> livingChildren();
// True when no process holds the pseudo-terminal's device open any more.
bool ptyReleased(const QString& device);

// The bytes of PROG_N.txt for the given segments of program in store: byte-
// order mark FF FE, then the header row and one row per segment, cells
// separated by tabs, each row ended by a line feed, as UTF-16LE. Built from
// the controller's records with the segment codec, quoting cells that hold
// a tab, a line feed or a double quote. A segment given as -s is one the
// controller refused: its label, then "----" in every other cell, so that
// later rows keep their places.
QByteArray expectedProgramFile(const ProgramStore& store, int program, const QList<int>& segments);
// Segments 1..count.
QList<int> segmentRange(int count);

QByteArray readFile(const QString& path);
bool writeFile(const QString& path, const QByteArray& bytes);

} // namespace E2e

#endif
