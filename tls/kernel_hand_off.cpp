#include "tls/kernel_hand_off.h"

#include <string>

namespace halvo::tls {

util::Expected<void> checkKernelHandOff(const KernelState& state) {
    if (kernelLacksTls(state)) {
        const char* which = !state.kernelSends() && !state.kernelReceives() ? "either direction"
                            : !state.kernelSends()                          ? "sending"
                                                                            : "receiving";
        return util::Failure{std::string("the kernel took no TLS keys for ") + which +
                             " (is the tls module loaded?)"};
    }
    if (state.pendingBytes() != 0) {
        return util::Failure{"the peer sent " + std::to_string(state.pendingBytes()) +
                             " bytes past its request"};
    }
    return {};
}

bool kernelLacksTls(const KernelState& state) {
    return !state.kernelSends() || !state.kernelReceives();
}

} // namespace halvo::tls
