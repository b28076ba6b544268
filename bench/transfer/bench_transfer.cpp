// Program transfers at the real pace: the dcp30 plug-in hosted as the
// runtime hosts it (the plug-in session of dcp30ctl), the real serial port
// object, and the simulator on a pseudo-terminal at 9600 baud. Reads and
// writes 30 segments and compares the wall time with two floors:
//   - the fixed waits: open and close 300 ms each, plus 350 ms per segment
//     read or 300 ms per segment written;
//   - the line: every byte of every request and reply at 9600 baud, 11 bits
//     a byte (8E1), one after the other as on a half-duplex RS-485 line.
// The wall time runs from the panel's start request (the write of 1 to
// "RF0"/"WF0", which for a write includes the companion's parameter reads)
// until the running flag drops, watched every millisecond.
// Each transfer runs with the fixed waits of a panel and again line-paced
// (dcp30ctl --paced) against a simulator that also takes the requests'
// line time (--pace-requests), where only the line floor applies.
// write_start_block_ms: how long the runtime's call that starts a write
// blocks, the companion's parameter reads on the line included.
#include "driver/controllerframes.h"
#include "host/runtime/messagecentre.h"
#include "sim/controllerengine.h"
#include "sim/programstore.h"
#include "tools/dcp30ctl/pluginsession.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace
{

constexpr int Segments = 30;
constexpr int Runs = 2;
constexpr int Baud = 9600;
constexpr int SourceProgram = 3;  // the 30-segment sample
constexpr int TargetProgram = 12; // empty in the samples
constexpr int PacedGuardMs = 5;   // as dcp30ctl --paced

struct Run {
    bool ok = false;
    double seconds = 0;
    double startCallMs = 0; // inside the start request's write call
};

QByteArray framed(const QByteArray& text)
{
    return '\x02' + text + "\x03\r\n";
}

// Bytes on the line for one transfer, requests and replies, as the
// simulator's engine answers them.
qint64 lineBytes(bool read)
{
    using namespace ControllerFrames;
    ControllerEngine engine;
    qint64 bytes = 0;
    auto exchange = [&](const QByteArray& request) {
        bytes += request.size() + engine.feed(request).size();
    };
    const ProgramStore samples = ProgramStore::samples();
    if (read) {
        exchange(frame(Command::OpenRead, SourceProgram));
        for (int s = 1; s <= Segments; ++s)
            exchange(frame(Command::Read, SourceProgram, s));
        exchange(frame(Command::Close, SourceProgram));
        return bytes;
    }
    // The companion's reads of the write parameters come first.
    exchange(framed("0100XRS,4509W,4"));
    for (const char* text : {"0100XRS,3501W,2", "0100XRS,3505W,2", "0100XRS,3509W,2"})
        exchange(framed(text));
    exchange(frame(Command::OpenWrite, TargetProgram));
    for (int s = 1; s <= Segments; ++s)
        exchange(frame(Command::Write, TargetProgram, s,
                       QString::fromLatin1(samples.segment(SourceProgram, s))));
    exchange(frame(Command::Close, TargetProgram));
    return bytes;
}

Run transfer(PluginSession& session, bool read, int program)
{
    const QString flag = read ? QStringLiteral("RF0") : QStringLiteral("WF0");
    const QString error = read ? QStringLiteral("RE0") : QStringLiteral("WE0");
    Run run;
    session.runOnCommunicationThread([&] {
        session.writeVariable(QStringLiteral("ProgramID0"), quint8(program));
        session.writeVariable(QStringLiteral("SegCnt0"), quint8(Segments));
        session.writeVariable(QStringLiteral("StorageType0"), 0);
        session.writeVariable(error, 0);
        QElapsedTimer clock;
        clock.start();
        session.writeVariable(flag, 1);
        run.startCallMs = clock.nsecsElapsed() / 1e6;
        while (session.readVariable(flag) != 0)
            QThread::usleep(1000);
        run.seconds = clock.nsecsElapsed() / 1e9;
        QThread::msleep(200); // the error flag follows the running flag
        run.ok = session.readVariable(error) == 0;
    });
    return run;
}

double mean(const QList<Run>& runs)
{
    double sum = 0;
    for (const Run& r : runs)
        sum += r.seconds;
    return sum / runs.size();
}

// How long the runtime's call that starts a transfer blocked.
double meanStartCallMs(const QList<Run>& runs)
{
    double sum = 0;
    for (const Run& r : runs)
        sum += r.startCallMs;
    return sum / runs.size();
}

void report(const char* what, const QList<Run>& runs, double fixedFloor, qint64 bytes)
{
    const double lineFloor = bytes * 11.0 / Baud;
    std::printf("%s of %d segments at %d baud:\n", what, Segments, Baud);
    for (int i = 0; i < runs.size(); ++i)
        std::printf("  run %d: %.3f s (start request returned after %.1f ms)\n", i + 1,
                    runs.at(i).seconds, runs.at(i).startCallMs);
    const double wall = mean(runs);
    std::printf("  mean %.3f s; fixed-wait floor %.3f s (ratio %.4f, %.0f ms over); line floor "
                "%.3f s for %lld bytes (ratio %.4f)\n",
                wall, fixedFloor, wall / fixedFloor, (wall - fixedFloor) * 1000, lineFloor,
                static_cast<long long>(bytes), wall / lineFloor);
}

// dcp30-sim at the bench's baud rate on a pseudo-terminal of its own.
struct Simulator {
    QProcess process;
    QString device;

    bool start(const QStringList& extra)
    {
        process.setProgram(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../bin/dcp30-sim"));
        process.setArguments(QStringList{QStringLiteral("--exit-on-stdin-eof"),
                                         QStringLiteral("--baud"), QString::number(Baud)} +
                             extra);
        process.start();
        if (!process.waitForStarted(5000)) {
            std::fprintf(stderr, "bench_transfer: cannot start %s\n",
                         qPrintable(process.program()));
            return false;
        }
        while (!process.canReadLine() && process.waitForReadyRead(5000)) {
        }
        device = QString::fromLocal8Bit(process.readLine())
                     .trimmed()
                     .section(QStringLiteral("listening on "), 1);
        return !device.isEmpty();
    }
    ~Simulator()
    {
        process.closeWriteChannel();
        if (process.state() != QProcess::NotRunning && !process.waitForFinished(5000)) {
            process.kill();
            process.waitForFinished(5000);
        }
    }
};

struct Transfers {
    QList<Run> reads;
    QList<Run> writes;
};

// Reads and writes through a fresh plug-in session on the simulator's
// device; pacedGuardMs < 0 keeps the fixed waits.
bool transfers(const QString& device, const QString& usb, int pacedGuardMs, Transfers* out)
{
    PluginSessionOptions options;
    options.portName = device;
    options.usbDirectory = usb;
    options.pacedGuardMs = pacedGuardMs;
    PluginSession session(options);
    QString error;
    if (!session.openPort(&error) || !session.load(&error)) {
        std::fprintf(stderr, "bench_transfer: %s\n", qPrintable(error));
        return false;
    }
    bool ok = true;
    for (int i = 0; i < Runs && ok; ++i) {
        out->reads << transfer(session, true, SourceProgram);
        ok = out->reads.last().ok;
    }
    const QString source = usb + QStringLiteral("/PROG_%1.txt").arg(SourceProgram);
    const QString target = usb + QStringLiteral("/PROG_%1.txt").arg(TargetProgram);
    QFile::remove(target);
    ok = ok && QFile::copy(source, target);
    for (int i = 0; i < Runs && ok; ++i) {
        out->writes << transfer(session, false, TargetProgram);
        ok = out->writes.last().ok;
    }
    if (!ok)
        std::fprintf(stderr, "bench_transfer: a transfer failed: %s\n",
                     qPrintable(session.messageCentre().texts().join(QLatin1Char(' '))));
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qunsetenv("DCP30_WAIT_PERCENT"); // the real waits, whatever the caller's environment
    QLoggingCategory::setFilterRules(QStringLiteral("dcp*.info=false"));

    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    QDir().mkpath(usb);
    const double readFloor = 0.6 + Segments * 0.35;
    const double writeFloor = 0.6 + Segments * 0.30;
    const qint64 readBytes = lineBytes(true);
    const qint64 writeBytes = lineBytes(false);
    const double readLine = readBytes * 11.0 / Baud;
    const double writeLine = writeBytes * 11.0 / Baud;
    Transfers fixed;
    Transfers paced;
    // Paced, nothing but the line holds a transfer back, so the simulator
    // also makes each request take its time on the line.
    Simulator fixedSim;
    Simulator pacedSim;
    const bool ok = fixedSim.start({}) && transfers(fixedSim.device, usb, -1, &fixed) &&
                    pacedSim.start({QStringLiteral("--pace-requests")}) &&
                    transfers(pacedSim.device, usb, PacedGuardMs, &paced);
    if (ok) {
        std::printf("fixed waits (as on a panel)\n");
        report("read", fixed.reads, readFloor, readBytes);
        report("write", fixed.writes, writeFloor, writeBytes);
        std::printf("line-paced, guard gap %d ms\n", PacedGuardMs);
        report("read", paced.reads, readFloor, readBytes);
        report("write", paced.writes, writeFloor, writeBytes);
        std::printf("figure transfer_read_floor_ratio %.4f\n", mean(fixed.reads) / readFloor);
        std::printf("figure transfer_write_floor_ratio %.4f\n", mean(fixed.writes) / writeFloor);
        std::printf("figure transfer_read_line_ratio %.4f\n", mean(fixed.reads) / readLine);
        std::printf("figure transfer_write_line_ratio %.4f\n", mean(fixed.writes) / writeLine);
        std::printf("figure transfer_paced_read_line_ratio %.4f\n", mean(paced.reads) / readLine);
        std::printf("figure transfer_paced_write_line_ratio %.4f\n",
                    mean(paced.writes) / writeLine);
        std::printf("figure write_start_block_ms %.1f\n", meanStartCallMs(fixed.writes));
    }
    return ok ? 0 : 1;
}
