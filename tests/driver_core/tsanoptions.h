#ifndef TESTS_TSANOPTIONS_H
#define TESTS_TSANOPTIONS_H

// Include in exactly one source file of a test executable.
#if defined(__SANITIZE_THREAD__)
// Qt's libraries are not instrumented: the memory they allocate to carry a
// queued call (the event, copies of its arguments) is handed over under
// Qt's own futex locking, which ThreadSanitizer cannot see, and would look
// unsynchronised to our instrumented slots. Allocations made by
// uninstrumented code are therefore not tracked; our own are.
extern "C" const char* __tsan_default_options()
{
    return "ignore_noninstrumented_modules=1";
}
#endif

#endif
