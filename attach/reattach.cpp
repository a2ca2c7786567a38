#include "attach/reattach.h"

#include <algorithm>

namespace halvo::attach {

ReattachStep Reattach::start() {
    state_ = State::attaching;
    failures_ = 0;
    return {ReattachAction::attach};
}

ReattachStep Reattach::backOff() {
    state_ = State::backingOff;
    ++failures_;
    const long doubled = 1L << std::min(failures_ - 1, 6);
    return {ReattachAction::wait, std::min(std::chrono::seconds(doubled), kMaxBackoff)};
}

ReattachStep Reattach::on(ReattachEvent event) {
    switch (event) {
    case ReattachEvent::attached:
        // Whatever the state: the device is there now.
        state_ = State::attached;
        failures_ = 0;
        return {ReattachAction::watch, kWatchInterval};
    case ReattachEvent::linkLost:
        if (state_ == State::attached) {
            // Straight away: a replug or a restart is usually back already.
            state_ = State::attaching;
            return {ReattachAction::attach};
        }
        return backOff(); // a loss while not attached counts as a failed attempt
    case ReattachEvent::refused:
        if (state_ == State::attached) {
            // A refusal of an attempt made before: the port watch decides.
            return {ReattachAction::watch, kWatchInterval};
        }
        return backOff();
    case ReattachEvent::timer:
        if (state_ == State::attached) {
            return {ReattachAction::watch, kWatchInterval};
        }
        state_ = State::attaching;
        return {ReattachAction::attach};
    }
    return {ReattachAction::wait, kMaxBackoff};
}

} // namespace halvo::attach
