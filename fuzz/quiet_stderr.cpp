// Linked into every fuzz target: libFuzzer calls this once before the first
// input, and from then on the messages the code under test prints on stderr
// (parse errors, "Internal error.") are discarded.
#include "fuzz/fuzz_streams.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    halvo::fuzz::silenceStderr();
    return 0;
}
