#include "util/expected.h"

#include <gtest/gtest.h>
#include <memory>

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

TEST(Expected, TakesAValueConvertibleToItsOwnAndHandsItOut) {
    struct Base {
        virtual ~Base() = default;
    };
    struct Derived : Base {};
    Expected<std::unique_ptr<Base>> made = std::make_unique<Derived>();
    std::unique_ptr<Base> taken = std::move(made).value();
    EXPECT_NE(dynamic_cast<Derived*>(taken.get()), nullptr);
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
