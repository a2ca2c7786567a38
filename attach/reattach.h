// When a persistent attachment tries again: a pure state machine that the
// --persist loop feeds with what happened and that answers with what to do
// next and after how long.  Failures back off 1, 2, 4 ... up to 60 seconds;
// an attachment that held resets the backoff.
#pragma once

#include <chrono>

namespace halvo::attach {

enum class ReattachEvent {
    attached, // an attempt attached the device
    linkLost, // the attached port went free: network, server restart, replug
    refused,  // an attempt failed: unreachable, refused, no free port
    timer,    // the delay of the last step ran out
};

enum class ReattachAction {
    attach, // try to attach now
    watch,  // check the port after the delay
    wait,   // do nothing for the delay
};

struct ReattachStep {
    ReattachAction action;
    std::chrono::seconds delay{0};
    bool operator==(const ReattachStep&) const = default;
};

class Reattach {
  public:
    static constexpr std::chrono::seconds kWatchInterval{2};
    static constexpr std::chrono::seconds kMaxBackoff{60};

    enum class State { attaching, attached, backingOff };

    // The first step: attach now.
    ReattachStep start();
    ReattachStep on(ReattachEvent event);

    State state() const { return state_; }
    // Failed attempts since the device was last attached.
    int failures() const { return failures_; }

  private:
    ReattachStep backOff();

    State state_ = State::attaching;
    int failures_ = 0;
};

} // namespace halvo::attach
