// Preloaded into the ARM test processes under qemu-user 7.2. Qt 5.15 probes
// for process file descriptors with a raw waitid(P_PIDFD) and, when the host
// kernel answers, starts children with clone(CLONE_PIDFD), which that qemu
// refuses: every QProcess::start would fail. Failing the probe with ENOSYS
// makes Qt start its children with plain fork(), as on an older kernel.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/syscall.h>

#define P_PIDFD_ID 3

typedef long (*SyscallFunction)(long, ...);
static SyscallFunction libcSyscall;

// Children are started through the host's qemu-arm, an x86 program that must
// not see this ARM library in its own LD_PRELOAD; the emulator passes the
// variable on to each ARM child itself.
__attribute__((constructor)) static void setUp(void)
{
    libcSyscall = (SyscallFunction)dlsym(RTLD_NEXT, "syscall");
    unsetenv("LD_PRELOAD");
}

long syscall(long number, ...)
{
    va_list ap;
    va_start(ap, number);
    long a[6];
    for (int i = 0; i < 6; ++i)
        a[i] = va_arg(ap, long);
    va_end(ap);
    if (number == SYS_waitid && a[0] == P_PIDFD_ID) {
        errno = ENOSYS;
        return -1;
    }
    return libcSyscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
