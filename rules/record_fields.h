// The known keys of one rule record, found in a single walk over it.
//
// The printer looks at some twenty keys of every record; looking each one up
// by name would scan the record twenty times.  One walk that files every
// known key under its slot keeps printing linear in the size of the records.
// The values are left untyped: the reader decides, through the shared JSON
// lookups, whether a value has the type it needs.
#pragma once

#include "rules/rule_keys.h"

#include <array>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <cstddef>

namespace halvo::rules {

class RecordFields {
  public:
    explicit RecordFields(const boost::json::object& record);

    // The value stored under `key`, or null when the record lacks it.
    const boost::json::value* operator[](RecordKey key) const {
        return values_[static_cast<std::size_t>(key)];
    }

  private:
    std::array<const boost::json::value*, recordKeyCount> values_{};
};

} // namespace halvo::rules
