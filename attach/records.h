// What halvo-attach remembers of each attachment (from where, since when),
// one small file per vhci port in a folder under /run, so that `status` can
// say it and a later `detach` can forget it.  The kernel's port table stays
// the truth: a record whose port is free or holds another device is stale.
#pragma once

#include "attach/endpoint.h"
#include "attach/vhci.h"

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace halvo::attach {

inline constexpr const char* kRecordFolder = "/run/halvo-attach";

struct Record {
    unsigned port = 0;
    std::string server; // as Endpoint::text() writes it
    std::string busId;
    std::uint32_t devid = 0;
    std::time_t since = 0;
    bool tls = false; // the device's traffic runs in kernel TLS
};

class Records {
  public:
    explicit Records(std::filesystem::path folder = kRecordFolder) : folder_(std::move(folder)) {}

    util::Expected<Done> save(const Record& record);
    // The record of `port`, when there is one.
    std::optional<Record> load(unsigned port) const;
    void forget(unsigned port);

  private:
    std::filesystem::path file(unsigned port) const;

    std::filesystem::path folder_;
};

// One line per used port: "PORT SPEED LOCAL-BUSID SERVER BUSID LINK SINCE"
// (LINK: "tls" or "plain"), with "-" for what no current record says, after
// a title line.
std::string statusTable(const std::vector<VhciPort>& ports, const Records& records);

// Server text shown to the user: bytes outside printable ASCII become '?'.
std::string printable(std::string_view text);

} // namespace halvo::attach
