#ifndef TIMEFUNCTIONS_H
#define TIMEFUNCTIONS_H

#include <QtGlobal>

// Sleeps ms milliseconds; a signal arriving meanwhile does not shorten the
// total. 0 when the whole time elapsed, non-zero (the errno value) when the
// sleep failed for another reason.
int HRSleep(unsigned long ms);

// Milliseconds of CLOCK_MONOTONIC: never jumps when the wall clock is set.
qint64 CurrentMSecsSinceBoot();

// True when a process with this id exists, including one of another user.
// Ids that name no single process (0, negatives, beyond pid_t) give false:
// kill() would take them for a process group or for every process.
bool ProcessIsRunning(long long pid);

#endif
