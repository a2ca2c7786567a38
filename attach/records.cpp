#include "attach/records.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <system_error>

namespace halvo::attach {

namespace {

std::string timeText(std::time_t when) {
    std::tm parts{};
    ::gmtime_r(&when, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

} // namespace

std::filesystem::path Records::file(unsigned port) const {
    return folder_ / ("port" + std::to_string(port));
}

util::Expected<Done> Records::save(const Record& record) {
    std::error_code error;
    std::filesystem::create_directories(folder_, error);
    const std::filesystem::path path = file(record.port);
    const std::filesystem::path scratch = path.string() + ".new";
    {
        std::ofstream out(scratch, std::ios::trunc);
        out << record.server << '\n'
            << record.busId << '\n'
            << record.devid << '\n'
            << record.since << '\n'
            << (record.tls ? "tls" : "plain") << '\n';
        if (!out.flush()) {
            return util::Failure{"cannot write " + scratch.string()};
        }
    }
    std::filesystem::rename(scratch, path, error);
    if (error) {
        return util::Failure{"cannot write " + path.string() + ": " + error.message()};
    }
    return Done{};
}

std::optional<Record> Records::load(unsigned port) const {
    std::ifstream in(file(port));
    Record record;
    record.port = port;
    std::string link;
    if (!std::getline(in, record.server) || !std::getline(in, record.busId) ||
        !(in >> record.devid >> record.since >> link) || (link != "tls" && link != "plain")) {
        return std::nullopt;
    }
    record.tls = link == "tls";
    return record;
}

void Records::forget(unsigned port) {
    std::error_code ignored;
    std::filesystem::remove(file(port), ignored);
}

std::string statusTable(const std::vector<VhciPort>& ports, const Records& records) {
    std::string table = "PORT  SPEED       LOCAL  SERVER                 DEVICE  LINK   SINCE\n";
    for (const VhciPort& port : ports) {
        if (!port.used) {
            continue;
        }
        auto record = records.load(port.number);
        if (record && record->devid != port.devid) {
            record.reset(); // another device came there since
        }
        char line[1024]; // a host name has at most 253 bytes
        std::snprintf(line, sizeof line, "%-5u %-11s %-6s %-22s %-7s %-6s %s\n", port.number,
                      speedName(port.speed).c_str(), printable(port.localBusId).c_str(),
                      record ? record->server.c_str() : "-",
                      record ? printable(record->busId).c_str() : "-",
                      !record       ? "-"
                      : record->tls ? "tls"
                                    : "plain",
                      record ? timeText(record->since).c_str() : "-");
        table += line;
    }
    return table;
}

std::string printable(std::string_view text) {
    std::string shown(text);
    for (char& c : shown) {
        if (c < 0x20 || c > 0x7e) {
            c = '?';
        }
    }
    return shown;
}

} // namespace halvo::attach
