#include "rulefiles/prompt.h"
#include "tests/support/process_runner.h"
#include "tests/support/stream_capture.h"

#include <gtest/gtest.h>

namespace halvo::rulefiles {
namespace {

TEST(AreYouSure, AsksUntilALowercaseAnswer) {
    struct Case {
        const char* input;
        int answer;
        const char* prompts;
        const char* unread;
    } cases[] = {
        {"y", 'y', "Sure? ", ""},
        // Empty lines are passed over without a new prompt.
        {"\n\n\nn\n", 'n', "Sure? ", "\n"},
        {"Y\nx\ny", 'y', "Sure? Sure? Sure? ", ""},
        {" y", 'y', "Sure? Sure? ", ""},
        {"yes\n", 'y', "Sure? ", "es\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        std::FILE* in = std::tmpfile();
        std::fputs(c.input, in);
        std::rewind(in);

        const std::string written = testkit::printedBy(
            [&](std::FILE* out) { EXPECT_EQ(areYouSure("Sure? ", in, out), c.answer); });

        EXPECT_EQ(written, c.prompts);
        std::string unread;
        for (int ch = std::fgetc(in); ch != EOF; ch = std::fgetc(in))
            unread.push_back(static_cast<char>(ch));
        EXPECT_EQ(unread, c.unread);
        std::fclose(in);
    }
}

// End of input is a wrong answer like any other, so the question never ends:
// the child is still asking when its time is up.
TEST(AreYouSure, EndOfInputRepeatsThePromptWithoutEnd) {
    const auto run =
        testkit::runInChild([] { return areYouSure("Sure? "); }, "", std::chrono::milliseconds(50));
    EXPECT_EQ(run.status, -1);
    EXPECT_EQ(run.out.substr(0, 18), "Sure? Sure? Sure? ");
}

} // namespace
} // namespace halvo::rulefiles
