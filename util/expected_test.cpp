#include "util/expected.h"

#include <gtest/gtest.h>

namespace halvo::util {
namespace {

// A text value and a failure's text must never be taken for one another.
TEST(Expected, TextValueAndFailureStayApart) {
    const Expected<std::string> value = std::string("bytes");
    const Expected<std::string> failed = Failure{"PATH: No such file or directory"};
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(*value, "bytes");
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error(), "PATH: No such file or directory");
    EXPECT_THROW(static_cast<void>(failed.value()), std::bad_variant_access);
}

// A failure whose text is empty is still a failure.
TEST(Expected, VoidFormTellsDoneFromFailedEvenWithoutWords) {
    const Expected<void> done;
    const Expected<void> failed = Failure{""};
    EXPECT_TRUE(done.has_value());
    EXPECT_FALSE(failed);
}

} // namespace
} // namespace halvo::util
