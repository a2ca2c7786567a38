// A share hand-off that records what it was asked ("over 1-2 fd 7",
// "end 1-2") and reports the devices in `detached` as no longer in use.
#pragma once

#include "daemon/core/share_hand_off.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace halvo::testkit {

class RecordingHandOff final : public daemon::ShareHandOff {
  public:
    std::vector<std::string> calls;
    std::set<std::string> detached;
    // handOver fails with this when set.
    std::optional<std::string> failure;

    util::Expected<void> handOver(const daemon::Device& device, int socketFd) override {
        calls.push_back("over " + device.port + " fd " + std::to_string(socketFd));
        if (failure) {
            return util::Failure{*failure};
        }
        return {};
    }
    bool inUse(const daemon::Device& device) override { return !detached.contains(device.port); }
    util::Expected<void> end(const daemon::Device& device) override {
        calls.push_back("end " + device.port);
        return {};
    }
    Recovery recoverLeftovers() override { return {}; }
};

} // namespace halvo::testkit
