#include "usbip/request_parser.h"

#include <algorithm>

namespace halvo::usbip {

std::size_t RequestParser::missing() const {
    if (request_ || !error_.empty()) {
        return 0;
    }
    return expected_ - filled_;
}

std::size_t RequestParser::feed(std::span<const std::uint8_t> bytes) {
    const std::size_t taken = std::min(bytes.size(), missing());
    std::copy_n(bytes.begin(), taken, bytes_.begin() + static_cast<long>(filled_));
    filled_ += taken;
    if (taken > 0 && filled_ == expected_) {
        if (filled_ == kHeaderSize) {
            headerDone();
        } else {
            busIdDone();
        }
    }
    return taken;
}

void RequestParser::headerDone() {
    const unsigned version = unsigned{bytes_[0]} << 8 | bytes_[1];
    const unsigned code = unsigned{bytes_[2]} << 8 | bytes_[3];
    if (version != kVersion) {
        error_ = "unsupported version " + hex4(version);
    } else if (code == static_cast<unsigned>(OpCode::requestDeviceList)) {
        request_ = Request{OpCode::requestDeviceList, {}};
    } else if (code == static_cast<unsigned>(OpCode::requestImport)) {
        expected_ = kHeaderSize + kBusIdSize;
    } else {
        error_ = "unknown operation " + hex4(code);
    }
}

void RequestParser::busIdDone() {
    const auto* begin = bytes_.data() + kHeaderSize;
    const auto* end = std::find(begin, begin + kBusIdSize, 0);
    if (end == begin + kBusIdSize) {
        error_ = "bus id without its terminating NUL";
        return;
    }
    if (end == begin) {
        error_ = "empty bus id";
        return;
    }
    request_ = Request{OpCode::requestImport, std::string(begin, end)};
}

} // namespace halvo::usbip
