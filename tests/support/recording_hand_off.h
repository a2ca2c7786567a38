// A share hand-off that records what it was asked ("over 1-2 fd 7",
// "end 1-2"), reports the devices in `detached` as no longer in use and those
// in `gone` as gone, and holds the ends' outcomes in `ending` until the test
// calls finishEnds(); a hand-over answers at once, or with `holdHandOvers`
// waits in `handing` until finishHandOvers().
#pragma once

#include "daemon/core/share_hand_off.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace halvo::testkit {

class RecordingHandOff final : public daemon::ShareHandOff {
  public:
    std::vector<std::string> calls;
    std::set<std::string> detached;
    std::set<std::string> gone;
    // handOver fails with this when set.
    std::optional<std::string> failure;
    bool holdHandOvers = false;

    void handOver(const daemon::Device& device, int socketFd, Done done) override {
        calls.push_back("over " + device.port + " fd " + std::to_string(socketFd));
        handing.emplace_back(device.port, std::move(done));
        if (!holdHandOvers) {
            finishHandOvers();
        }
    }
    void finishHandOvers() {
        for (auto& [port, done] : std::exchange(handing, {})) {
            done(failure ? util::Expected<void>(util::Failure{*failure}) : util::Expected<void>());
        }
    }
    daemon::ShareUse use(const daemon::Device& device) override {
        if (gone.contains(device.port)) {
            return daemon::ShareUse::deviceGone;
        }
        return detached.contains(device.port) ? daemon::ShareUse::released
                                              : daemon::ShareUse::inUse;
    }
    void end(const daemon::Device& device, Done ended) override {
        calls.push_back("end " + device.port);
        ending.emplace_back(device.port, std::move(ended));
    }
    bool busy(std::string_view port) const override {
        const auto onPort = [port](const auto& job) { return job.first == port; };
        return std::any_of(ending.begin(), ending.end(), onPort) ||
               std::any_of(handing.begin(), handing.end(), onPort);
    }
    void whenIdle(std::function<void()> idle) override { idle(); }
    void portChanged(const std::string&) override {}
    // Reports `outcome` for every end under way.
    void finishEnds(const util::Expected<void>& outcome = {}) {
        for (auto& [port, ended] : std::exchange(ending, {})) {
            ended(outcome);
        }
    }
    Recovery recoverLeftovers() override { return {}; }

    std::vector<std::pair<std::string, Done>> ending;
    std::vector<std::pair<std::string, Done>> handing;
};

} // namespace halvo::testkit
