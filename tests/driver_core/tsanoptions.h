#ifndef TESTS_TSANOPTIONS_H
#define TESTS_TSANOPTIONS_H

// Include in exactly one source file of a test executable.
#if defined(__SANITIZE_THREAD__)
// Qt is not instrumented: a queued call's memory changes hands under Qt's own
// locking, which ThreadSanitizer cannot see.
extern "C" const char* __tsan_default_options()
{
    return "ignore_noninstrumented_modules=1";
}
#endif

#endif
