// The value of a "host" clause: host names or addresses separated by commas
// and/or whitespace.
#pragma once

#include <boost/json/array.hpp>

#include <string_view>

namespace halvo::rules {

// The pieces of `value` between separators, as JSON strings, in order.  Runs
// of separators yield nothing, so the array holds no empty string and is
// empty for a value of separators only.
boost::json::array rule_parse_host2array(std::string_view value, boost::json::storage_ptr storage = {});

} // namespace halvo::rules
