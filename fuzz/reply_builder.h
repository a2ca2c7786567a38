// Builds daemon replies from fuzz input: JSON objects whose keys are mostly
// the ones the reply consumers read, holding values of every JSON type
// (negative, fractional and out-of-range numbers, strings that are not
// UTF-8, nested arrays and objects), so that each key meets each wrong type.
#pragma once

#include <boost/json/object.hpp>
#include <fuzzer/FuzzedDataProvider.h>

namespace halvo::fuzz {

boost::json::object buildReply(FuzzedDataProvider& input);

} // namespace halvo::fuzz
