#include "tls/kernel_hand_off.h"

#include <gtest/gtest.h>

namespace halvo::tls {
namespace {

struct FakeKernelState final : KernelState {
    bool sends = false;
    bool receives = false;
    std::size_t pending = 0;
    bool kernelSends() const override { return sends; }
    bool kernelReceives() const override { return receives; }
    std::size_t pendingBytes() const override { return pending; }
};

TEST(KernelHandOff, OnlyBothDirectionsInTheKernelAndNothingBufferedMayGo) {
    struct Case {
        bool sends, receives;
        std::size_t pending;
        bool allowed, lacksTls;
    } cases[] = {
        {true, true, 0, true, false},  {true, false, 0, false, true},
        {false, true, 0, false, true}, {false, false, 0, false, true},
        {true, true, 1, false, false}, {false, false, 5, false, true},
    };
    for (const Case& c : cases) {
        FakeKernelState state;
        state.sends = c.sends;
        state.receives = c.receives;
        state.pending = c.pending;
        EXPECT_EQ(checkKernelHandOff(state).has_value(), c.allowed)
            << c.sends << c.receives << c.pending;
        EXPECT_EQ(kernelLacksTls(state), c.lacksTls) << c.sends << c.receives << c.pending;
    }
}

} // namespace
} // namespace halvo::tls
