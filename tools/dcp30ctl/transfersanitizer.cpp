// ThreadSanitizer builds of dcp30ctl: the plug-in's worker, the serial
// port's I/O thread and the communication thread hand work to each other
// through Qt's and GLib's event loops, whose locking (futexes, eventfds in
// uninstrumented code) ThreadSanitizer cannot see. Accesses made inside
// uninstrumented libraries are not tracked; our own code still is.
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_options()
{
    return "ignore_noninstrumented_modules=1";
}
#endif
