#include "cli/usage.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using halvo::cli::programName;
using halvo::cli::setProgramName;

TEST(ProgramNameTest, IsTheBasenameOfTheFirstArgument) {
    const std::string deepPath = "/" + std::string(5000, 'a') + "/halvoctl";
    const struct {
        std::string argv0;
        const char* expected;
    } cases[] = {
        {"halvoctl", "halvoctl"},
        {"/usr/bin/halvoctl", "halvoctl"},
        {"./bin/halvoctl/", "halvoctl"},
        {deepPath, "halvoctl"},
        {"", "."},
        {"/", "/"},
    };
    for (const auto& c : cases) {
        std::string argument = c.argv0;
        char* argv[] = {argument.data(), nullptr};
        setProgramName(1, argv);
        EXPECT_STREQ(programName(), c.expected) << c.argv0.substr(0, 40);
        EXPECT_EQ(argument, c.argv0) << "argv[0] itself is left as it was";
    }
    char* none[] = {nullptr};
    setProgramName(0, none);
    EXPECT_STREQ(programName(), "");
}

} // namespace
