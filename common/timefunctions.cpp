#include "common/timefunctions.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <limits>
#include <sys/types.h>

int HRSleep(unsigned long ms)
{
    timespec request;
    request.tv_sec = static_cast<time_t>(ms / 1000);
    request.tv_nsec = static_cast<long>((ms % 1000) * 1000000UL);
    timespec remaining{};
    while (nanosleep(&request, &remaining) != 0) {
        if (errno != EINTR)
            return errno;
        request = remaining;
    }
    return 0;
}

qint64 CurrentMSecsSinceBoot()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool ProcessIsRunning(long long pid)
{
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    return kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}
