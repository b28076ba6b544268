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

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qunsetenv("DCP30_WAIT_PERCENT"); // the real waits, whatever the caller's environment
    QLoggingCategory::setFilterRules(QStringLiteral("dcp*.info=false"));

    QTemporaryDir dir;
    const QString usb = dir.filePath(QStringLiteral("usb"));
    QDir().mkpath(usb);
    QProcess sim;
    sim.setProgram(QCoreApplication::applicationDirPath() + QStringLiteral("/../bin/dcp30-sim"));
    sim.setArguments(
        {QStringLiteral("--exit-on-stdin-eof"), QStringLiteral("--baud"), QString::number(Baud)});
    sim.start();
    if (!sim.waitForStarted(5000)) {
        std::fprintf(stderr, "bench_transfer: cannot start %s\n", qPrintable(sim.program()));
        return 1;
    }
    while (!sim.canReadLine() && sim.waitForReadyRead(5000)) {
    }
    const QString device = QString::fromLocal8Bit(sim.readLine())
                               .trimmed()
                               .section(QStringLiteral("listening on "), 1);

    int status = 0;
    {
        PluginSessionOptions options;
        options.portName = device;
        options.usbDirectory = usb;
        PluginSession session(options);
        QString error;
        if (!session.openPort(&error) || !session.load(&error)) {
            std::fprintf(stderr, "bench_transfer: %s\n", qPrintable(error));
            status = 1;
        } else {
            QList<Run> reads;
            QList<Run> writes;
            for (int i = 0; i < Runs && status == 0; ++i) {
                reads << transfer(session, true, SourceProgram);
                if (!reads.last().ok)
                    status = 1;
            }
            const QString source = usb + QStringLiteral("/PROG_%1.txt").arg(SourceProgram);
            const QString target = usb + QStringLiteral("/PROG_%1.txt").arg(TargetProgram);
            if (status == 0 && !QFile::copy(source, target))
                status = 1;
            for (int i = 0; i < Runs && status == 0; ++i) {
                writes << transfer(session, false, TargetProgram);
                if (!writes.last().ok)
                    status = 1;
            }
            if (status != 0) {
                std::fprintf(stderr, "bench_transfer: a transfer failed: %s\n",
                             qPrintable(session.messageCentre().texts().join(QLatin1Char(' '))));
            } else {
                const double readFloor = 0.6 + Segments * 0.35;
                const double writeFloor = 0.6 + Segments * 0.30;
                const qint64 readBytes = lineBytes(true);
                const qint64 writeBytes = lineBytes(false);
                report("read", reads, readFloor, readBytes);
                report("write", writes, writeFloor, writeBytes);
                std::printf("figure transfer_read_floor_ratio %.4f\n", mean(reads) / readFloor);
                std::printf("figure transfer_write_floor_ratio %.4f\n", mean(writes) / writeFloor);
                std::printf("figure transfer_read_line_ratio %.4f\n",
                            mean(reads) / (readBytes * 11.0 / Baud));
                std::printf("figure transfer_write_line_ratio %.4f\n",
                            mean(writes) / (writeBytes * 11.0 / Baud));
            }
        }
    }
    sim.closeWriteChannel();
    if (!sim.waitForFinished(5000)) {
        sim.kill();
        sim.waitForFinished(5000);
    }
    return status;
}
