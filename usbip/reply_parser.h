// Reads one USB/IP reply (OP_REP_DEVLIST or OP_REP_IMPORT) from a server, in
// whatever pieces its bytes arrive.  The server is not trusted: the parser
// holds at most one record's bytes at a time, its device list grows only as
// records arrive, a list longer than kMaxDevices is refused from its count,
// and it never asks for a byte past the reply, so that after an import the
// connection goes to the kernel with nothing of the device's traffic read.
#pragma once

#include "usbip/wire.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace halvo::usbip {

class ReplyParser {
  public:
    // More devices than a machine's USB buses can hold.
    static constexpr std::uint32_t kMaxDevices = 4096;

    // `expected`: OpCode::replyDeviceList or OpCode::replyImport.
    explicit ReplyParser(OpCode expected);

    // How many bytes the reply needs next (its part now being read: never
    // more than what is left of the reply); 0 once it is complete or refused.
    std::size_t missing() const;

    // Takes at most `missing()` bytes from the front of `bytes` and returns
    // how many it took.
    std::size_t feed(std::span<const std::uint8_t> bytes);

    // Whether the whole reply has arrived (and was well formed).
    bool complete() const { return phase_ == Phase::done && error_.empty(); }
    // Why the reply is malformed ("unsupported version 0x0100", ...); empty
    // while it is fine.
    const std::string& error() const { return error_; }
    // The server's answer; when not ok, the reply carries nothing more.
    Status status() const { return status_; }
    // The listed devices, or the imported one (whose interfaces the import
    // reply does not carry).
    const std::vector<DeviceRecord>& devices() const { return devices_; }

  private:
    enum class Phase { header, count, record, interface, done };

    void pieceDone();
    void headerDone();
    void countDone();
    void recordDone();
    void interfaceDone();
    void expect(Phase phase, std::size_t size);
    void nextDevice();
    void refuse(std::string why);

    OpCode expected_;
    Phase phase_ = Phase::header;
    std::array<std::uint8_t, kDeviceRecordSize> bytes_{};
    std::size_t filled_ = 0;
    std::size_t wanted_ = kHeaderSize;
    Status status_ = Status::ok;
    std::uint32_t devicesLeft_ = 0;
    std::uint8_t interfacesLeft_ = 0;
    std::vector<DeviceRecord> devices_;
    std::string error_;
};

} // namespace halvo::usbip
