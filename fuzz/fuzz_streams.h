// Output streams for fuzz targets, which must neither fill the terminal with
// what the code under test prints nor pay for a terminal's speed.
#pragma once

#include <cstdio>
#include <string>

namespace halvo::fuzz {

// A stream that discards everything written to it; opened once.
std::FILE* nullStream();

// Points the C library's `stderr` at nullStream(); file descriptor 2 stays,
// so the reports of libFuzzer and the sanitizers still reach the terminal.
void silenceStderr();

// Reports a broken property and aborts, so that libFuzzer records the input.
[[noreturn]] void fail(const char* what, const std::string& detail = {});

} // namespace halvo::fuzz
