#include "listings/connection_list.h"

#include "util/json_fields.h"
#include "util/text_buffer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace halvo::listings {

namespace json = boost::json;

namespace {

// Which keys carry the name and the number of one connection type.
struct ConnectionKind {
    std::string_view type;
    std::string_view nameKey;
    std::string_view numberKey;
};

// "rdesk" is matched before "net"; the comparison is exact.
constexpr ConnectionKind connectionKinds[] = {
    {"rdesk", "app", "pid"},
    {"net", "addr", "port"},
};

// Names shorter than one tab stop get a second tab, so that numbers after
// names of up to 15 bytes line up under the header's "Port/PID".
constexpr std::size_t tabStop = 8;

const ConnectionKind* kindOf(std::string_view type) {
    for (const ConnectionKind& kind : connectionKinds) {
        if (kind.type == type) {
            return &kind;
        }
    }
    return nullptr;
}

void writeConnection(util::TextBuffer& buffer, const json::value& element) {
    const json::object* connection = element.if_object();
    if (connection == nullptr) {
        return;
    }
    auto type = util::getString(*connection, "type");
    const ConnectionKind* kind = type ? kindOf(*type) : nullptr;
    if (kind == nullptr) {
        return;
    }
    auto name = util::getString(*connection, kind->nameKey);
    // Process ids and ports alike are shown as 16-bit values: a pid above
    // 65535 shows reduced modulo 65536.
    auto number = name ? util::getU16(*connection, kind->numberKey) : std::nullopt;
    if (!number) {
        return;
    }
    buffer.text(kind->type);
    buffer.character('\t');
    buffer.cString(*name);
    buffer.character('\t');
    if (name->size() < tabStop) {
        buffer.character('\t');
    }
    buffer.decimal(*number);
    buffer.character('\n');
}

} // namespace

void outputConnectionList(const json::object& reply, std::FILE* out) {
    const json::array* connections = util::getArray(reply, "connections");
    if (connections == nullptr) {
        return;
    }
    util::TextBuffer buffer(out);
    buffer.text("Type\tIP/Name\t\tPort/PID\n");
    for (const json::value& element : *connections) {
        writeConnection(buffer, element);
    }
}

} // namespace halvo::listings
