#include <QtTest>

#include "common/timefunctions.h"

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

static std::atomic<int> signalsSeen{0};

class TestTimeFunctions : public QObject
{
    Q_OBJECT
private slots:
    // 1050 ms needs both halves of the request: seconds and nanoseconds. The
    // clock is the monotonic one, not the wall clock that can be set back.
    void sleepAndClock()
    {
        for (unsigned long ms : {0ul, 1050ul}) {
            const qint64 start = CurrentMSecsSinceBoot();
            QCOMPARE(HRSleep(ms), 0);
            QVERIFY(CurrentMSecsSinceBoot() - start >= qint64(ms));
        }
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        const qint64 expected = qint64(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
        QVERIFY(qAbs(expected - CurrentMSecsSinceBoot()) <= 5);
    }

    void signalsDoNotShortenTheSleep()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) { signalsSeen.fetch_add(1); };
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0; // no SA_RESTART: nanosleep really is interrupted
        struct sigaction previous = {};
        QCOMPARE(sigaction(SIGUSR1, &action, &previous), 0);

        signalsSeen = 0;
        const pthread_t sleeper = pthread_self();
        std::atomic<bool> done{false};
        std::thread interrupter([&] {
            for (int i = 0; i < 5 && !done; ++i) {
                usleep(40 * 1000);
                if (!done)
                    pthread_kill(sleeper, SIGUSR1);
            }
        });
        const qint64 start = CurrentMSecsSinceBoot();
        const int result = HRSleep(300);
        const qint64 elapsed = CurrentMSecsSinceBoot() - start;
        done = true;
        interrupter.join();
        sigaction(SIGUSR1, &previous, nullptr);

        QCOMPARE(result, 0);
        QVERIFY(signalsSeen > 0);
        QVERIFY2(elapsed >= 300, qPrintable(QString::number(elapsed)));
    }

    void processIsRunning()
    {
        QVERIFY(ProcessIsRunning(getpid()));
        QVERIFY(ProcessIsRunning(1)); // init: exists, usually another user's (EPERM)

        // A child that has exited and been reaped leaves an id that no process has.
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        QVERIFY(child > 0);
        QVERIFY(ProcessIsRunning(child)); // exited or not, it exists until reaped
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY(!ProcessIsRunning(child));

        // Ids kill() would read as groups or as "every process".
        for (qint64 pid : {qint64(0), qint64(-1), -qint64(getpid()), 0x100000000LL + getpid()})
            QVERIFY2(!ProcessIsRunning(pid), qPrintable(QString::number(pid)));
    }
};

QTEST_GUILESS_MAIN(TestTimeFunctions)
#include "tst_toolkit_time.moc"
