#ifndef DCP30CTL_INTERRUPTION_H
#define DCP30CTL_INTERRUPTION_H

// Ctrl-C and SIGTERM during a transfer. The first signal only asks: the
// transfer is stopped at the driver's next wait, the controller's file is
// closed and the tool says what state the controller is in. A second signal
// exits at once (status 128 + signal), for a user who cannot wait.
//
// One guard at a time, on the main thread; the handlers are restored when
// it goes.
class InterruptGuard
{
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    // The signal received (SIGINT or SIGTERM), or 0. Safe from any thread.
    static int pending();
    // The exit status for an interrupted run: 128 + the signal (130, 143).
    static int exitStatus();
};

#endif
