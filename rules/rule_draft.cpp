#include "rules/rule_draft.h"

#include "rules/host_list.h"

namespace halvo::rules {

boost::json::object RuleDraft::toObject(const boost::json::storage_ptr& storage) const {
    boost::json::object record(storage);
    record.reserve(size_);
    for (std::size_t i = 0; i < size_; ++i) {
        const Entry& entry = entries_[i];
        const std::string_view name = keyName(entry.key);
        const std::string_view text(entry.text, entry.textSize);
        switch (entry.kind) {
        case Kind::Text:
            record.emplace(name, text);
            break;
        case Kind::HostList:
            record.emplace(name, rule_parse_host2array(text, storage));
            break;
        case Kind::Flag:
            record.emplace(name, entry.number != 0);
            break;
        case Kind::Number:
            record.emplace(name, entry.number);
            break;
        }
    }
    return record;
}

} // namespace halvo::rules
