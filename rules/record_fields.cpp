#include "rules/record_fields.h"

#include <optional>

namespace halvo::rules {

RecordFields::RecordFields(const boost::json::object& record) {
    for (const boost::json::key_value_pair& entry : record) {
        if (const std::optional<RecordKey> key = findRecordKey(entry.key())) {
            values_[static_cast<std::size_t>(*key)] = &entry.value();
        }
    }
}

} // namespace halvo::rules
