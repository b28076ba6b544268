#include "sim/ptyfrontend.h"

#include <QFile>
#include <QLoggingCategory>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcSim, "dcp.sim", QtInfoMsg)

namespace
{

int stopPipe[2] = {-1, -1};

qint64 monotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

QString errnoText(const char* what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what),
                                        QString::fromLocal8Bit(strerror(errno)));
}

} // namespace

PtyFrontEnd::PtyFrontEnd(ControllerEngine& engine, const FrontEndOptions& options)
    : engine(engine), options(options)
{
}

PtyFrontEnd::~PtyFrontEnd()
{
    if (linked)
        QFile::remove(options.linkPath);
    if (slave >= 0)
        ::close(slave);
    if (master >= 0)
        ::close(master);
}

bool PtyFrontEnd::open(QString* error)
{
    if (stopPipe[0] < 0 && pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        *error = errnoText("pipe");
        return false;
    }
    char name[256] = {};
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0) {
        *error = errnoText("openpty");
        return false;
    }
    termios tio{};
    if (tcgetattr(slave, &tio) == 0) {
        // No echo, no line editing, no CR/LF translation: bytes pass as they are.
        cfmakeraw(&tio);
        tcsetattr(slave, TCSANOW, &tio);
    }
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
    fcntl(master, F_SETFD, FD_CLOEXEC);
    fcntl(slave, F_SETFD, FD_CLOEXEC);
    slavePath = QString::fromLocal8Bit(name);
    if (!options.linkPath.isEmpty()) {
        QFile::remove(options.linkPath); // a link left by a killed run
        if (!QFile::link(slavePath, options.linkPath)) {
            *error = QStringLiteral("cannot create the link %1").arg(options.linkPath);
            return false;
        }
        linked = true;
    }
    return true;
}

void PtyFrontEnd::stop()
{
    const char byte = 1;
    if (stopPipe[1] >= 0) {
        const ssize_t ignored = ::write(stopPipe[1], &byte, 1);
        (void)ignored;
    }
}

void PtyFrontEnd::reportProgramsChanged()
{
    if (programsChanged && options.onProgramsChanged)
        options.onProgramsChanged();
    programsChanged = false;
}

qint64 PtyFrontEnd::byteNs() const
{
    return options.baud > 0 ? qint64(11) * 1000000000 / options.baud : 0;
}

void PtyFrontEnd::schedule(const EngineReply& reply, qint64 nowNs)
{
    qint64 due = qMax(lineFreeNs, nowNs + qint64(options.turnaroundMs + reply.delayMs) * 1000000);
    for (char byte : reply.bytes) {
        outgoing.push_back({due, byte});
        due += byteNs();
    }
    lineFreeNs = due;
}

bool PtyFrontEnd::writeDue(qint64 nowNs)
{
    QByteArray chunk;
    for (const Outgoing& o : outgoing) {
        if (o.dueNs > nowNs)
            break;
        chunk += o.byte;
    }
    if (chunk.isEmpty())
        return true;
    const ssize_t written = ::write(master, chunk.constData(), size_t(chunk.size()));
    if (written < 0)
        return errno == EAGAIN || errno == EINTR;
    trace.sent(chunk.left(int(written)));
    outgoing.erase(outgoing.begin(), outgoing.begin() + written);
    return true;
}

int PtyFrontEnd::run()
{
    lastTrafficNs = monotonicNs();
    for (;;) {
        const qint64 now = monotonicNs();
        if (!writeDue(now)) {
            qCCritical(lcSim).noquote() << errnoText("write");
            return 1;
        }
        // Saved once the reply is on the line: a save (it syncs to disk)
        // must not make the reply late.
        if (programsChanged && outgoing.empty())
            reportProgramsChanged();
        if (options.openTimeoutMs > 0 && engine.openMode() != ControllerEngine::OpenMode::None &&
            now - lastTrafficNs > qint64(options.openTimeoutMs) * 1000000) {
            qCInfo(lcSim) << "program" << engine.openProgram() << "closed after the idle timeout";
            engine.closeOpenFile();
        }

        qint64 waitNs = -1;
        if (!outgoing.empty())
            waitNs = qMax<qint64>(0, outgoing.front().dueNs - now);
        if (options.openTimeoutMs > 0 && engine.openMode() != ControllerEngine::OpenMode::None) {
            const qint64 untilTimeout =
                lastTrafficNs + qint64(options.openTimeoutMs) * 1000000 - now + 1000000;
            waitNs = waitNs < 0 ? qMax<qint64>(0, untilTimeout) : qMin(waitNs, untilTimeout);
        }
        pollfd fds[3] = {{master, POLLIN, 0}, {stopPipe[0], POLLIN, 0}, {0, POLLIN, 0}};
        const nfds_t count = options.exitOnStdinEof ? 3 : 2;
        timespec timeout{time_t(waitNs / 1000000000), long(waitNs % 1000000000)};
        const int ready = ppoll(fds, count, waitNs < 0 ? nullptr : &timeout, nullptr);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            qCCritical(lcSim).noquote() << errnoText("poll");
            return 1;
        }
        if (fds[1].revents) {
            reportProgramsChanged();
            return 0;
        }
        if (count == 3 && fds[2].revents) {
            char chunk[256];
            const ssize_t n = ::read(0, chunk, sizeof chunk);
            if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) {
                reportProgramsChanged();
                return 0;
            }
            if (n > 0)
                stdinText.append(chunk, int(n));
            for (int end; (end = stdinText.indexOf('\n')) >= 0; stdinText.remove(0, end + 1)) {
                if (options.stdinLine)
                    options.stdinLine(stdinText.left(end));
            }
        }
        if (fds[0].revents & POLLIN) {
            char buffer[1024];
            const ssize_t n = ::read(master, buffer, sizeof buffer);
            if (n > 0) {
                const QByteArray bytes(buffer, int(n));
                trace.received(bytes);
                lastTrafficNs = monotonicNs();
                requestBytes += n;
                const qint64 arrivalNs =
                    lastTrafficNs + (options.paceRequests ? requestBytes * byteNs() : 0);
                const ProgramStore before = engine.programs();
                const QList<EngineReply> replies = engine.feedReplies(bytes);
                for (const EngineReply& reply : replies)
                    schedule(reply, arrivalNs);
                if (!replies.isEmpty())
                    requestBytes = 0;
                programsChanged = programsChanged || !(engine.programs() == before);
            }
        }
    }
}
