#include "rules/rule_dictionary.h"

#include "rules/host_list.h"

namespace halvo::rules {

void RuleDictionary::pushTo(boost::json::value_stack& stack) const {
    for (std::size_t i = 0; i < size_; ++i) {
        const Entry& entry = entries_[i];
        const std::string_view text(entry.text, entry.textSize);
        stack.push_key(keyName(entry.key));
        switch (entry.kind) {
        case Kind::Text:
            stack.push_string(text);
            break;
        case Kind::HostList:
            stack.push_array(pushHostList(text, stack));
            break;
        case Kind::Flag:
            stack.push_bool(entry.number != 0);
            break;
        case Kind::Number:
            stack.push_int64(entry.number);
            break;
        }
    }
    stack.push_object(size_);
}

} // namespace halvo::rules
