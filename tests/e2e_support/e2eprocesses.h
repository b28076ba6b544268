#ifndef TESTS_E2E_PROCESSES_H
#define TESTS_E2E_PROCESSES_H

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

class ProgramStore;

namespace E2e
{

QString toolPath();

// dcp30-sim on a fresh pseudo-terminal; it ends when the test process does.
class Simulator
{
public:
    explicit Simulator(const QStringList& arguments);
    ~Simulator() { stop(); }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    bool started() const { return !devicePath.isEmpty(); }
    QString device() const { return devicePath; }
    // Closes its stdin; true for a clean exit (after saving, if asked to).
    bool stop();

private:
    QProcess process;
    QString devicePath;
};

struct ToolRun {
    bool finished = false; // false: crashed or killed after the time limit
    int exitCode = -1;
    QString out;
    QString err;
    bool ok(int code) const { return finished && exitCode == code; }
    QString describe() const; // for failure messages
};

// Runs dcp30ctl headless to its end (killed after 60 s), waitPercent (0 =
// unset) as DCP30_WAIT_PERCENT. Once its stderr holds cue, whileRunning runs.
ToolRun runTool(const QStringList& arguments, int waitPercent = 0, const QString& cue = QString(),
                const std::function<void()>& whileRunning = {});

// verb ("read"/"write") at port, the program file in the USB stick's usb.
QStringList transferArgs(const char* verb, const QString& port, int program, int segments,
                         const QString& usb);

// FF FE, then text as UTF-16LE: what the panel's saver writes.
QByteArray utf16File(const QString& text);
// PROG_N.txt as a read saves segments of program: header, one tab-separated
// row per segment, line feeds. A segment given as -s is one the controller
// refused: its label, "----" in every other cell.
QByteArray expectedProgramFile(const ProgramStore& store, int program, const QList<int>& segments);
QList<int> segmentRange(int count); // 1..count

QByteArray readFile(const QString& path);
bool writeFile(const QString& path, const QByteArray& bytes);

} // namespace E2e

#endif
