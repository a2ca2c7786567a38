// Linked into every fuzz target: libFuzzer calls this before the first input,
// and from then on what the code under test prints on stderr is discarded.
#include "fuzz/fuzz_streams.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    halvo::fuzz::silenceStderr();
    return 0;
}
