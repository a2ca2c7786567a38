#include "tests/support/files.h"
#include "tests/support/process_runner.h"
#include "util/whole_input.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace halvo::util {
namespace {

using testkit::runInChild;

// In a child: echoes the loaded bytes on stdout and ends with 0, or with 1.
int echoLoaded(const char* path, const char* label) {
    const auto data = load_any_file(path, label);
    if (data)
        std::fwrite(data->data(), 1, data->size(), stdout);
    return data ? 0 : 1;
}

// Longer than one stdin block, with NUL bytes and bytes above 0x7f.
std::string binaryText() {
    std::string text("share\0block\n", 12);
    for (int i = 0; i < 2500; ++i)
        text.push_back(static_cast<char>(i % 251));
    return text;
}

TEST(LoadAnyFile, FilesLoadWholeOrNotAtAll) {
    testkit::TempDir dir;
    dir.write("rules", binaryText());
    dir.write("empty", "");
    dir.write("bad\xff", "share\n");
    dir.write("locked", "share\n", 0);
    const bool rootReadsAll = ::geteuid() == 0;
    struct Case {
        std::string path;
        bool loads;
        std::string content;
    } cases[] = {
        {dir / "rules", true, binaryText()},
        {dir / "empty", true, ""},
        {dir / "missing %s%n", false, ""}, // printed as it stands
        {dir.path(), false, ""},
        {dir / "bad\xff", false, ""}, // a path that is not UTF-8, even though the file exists
        {dir / "locked", rootReadsAll, rootReadsAll ? "share\n" : ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        const auto run = runInChild([&] { return echoLoaded(c.path.c_str(), "test set"); });
        EXPECT_TRUE(finished(run, c.loads ? 0 : 1, c.content,
                             c.loads ? "" : "Error loading test set from " + c.path + ".\n"));
    }
}

TEST(LoadAnyFile, StdinIsReadToItsEndOrReportedUnreadable) {
    struct Case {
        const char* name;
        std::string input;
        void (*spoil)();
        std::string out;
        const char* err;
    } cases[] = {
        {"empty input is empty data", "", [] {}, "", ""},
        {"several blocks", binaryText(), [] {}, binaryText(), ""},
        {"closed descriptor", "share\n", [] { ::close(0); }, "",
         "Error loading rules from stdin.\n"},
        {"directory", "", [] { ::dup2(::open("/", O_RDONLY | O_DIRECTORY), 0); }, "",
         "Error loading rules from stdin.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto run = runInChild(
            [&] {
                c.spoil();
                return echoLoaded(nullptr, "rules");
            },
            c.input);
        EXPECT_TRUE(finished(run, *c.err ? 1 : 0, c.out, c.err));
    }
}

} // namespace
} // namespace halvo::util
