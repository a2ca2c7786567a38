// Helpers shared by the tests of the rule parser and printer.
#pragma once

#include "rules/rule_printer.h"
#include "util/output_testing.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace halvo::rules::testing {

struct PrintResult {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs outputRuleList on `reply`, catching what it writes to the stream and
// to stderr.
inline PrintResult printReply(const boost::json::object& reply, std::uint32_t numbered) {
    PrintResult result;
    ::testing::internal::CaptureStderr();
    result.out = util::testing::printedBy(
        [&](std::FILE* out) { result.status = outputRuleList(reply, numbered, out); });
    result.err = ::testing::internal::GetCapturedStderr();
    return result;
}

// The rule text of `records` as the editor session writes it (no numbers).
inline std::string printRules(const boost::json::array& records) {
    return printReply(boost::json::object{{"rules", records}}, 0).out;
}

inline std::string readFile(const std::filesystem::path& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

} // namespace halvo::rules::testing
