#include "tests/support/rule_printing.h"

#include "rules/rule_printer.h"
#include "tests/support/stream_capture.h"

namespace halvo::testkit {

RunResult printReply(const boost::json::object& reply, std::uint32_t numbered) {
    RunResult result;
    ::testing::internal::CaptureStderr();
    result.out = printedBy(
        [&](std::FILE* out) { result.status = rules::outputRuleList(reply, numbered, out); });
    result.err = ::testing::internal::GetCapturedStderr();
    return result;
}

std::string printRules(const boost::json::array& records) {
    return printReply(boost::json::object{{"rules", records}}, 0).out;
}

} // namespace halvo::testkit
