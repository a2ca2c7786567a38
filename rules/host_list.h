// The value of a "host" clause: host names or addresses separated by commas
// and/or whitespace.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/value_stack.hpp>
#include <cstddef>
#include <string_view>

namespace halvo::rules {

// Pushes the pieces of `value` between separators onto `stack` as JSON
// strings, in order, and returns their count.  Runs of separators yield
// nothing, so no piece is empty and a value of separators only gives none.
std::size_t pushHostList(std::string_view value, boost::json::value_stack& stack);

// The same pieces as an array allocated from `storage`.
boost::json::array rule_parse_host2array(std::string_view value,
                                         boost::json::storage_ptr storage = {});

} // namespace halvo::rules
