// Take-down in the middle of a transfer at the real pace: the plug-in hosted
// as the runtime hosts it reads a 30-segment program from the simulator at
// 9600 baud; after a while the driver is destroyed, as the runtime does when
// a project is closed. Destruction must come back promptly (the worker stops
// at its next wait, then closes the controller's file once), and the next
// transfer must find the controller free.
//
// Figures: takedown_ms (median of the runs, the driver's destruction) and
// takedown_next_read_failures (runs after which a fresh read did not go
// through: must be 0).
#include "tests/e2e_support/e2eprocesses.h"
#include "tools/dcp30ctl/pluginsession.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace
{

constexpr int Runs = 5;

void serveEventsFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

std::unique_ptr<PluginSession> openSession(const QString& device, const QString& usb)
{
    PluginSessionOptions options;
    options.portName = device;
    options.usbDirectory = usb;
    auto session = std::make_unique<PluginSession>(options);
    QString error;
    if (!session->openPort(&error) || !session->load(&error)) {
        std::fprintf(stderr, "bench_takedown: %s\n", qPrintable(error));
        return nullptr;
    }
    return session;
}

// Starts a read of program 3 (segments) and returns at once.
void startRead(PluginSession& session, int segments)
{
    session.runOnCommunicationThread([&] {
        session.writeVariable(QStringLiteral("ProgramID0"), 3);
        session.writeVariable(QStringLiteral("SegCnt0"), quint8(segments));
        session.writeVariable(QStringLiteral("RE0"), 0);
        session.writeVariable(QStringLiteral("RF0"), 1);
    });
}

bool readsCleanly(PluginSession& session)
{
    startRead(session, 2);
    int running = 1, failed = 1;
    for (int waited = 0; running != 0 && waited < 10000; waited += 50) {
        serveEventsFor(50);
        session.runOnCommunicationThread(
            [&] { running = session.readVariable(QStringLiteral("RF0")); });
    }
    serveEventsFor(300); // the error flag may follow the running flag
    session.runOnCommunicationThread([&] { failed = session.readVariable(QStringLiteral("RE0")); });
    return running == 0 && failed == 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("DCP_BUILD_DIR"))
        qputenv("DCP_BUILD_DIR", DCP_BUILD_DIR);
    qunsetenv("DCP30_WAIT_PERCENT");
    QLoggingCategory::setFilterRules(QStringLiteral("dcp*.info=false"));
    E2e::Simulator sim({"--open-timeout", "0"}); // 9600 baud, the real pace
    QTemporaryDir usb;
    if (!sim.started() || !usb.isValid()) {
        std::fprintf(stderr, "bench_takedown: no simulator\n");
        return 1;
    }

    QList<double> times;
    int nextOk = 0;
    for (int run = 0; run < Runs; ++run) {
        auto session = openSession(sim.device(), usb.path());
        if (!session)
            return 1;
        startRead(*session, 30);
        serveEventsFor(1500 + 370 * run); // somewhere in the segments
        QElapsedTimer clock;
        clock.start();
        session.reset();
        times << clock.nsecsElapsed() / 1e6;

        auto next = openSession(sim.device(), usb.path());
        const bool ok = next && readsCleanly(*next);
        nextOk += ok ? 1 : 0;
        std::printf("run %d: take-down %.1f ms, next read %s\n", run + 1, times.last(),
                    ok ? "went through" : "FAILED");
    }
    std::sort(times.begin(), times.end());
    std::printf("figure takedown_ms %.1f\n", times.at(times.size() / 2));
    std::printf("figure takedown_next_read_failures %d\n", Runs - nextOk);
    return nextOk == Runs ? 0 : 1;
}
