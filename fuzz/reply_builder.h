// Builds daemon replies from fuzz input: JSON objects keyed mostly by what the
// reply consumers read, holding values of every JSON type (odd numbers, text
// that is not UTF-8, nesting), so that each key meets each wrong type.
#pragma once

#include <boost/json/object.hpp>
#include <fuzzer/FuzzedDataProvider.h>

namespace halvo::fuzz {

boost::json::object buildReply(FuzzedDataProvider& input);

} // namespace halvo::fuzz
