// A library that loads but exports no CreateDriver.
extern "C" __attribute__((visibility("default"))) int dcpTestNoFactory()
{
    return 1;
}
