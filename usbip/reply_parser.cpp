#include "usbip/reply_parser.h"

#include <algorithm>

namespace halvo::usbip {

namespace {

class Decoder {
  public:
    explicit Decoder(const std::uint8_t* bytes) : at_(bytes) {}
    std::uint8_t u8() { return *at_++; }
    std::uint16_t u16() {
        const unsigned high = u8();
        return static_cast<std::uint16_t>(high << 8 | u8());
    }
    std::uint32_t u32() {
        const std::uint32_t high = u16();
        return high << 16 | u16();
    }
    // The text up to its NUL; a field without one sets `unterminated`.
    std::string text(std::size_t size, bool& unterminated) {
        const std::uint8_t* end = std::find(at_, at_ + size, 0);
        unterminated = unterminated || end == at_ + size;
        std::string value(at_, end);
        at_ += size;
        return value;
    }

  private:
    const std::uint8_t* at_;
};

} // namespace

ReplyParser::ReplyParser(OpCode expected) : expected_(expected) {}

std::size_t ReplyParser::missing() const {
    return phase_ == Phase::done ? 0 : wanted_ - filled_;
}

std::size_t ReplyParser::feed(std::span<const std::uint8_t> bytes) {
    std::size_t taken = 0;
    // A device list's pieces follow each other; take them all in one call.
    while (missing() > 0 && taken < bytes.size()) {
        const std::size_t piece = std::min(bytes.size() - taken, missing());
        std::copy_n(bytes.begin() + static_cast<long>(taken), piece,
                    bytes_.begin() + static_cast<long>(filled_));
        filled_ += piece;
        taken += piece;
        if (filled_ == wanted_) {
            pieceDone();
        }
    }
    return taken;
}

void ReplyParser::pieceDone() {
    switch (phase_) {
    case Phase::header:
        return headerDone();
    case Phase::count:
        return countDone();
    case Phase::record:
        return recordDone();
    case Phase::interface:
        return interfaceDone();
    case Phase::done:
        return;
    }
}

void ReplyParser::expect(Phase phase, std::size_t size) {
    phase_ = phase;
    filled_ = 0;
    wanted_ = size;
}

void ReplyParser::refuse(std::string why) {
    error_ = std::move(why);
    phase_ = Phase::done;
}

void ReplyParser::headerDone() {
    Decoder in(bytes_.data());
    const unsigned version = in.u16();
    const unsigned code = in.u16();
    status_ = static_cast<Status>(in.u32());
    if (version != kVersion) {
        refuse("unsupported version " + hex4(version));
    } else if (code != static_cast<unsigned>(expected_)) {
        refuse("reply " + hex4(code) + " where " + hex4(static_cast<unsigned>(expected_)) +
               " was due");
    } else if (status_ != Status::ok) {
        phase_ = Phase::done;
    } else if (expected_ == OpCode::replyDeviceList) {
        expect(Phase::count, 4);
    } else {
        expect(Phase::record, kDeviceRecordSize);
    }
}

void ReplyParser::countDone() {
    devicesLeft_ = Decoder(bytes_.data()).u32();
    if (devicesLeft_ > kMaxDevices) {
        refuse("a list of " + std::to_string(devicesLeft_) + " devices, more than " +
               std::to_string(kMaxDevices));
        return;
    }
    nextDevice();
}

void ReplyParser::nextDevice() {
    if (devicesLeft_ == 0) {
        phase_ = Phase::done;
        return;
    }
    --devicesLeft_;
    expect(Phase::record, kDeviceRecordSize);
}

void ReplyParser::recordDone() {
    Decoder in(bytes_.data());
    DeviceRecord& device = devices_.emplace_back();
    bool unterminated = false;
    device.path = in.text(kPathSize, unterminated);
    device.busId = in.text(kBusIdSize, unterminated);
    if (unterminated) {
        devices_.pop_back();
        refuse("a device record's path or bus id without its terminating NUL");
        return;
    }
    device.busnum = in.u32();
    device.devnum = in.u32();
    device.speed = in.u32();
    device.vid = in.u16();
    device.pid = in.u16();
    device.rev = in.u16();
    device.deviceClass = in.u8();
    device.deviceSubClass = in.u8();
    device.deviceProtocol = in.u8();
    device.configurationValue = in.u8();
    device.numConfigurations = in.u8();
    interfacesLeft_ = in.u8();
    if (expected_ == OpCode::replyImport) {
        phase_ = Phase::done;
    } else if (interfacesLeft_ > 0) {
        expect(Phase::interface, kInterfaceRecordSize);
    } else {
        nextDevice();
    }
}

void ReplyParser::interfaceDone() {
    Decoder in(bytes_.data());
    DeviceRecord::Interface& interface = devices_.back().interfaces.emplace_back();
    interface.interfaceClass = in.u8();
    interface.subclass = in.u8();
    interface.protocol = in.u8();
    if (--interfacesLeft_ > 0) {
        expect(Phase::interface, kInterfaceRecordSize);
    } else {
        nextDevice();
    }
}

} // namespace halvo::usbip
