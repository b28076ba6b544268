#include "e2eprocesses.h"

#include "driver/segmentcodec.h"
#include "sim/programstore.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

namespace E2e
{

static QString binary(const char* name)
{
    return qEnvironmentVariable("DCP_BUILD_DIR") + QStringLiteral("/bin/") + name;
}

QString toolPath()
{
    return binary("dcp30ctl");
}

// A cross build's tests run our programs through the emulator command in
// DCP_EMULATOR (qemu-user where binfmt_misc cannot start them directly).
static void startProgram(QProcess& process, const QString& program, const QStringList& arguments)
{
    QStringList command = QProcess::splitCommand(qEnvironmentVariable("DCP_EMULATOR"));
    if (command.isEmpty()) {
        process.start(program, arguments);
        return;
    }
    const QString emulator = command.takeFirst();
    process.start(emulator, command << program << arguments);
}

// Shortened waits leave little slack for two emulated processes: under
// emulation they are three times as long, at most the real waits. Sanitizer
// builds run the tool and the simulator at a fraction of their speed: twice
// as long there.
static int waitPercentHere(int waitPercent)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    waitPercent = qMin(100, waitPercent * 2);
#endif
    constexpr int EmulatedWaitFactor = 3;
    if (waitPercent <= 0 || qEnvironmentVariableIsEmpty("DCP_EMULATOR"))
        return waitPercent;
    return qMin(100, waitPercent * EmulatedWaitFactor);
}

Simulator::Simulator(const QStringList& arguments)
{
    startProgram(process, binary("dcp30-sim"), arguments + QStringList{"--exit-on-stdin-eof"});
    QElapsedTimer clock;
    clock.start();
    while (process.waitForStarted(10000) && !process.canReadLine() && clock.elapsed() < 10000)
        process.waitForReadyRead(1000);
    const QString line = QString::fromLocal8Bit(process.readLine()).trimmed();
    const QString prefix = QStringLiteral("dcp30-sim: listening on ");
    if (line.startsWith(prefix))
        devicePath = line.mid(prefix.size());
    else if (process.error() != QProcess::UnknownError)
        qWarning("dcp30-sim did not run: %s", qPrintable(process.errorString()));
    else
        qWarning("dcp30-sim named no device: %s\n%s", qPrintable(line),
                 process.readAllStandardError().constData());
}

bool Simulator::control(const QByteArray& line)
{
    if (process.write(line + '\n') != line.size() + 1)
        return false;
    const QByteArray echo = "dcp30-sim: " + line;
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 10000) {
        while (process.canReadLine())
            if (process.readLine().trimmed() == echo)
                return true;
        process.waitForReadyRead(100);
    }
    return false;
}

bool Simulator::stop()
{
    process.closeWriteChannel();
    return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

QString ToolRun::describe() const
{
    // A process that did not end normally has no exit code worth showing.
    const QString how = finished ? QStringLiteral("ended, exit code %1").arg(exitCode)
                                 : QStringLiteral("did not run to its end: %1").arg(failure);
    return QStringLiteral("dcp30ctl %1\n--- stdout\n%2--- stderr\n%3").arg(how, out, err);
}

ToolRun runTool(const QStringList& arguments, int waitPercent, const QString& cue,
                const std::function<void(qint64 pid)>& whileRunning)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const QString runtime = qEnvironmentVariable("DCP_BUILD_DIR") + "/test-home/runtime";
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.remove(QStringLiteral("DCP30_WAIT_PERCENT"));
    if (waitPercent > 0)
        env.insert(QStringLiteral("DCP30_WAIT_PERCENT"),
                   QString::number(waitPercentHere(waitPercent)));
    QProcess process;
    process.setProcessEnvironment(env);
    startProgram(process, toolPath(), arguments);

    ToolRun run;
    if (!process.waitForStarted(10000)) {
        run.failure = process.errorString();
        return run;
    }
    QElapsedTimer clock;
    clock.start();
    while (!cue.isEmpty() && process.waitForStarted(10000) && clock.elapsed() < 60000) {
        run.err += QString::fromLocal8Bit(process.readAllStandardError());
        if (run.err.contains(cue)) {
            whileRunning(process.processId());
            break;
        }
        process.waitForReadyRead(20);
    }
    run.finished = process.waitForFinished(int(qMax<qint64>(1, 60000 - clock.elapsed()))) &&
                   process.exitStatus() == QProcess::NormalExit;
    if (!run.finished)
        run.failure = process.errorString();
    run.exitCode = process.exitCode();
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.err += QString::fromLocal8Bit(process.readAllStandardError());
    return run;
}

QStringList transferArgs(const char* verb, const QString& port, int program, int segments,
                         const QString& usb)
{
    return QStringList{verb, "--port", port, "--usb", usb, "--poll-ms", "20", "--program"}
           << QString::number(program) << "--segments" << QString::number(segments);
}

QByteArray utf16File(const QString& text)
{
    QByteArray bytes("\xFF\xFE", 2);
    for (const QChar c : text)
        bytes.append(char(c.unicode() & 0xFF)).append(char(c.unicode() >> 8));
    return bytes;
}

QByteArray expectedProgramFile(const ProgramStore& store, int program, const QList<int>& segments)
{
    QString text = SegmentCodec::headerRow().join(QLatin1Char('\t')) + QLatin1Char('\n');
    for (int segment : segments) {
        QStringList row{QStringLiteral("SEG%1").arg(-segment)};
        if (segment > 0)
            row = SegmentCodec::recordToRow(segment,
                                            QString::fromLatin1(store.segment(program, segment)));
        while (row.size() < SegmentCodec::ColumnCount)
            row << QStringLiteral("----");
        text += row.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    return utf16File(text);
}

QList<int> segmentRange(int count)
{
    QList<int> segments;
    while (segments.size() < count)
        segments << segments.size() + 1;
    return segments;
}

QByteArray withCell(const QByteArray& file, int line, int cell, const QString& value)
{
    const QString text = QString::fromUtf16(reinterpret_cast<const char16_t*>(file.constData() + 2),
                                            (file.size() - 2) / 2);
    QStringList lines = text.split(QLatin1Char('\n'));
    QStringList cells = lines.value(line).split(QLatin1Char('\t'));
    if (line < lines.size() && cell < cells.size()) {
        cells[cell] = value;
        lines[line] = cells.join(QLatin1Char('\t'));
    }
    return utf16File(lines.join(QLatin1Char('\n')));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace E2e
