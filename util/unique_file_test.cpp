#include "tests/support/files.h"
#include "util/unique_file.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using halvo::util::makeUniqueFile;

class UniqueFileTest : public ::testing::Test {
  protected:
    halvo::testkit::TempDir scratch;
    const std::string dir = scratch.path().string();
};

// Every trailing X is replaced, not only the last six; earlier X's stay.
TEST_F(UniqueFileTest, EveryTrailingXBecomesARandomCharacter) {
    std::set<std::string> names;
    for (int i = 0; i < 200; ++i) {
        std::string path = dir + "/aX.XXXXXXXXXXXX";
        const int fd = makeUniqueFile(path);
        ASSERT_GE(fd, 0) << path;
        ::close(fd);

        const std::string name = path.substr(dir.size() + 1);
        ASSERT_EQ(name.size(), 15u);
        EXPECT_EQ(name.substr(0, 3), "aX.");
        EXPECT_NE(name.substr(3, 6), "XXXXXX");
        EXPECT_EQ(name.substr(3).find_first_not_of(
                      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
                  std::string::npos);
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600u);
        EXPECT_EQ(info.st_size, 0);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 200u);
}

TEST_F(UniqueFileTest, FailuresReportTheirCause) {
    struct Case {
        std::string path;
        int error;
    } cases[] = {
        {dir + "/no-placeholder", EINVAL},
        {dir + "/XXXXXX/missing-folder-XXXXXX", ENOENT},
    };
    for (Case& c : cases) {
        errno = 0;
        EXPECT_EQ(makeUniqueFile(c.path), -1) << c.path;
        EXPECT_EQ(errno, c.error) << c.path;
    }
}

} // namespace
