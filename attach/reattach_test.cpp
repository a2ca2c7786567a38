#include "attach/reattach.h"

#include <gtest/gtest.h>
#include <vector>

namespace halvo::attach {
namespace {

using Action = ReattachAction;
using Event = ReattachEvent;
using State = Reattach::State;
using std::chrono::seconds;

// The machine depends on its state and its failure count only, so every
// state met by every event, plus the backoff's growth, covers every order of
// events.
TEST(ReattachTest, EveryStateMeetsEveryEvent) {
    struct Case {
        State from;
        Event event;
        State to;
        ReattachStep step;
        int failures;
    };
    const Case cases[] = {
        {State::attaching, Event::attached, State::attached, {Action::watch, seconds(2)}, 0},
        {State::attaching, Event::linkLost, State::backingOff, {Action::wait, seconds(1)}, 1},
        {State::attaching, Event::refused, State::backingOff, {Action::wait, seconds(1)}, 1},
        {State::attaching, Event::timer, State::attaching, {Action::attach}, 0},
        {State::attached, Event::attached, State::attached, {Action::watch, seconds(2)}, 0},
        {State::attached, Event::linkLost, State::attaching, {Action::attach}, 0},
        {State::attached, Event::refused, State::attached, {Action::watch, seconds(2)}, 0},
        {State::attached, Event::timer, State::attached, {Action::watch, seconds(2)}, 0},
        // Backing off after one failure.
        {State::backingOff, Event::attached, State::attached, {Action::watch, seconds(2)}, 0},
        {State::backingOff, Event::linkLost, State::backingOff, {Action::wait, seconds(2)}, 2},
        {State::backingOff, Event::refused, State::backingOff, {Action::wait, seconds(2)}, 2},
        {State::backingOff, Event::timer, State::attaching, {Action::attach}, 1},
    };
    for (const Case& test : cases) {
        Reattach machine;
        EXPECT_EQ(machine.start(), ReattachStep{Action::attach});
        if (test.from == State::attached) {
            (void)machine.on(Event::attached);
        } else if (test.from == State::backingOff) {
            (void)machine.on(Event::refused);
        }
        ASSERT_EQ(machine.state(), test.from);
        const ReattachStep step = machine.on(test.event);
        const std::string where = "from state " + std::to_string(static_cast<int>(test.from)) +
                                  ", event " + std::to_string(static_cast<int>(test.event));
        EXPECT_EQ(machine.state(), test.to) << where;
        EXPECT_EQ(step, test.step) << where;
        EXPECT_EQ(machine.failures(), test.failures) << where;
    }
}

TEST(ReattachTest, BackoffDoublesToAMinuteAndAnAttachmentResetsIt) {
    Reattach machine;
    (void)machine.start();
    std::vector<long> delays;
    for (int attempt = 0; attempt < 8; ++attempt) {
        delays.push_back(machine.on(Event::refused).delay.count());
        EXPECT_EQ(machine.on(Event::timer), ReattachStep{Action::attach});
    }
    EXPECT_EQ(delays, (std::vector<long>{1, 2, 4, 8, 16, 32, 60, 60}));
    (void)machine.on(Event::attached);
    EXPECT_EQ(machine.on(Event::linkLost), ReattachStep{Action::attach});
    EXPECT_EQ(machine.on(Event::refused).delay, seconds(1));
}

} // namespace
} // namespace halvo::attach
