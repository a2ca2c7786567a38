// Reads one USB/IP request (OP_REQ_DEVLIST: the header only; OP_REQ_IMPORT:
// the header and a 32-byte bus id) from bytes that arrive in any pieces.
// It holds at most one request's bytes and never asks for more than the
// request still lacks, so that nothing after the request is read: after an
// import the same connection carries the device's traffic.
#pragma once

#include "usbip/wire.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace halvo::usbip {

struct Request {
    OpCode code = OpCode::requestDeviceList;
    // The device an import names ("1-2.3"); empty for a device list.
    std::string busId;
};

class RequestParser {
  public:
    // How many more bytes the request needs; 0 once it is complete or
    // refused.
    std::size_t missing() const;

    // Takes at most `missing()` bytes from the front of `bytes` and returns
    // how many it took.
    std::size_t feed(std::span<const std::uint8_t> bytes);

    // The request, once complete.
    const std::optional<Request>& request() const { return request_; }
    // Why the request was refused ("unsupported version 0x0100", ...);
    // empty while it is fine.
    const std::string& error() const { return error_; }

  private:
    void headerDone();
    void busIdDone();

    static constexpr std::size_t kMaxRequestSize = kHeaderSize + kBusIdSize;
    std::array<std::uint8_t, kMaxRequestSize> bytes_{};
    std::size_t filled_ = 0;
    // The size of the request once its header says what it is.
    std::size_t expected_ = kHeaderSize;
    std::optional<Request> request_;
    std::string error_;
};

} // namespace halvo::usbip
