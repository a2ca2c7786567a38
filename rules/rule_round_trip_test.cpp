// Records printed as rule text read back as the same records, for every
// record within the limits of the text form (see record_generator.h).
#include "rules/rule_parser.h"
#include "tests/support/record_generator.h"
#include "tests/support/rule_printing.h"

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

namespace {

namespace json = boost::json;
using halvo::rules::rule_parser_run;
using halvo::testkit::printRules;
using halvo::testkit::RecordGenerator;

TEST(RuleRoundTripTest, PrintedRecordsReadBackUnchanged) {
    RecordGenerator generator(20240611);
    json::array records;
    for (int i = 0; i < 3000; ++i) {
        records.emplace_back(generator.next());
    }
    const std::string text = printRules(records);
    const std::optional<json::array> parsed = rule_parser_run(text);
    ASSERT_TRUE(parsed.has_value());
    ASSERT_EQ(parsed->size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        ASSERT_EQ((*parsed)[i], records[i]) << "printed as: " << printRules({records[i]});
    }
}

} // namespace
