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
    // "faults off" / "faults on": true once the simulator has applied it.
    bool control(const QByteArray& line);

private:
    QProcess process;
    QString devicePath;
};

struct ToolRun {
    bool finished = false; // false: did not start, crashed, or killed after the time limit
    int exitCode = -1;
    QString failure; // when not finished: QProcess's account of what happened
    QString out;
    QString err;
    bool ok(int code) const { return finished && exitCode == code; }
    QString describe() const; // for failure messages
};

// Runs dcp30ctl headless to its end (killed after 60 s), waitPercent (0 =
// unset) as DCP30_WAIT_PERCENT, tripled under an emulator (at most 100).
// Once its stderr holds cue, whileRunning runs with the tool's process id.
ToolRun runTool(const QStringList& arguments, int waitPercent = 0, const QString& cue = QString(),
                const std::function<void(qint64 pid)>& whileRunning = {});

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
// A program file (UTF-16LE with its mark) with one cell replaced: line
// `line` (0: the header), cell `cell` (0: the label).
QByteArray withCell(const QByteArray& file, int line, int cell, const QString& value);

QByteArray readFile(const QString& path);
bool writeFile(const QString& path, const QByteArray& bytes);

} // namespace E2e

#endif
