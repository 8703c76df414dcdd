// The start of every fuzz target: libxml2 kept quiet, and a loader held for the whole run so
// that the library stays started and no input pays for its start and stop.
#include "common.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static XMLLoader keeper;
    xmlSetGenericErrorFunc(nullptr, fuzz::quiet);
    return 0;
}
