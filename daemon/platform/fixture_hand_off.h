// Sharing without a kernel, for fixture devices: the import is simulated.
// The hand-off keeps the importing host's connection open in the kernel's
// place (discarding what the host sends), so the share lasts until the host
// closes it or halvod ends the share.
#pragma once

#include "daemon/core/share_hand_off.h"

#include <map>
#include <string>

namespace halvo::daemon {

class FixtureHandOff final : public ShareHandOff {
  public:
    FixtureHandOff() = default;
    ~FixtureHandOff() override;
    FixtureHandOff(const FixtureHandOff&) = delete;
    FixtureHandOff& operator=(const FixtureHandOff&) = delete;

    // At once: `done` and `ended` hear before handOver() and end() return.
    void handOver(const Device& device, int socketFd, Done done) override;
    ShareUse use(const Device& device) override;
    void end(const Device& device, Done ended) override;
    bool busy(std::string_view) const override { return false; }
    void whenIdle(std::function<void()> idle) override { idle(); }
    void portChanged(const std::string&) override {}
    Recovery recoverLeftovers() override { return {}; }

  private:
    void close(const std::string& port);

    // The held connection of each shared device, by port.
    std::map<std::string, int> held_;
};

} // namespace halvo::daemon
