#include "rules/host_list.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace {

using halvo::rules::rule_parse_host2array;

struct HostCase {
    std::string_view value;
    const char* hosts; // as JSON
};

TEST(HostListTest, CommasAndWhitespaceSeparateAndRunsYieldNothing) {
    const HostCase cases[] = {
        {"10.0.0.5", R"(["10.0.0.5"])"},     {"a, b  c,,", R"(["a", "b", "c"])"},
        {",a\t\r\n\v\fb,", R"(["a", "b"])"}, {",,,", "[]"},
        {"h\xc3\xb4te;x", R"(["hôte;x"])"},
    };
    for (const HostCase& c : cases) {
        EXPECT_EQ(rule_parse_host2array(c.value), boost::json::parse(c.hosts)) << c.value;
    }
}

} // namespace
