#include "interruption.h"

#include <atomic>
#include <csignal>
#include <unistd.h>

namespace
{

std::atomic<int> received{0};
struct sigaction previousInt;
struct sigaction previousTerm;

void onSignal(int signal)
{
    int expected = 0;
    if (!received.compare_exchange_strong(expected, signal)) {
        // The second one: the user will not wait for the controller's file
        // to be closed.
        static const char message[] = "\ndcp30ctl: interrupted again, exiting at once\n";
        ssize_t ignored = ::write(STDERR_FILENO, message, sizeof message - 1);
        (void)ignored;
        ::_exit(128 + signal);
    }
}

} // namespace

InterruptGuard::InterruptGuard()
{
    received.store(0);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previousInt);
    sigaction(SIGTERM, &action, &previousTerm);
}

InterruptGuard::~InterruptGuard()
{
    sigaction(SIGINT, &previousInt, nullptr);
    sigaction(SIGTERM, &previousTerm, nullptr);
}

int InterruptGuard::pending()
{
    return received.load();
}

int InterruptGuard::exitStatus()
{
    const int signal = received.load();
    return signal ? 128 + signal : 0;
}
