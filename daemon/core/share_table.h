// The devices that remote hosts have imported, and every decision about
// them: which devices a host may see and import (those whose verdict for a
// network connection from its address is "share"; never hubs), and when a
// share ends.  Each share is a network connection in the connection table
// and a "shared" device in the device table; starting or ending one returns
// the events for every client, and the activity log records it.
#pragma once

#include "daemon/core/connection_table.h"
#include "daemon/core/device_table.h"
#include "daemon/core/event.h"
#include "daemon/core/rule_engine.h"
#include "daemon/core/rule_store.h"
#include "daemon/core/share_hand_off.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::daemon {

// The host at the other end of an import: its address and port, and over
// TLS the names its verified certificate gives it.
struct RemoteHost {
    std::string addr;
    std::uint16_t port = 0;
    std::vector<std::string> names = {};

    // How tables, events and log lines name it: its first certificate name,
    // else its address.
    const std::string& shownAs() const { return names.empty() ? addr : names.front(); }
    // How the log's HALVO_PEER names it: "ADDRESS:PORT", or with a certificate
    // "NAME (ADDRESS:PORT)".
    std::string logText() const;
};

enum class ImportStatus { ok, busy, noDevice, error };

struct ImportResult {
    ImportStatus status = ImportStatus::noDevice;
    // The imported device when the status is ok.
    std::optional<Device> device;
    std::vector<Event> events;
};

class ShareTable {
  public:
    ShareTable(DeviceTable& devices, ConnectionTable& connections, const RuleStore& rules,
               Action defaultAction, ShareHandOff& handOff);

    // The devices `host` may import, in device-table order.
    std::vector<Device> visibleTo(const RemoteHost& host) const;
    std::vector<Device> visibleTo(std::string_view addr) const {
        return visibleTo(RemoteHost{std::string(addr)});
    }

    using Imported = std::function<void(ImportResult)>;

    // Hands the device at `port` over to `host` on its socket `socketFd`
    // when the committed rules share it with the host; `imported` hears the
    // result on the loop once the hand-over is done (at once when refused).
    // A device the host may not see is reported as absent (noDevice); one
    // being handed over or given back, as busy.  A hand-over that is done
    // after the sharing stopped, the device went away or the rules no longer
    // share it with the host gives the device back: no share begins.
    void import(std::string_view port, const RemoteHost& host, int socketFd, Imported imported);

    // The shares end; each returns the events.
    // Those of the host shown as `addr` (only the one on `port` when given):
    // its host events say "dropped".
    std::vector<Event> endForHost(std::string_view addr, std::optional<std::uint16_t> port);
    std::vector<Event> endForDevice(std::uint32_t id);
    // Those that the committed rules no longer share.
    std::vector<Event> endRefused();
    // The action when no rule matches, from now on (a reload may change
    // it); endRefused then ends what it no longer shares.
    void setDefaultAction(Action action) { defaultAction_ = action; }
    // Those whose device the device table no longer holds.
    std::vector<Event> endGone();
    // Those whose device went away, or that the remote host detached or
    // whose link broke.
    std::vector<Event> endDetached();
    // All of them, for good: no share begins after this.
    std::vector<Event> endAll();

    std::size_t size() const { return shares_.size(); }

  private:
    struct Share {
        // As it was when the share began: a device unplugged meanwhile is
        // still given back by its port.
        Device device;
        RemoteHost host;
    };

    bool mayImport(const Device& device, const RemoteHost& host) const;
    // What became of an import once its hand-over is done.
    ImportResult started(const Device& device, const RemoteHost& host,
                         const util::Expected<void>& handedOver);
    void giveBack(const Device& device);
    // Ends the shares that `ending` selects, logging `reason`; the host
    // events carry `hostState`.
    template <typename Selector>
    std::vector<Event> endWhere(Selector ending, std::string_view reason,
                                std::string_view hostState);

    DeviceTable& devices_;
    ConnectionTable& connections_;
    const RuleStore& rules_;
    Action defaultAction_;
    ShareHandOff& handOff_;
    std::vector<Share> shares_;
    bool stopped_ = false;
};

} // namespace halvo::daemon
