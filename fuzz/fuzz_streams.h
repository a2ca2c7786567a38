// Output streams for fuzz targets: the code under test writes its listings
// and its error messages somewhere, and a fuzzer running millions of inputs
// must neither fill the terminal nor pay for a terminal's speed.
#pragma once

#include <cstdio>
#include <string>

namespace halvo::fuzz {

// A stream that discards everything written to it; opened once.
std::FILE* nullStream();

// Points the C library's `stderr` at nullStream(), so that messages the
// code under test prints there vanish. libFuzzer and the sanitizers keep
// writing to file descriptor 2, which stays as it was: their reports still
// reach the terminal.
void silenceStderr();

// Reports a broken property and aborts, so that libFuzzer records the input.
[[noreturn]] void fail(const char* what, const std::string& detail = {});

} // namespace halvo::fuzz
