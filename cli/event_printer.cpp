#include "cli/event_printer.h"

#include "util/json_fields.h"
#include "util/text_buffer.h"

#include <cstring>
#include <optional>
#include <string_view>

namespace halvo::cli {

namespace json = boost::json;
using util::getString;
using util::getU32;

namespace {

// asctime_r writes 24 characters and a line feed; the stamp wraps them in
// "[" and "]:" in place of the line feed.
constexpr std::size_t asctimeBytes = 26;
constexpr std::size_t stampBytes = 1 + asctimeBytes + 1;

void printDeviceEvent(const std::string& stamp, const json::object& payload, std::FILE* out) {
    auto id = getU32(payload, "id");
    auto name = id ? getString(payload, "name") : std::nullopt;
    auto state = name ? getString(payload, "state") : std::nullopt;
    if (!state) {
        return;
    }
    auto addr = getString(payload, "addr");
    std::fprintf(out, "%s device id:%u \"", stamp.c_str(), *id);
    util::writeCString(out, *name);
    std::fputs("\" got ", out);
    util::writeCString(out, *state);
    if (addr) {
        std::fputc('@', out);
        util::writeCString(out, *addr);
    }
    std::fputc('\n', out);
}

void printHostEvent(const std::string& stamp, const json::object& payload, std::FILE* out) {
    auto addr = getString(payload, "addr");
    auto port = addr ? getU32(payload, "port") : std::nullopt;
    auto state = port ? getString(payload, "state") : std::nullopt;
    if (!state) {
        return;
    }
    std::fprintf(out, "%s host ", stamp.c_str());
    util::writeCString(out, *addr);
    std::fprintf(out, ":%u is ", *port);
    util::writeCString(out, *state);
    std::fputc('\n', out);
}

} // namespace

std::string eventTimestamp(std::time_t now) {
    std::tm local{};
    char stamp[stampBytes] = "[";
    if (localtime_r(&now, &local) == nullptr || asctime_r(&local, stamp + 1) == nullptr) {
        return "-";
    }
    std::size_t length = std::strlen(stamp + 1);
    if (length == 0) {
        return "-";
    }
    std::string text(stamp, 1 + length);
    if (text.back() == '\n') {
        text.pop_back();
    }
    text += "]:";
    return text;
}

void printEvent(std::uint32_t command, const json::object& payload, std::FILE* out,
                std::time_t now) {
    const std::string stamp = eventTimestamp(now);
    switch (command) {
    case deviceEventCode:
        printDeviceEvent(stamp, payload, out);
        break;
    case hostEventCode:
        printHostEvent(stamp, payload, out);
        break;
    default:
        break;
    }
}

void printEvent(std::uint32_t command, const json::object& payload, std::FILE* out) {
    printEvent(command, payload, out, std::time(nullptr));
}

} // namespace halvo::cli
