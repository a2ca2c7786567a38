// The rule printer run for tests: what it writes, and how it ends.
#pragma once

#include "tests/support/finished_run.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <string>

namespace halvo::testkit {

// outputRuleList on `reply`: its status, the stream it wrote and stderr.
RunResult printReply(const boost::json::object& reply, std::uint32_t numbered);

// The rule text of `records` as the editor session writes it (no numbers).
std::string printRules(const boost::json::array& records);

} // namespace halvo::testkit
