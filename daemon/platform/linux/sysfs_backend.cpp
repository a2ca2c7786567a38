#include "daemon/platform/linux/sysfs_backend.h"

#include "util/json_file.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace halvo::daemon {

namespace fs = std::filesystem;

namespace {

constexpr std::uint8_t kHubClass = 0x09;
constexpr std::string_view kFallbackName = "USB device";

std::optional<std::string> readAttribute(const fs::path& folder, const char* name) {
    auto bytes = util::readWholeFile((folder / name).string());
    if (!bytes) {
        return std::nullopt;
    }
    std::string text = std::move(bytes).value();
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

template <typename Number>
std::optional<Number> readHexAttribute(const fs::path& folder, const char* name) {
    auto text = readAttribute(folder, name);
    if (!text) {
        return std::nullopt;
    }
    Number number = 0;
    const char* end = text->data() + text->size();
    auto [rest, error] = std::from_chars(text->data(), end, number, 16);
    if (error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return number;
}

// The first interface of the active configuration, e.g. "1-2:1.0".
std::optional<fs::path> firstInterface(const fs::path& deviceFolder) {
    const std::string prefix = deviceFolder.filename().string() + ":";
    std::optional<fs::path> first;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(deviceFolder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(prefix) && (!first || name < first->filename().string())) {
            first = entry.path();
        }
    }
    return first;
}

void readClassTriple(const fs::path& folder, Device& device) {
    device.deviceClass = readHexAttribute<std::uint8_t>(folder, "bDeviceClass").value_or(0);
    device.subclass = readHexAttribute<std::uint8_t>(folder, "bDeviceSubClass").value_or(0);
    device.protocol = readHexAttribute<std::uint8_t>(folder, "bDeviceProtocol").value_or(0);
    if (device.deviceClass != 0) {
        return;
    }
    // Class 0: each interface names its own class; the first one tells
    // what kind of device this is.
    if (auto interface = firstInterface(folder)) {
        device.deviceClass =
            readHexAttribute<std::uint8_t>(*interface, "bInterfaceClass").value_or(0);
        device.subclass =
            readHexAttribute<std::uint8_t>(*interface, "bInterfaceSubClass").value_or(0);
        device.protocol =
            readHexAttribute<std::uint8_t>(*interface, "bInterfaceProtocol").value_or(0);
    }
}

std::optional<Device> readDevice(const fs::path& folder) {
    auto vid = readHexAttribute<std::uint16_t>(folder, "idVendor");
    auto pid = readHexAttribute<std::uint16_t>(folder, "idProduct");
    if (!vid || !pid) {
        return std::nullopt;
    }
    Device device;
    device.vid = *vid;
    device.pid = *pid;
    device.rev = readHexAttribute<std::uint16_t>(folder, "bcdDevice").value_or(0);
    if (readHexAttribute<std::uint8_t>(folder, "bDeviceClass") == kHubClass) {
        return std::nullopt;
    }
    readClassTriple(folder, device);
    device.port = folder.filename().string();
    device.builtIn = readAttribute(folder, "removable") == "fixed";
    auto name = readAttribute(folder, "product");
    if (!name || name->empty()) {
        name = readAttribute(folder, "manufacturer");
    }
    device.name = name && !name->empty() ? *name : std::string(kFallbackName);
    device.serial = readAttribute(folder, "serial").value_or("");
    device.state = readAttribute(folder, "authorized") == "0" ? "unauthorized" : "available";
    return device;
}

std::optional<std::string> writeAttribute(const fs::path& file, std::string_view value) {
    int fd = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return file.string() + ": " + std::strerror(errno);
    }
    ssize_t written = ::write(fd, value.data(), value.size());
    int writeErrno = errno;
    ::close(fd);
    if (written != static_cast<ssize_t>(value.size())) {
        return file.string() + ": " + std::strerror(written < 0 ? writeErrno : EIO);
    }
    return std::nullopt;
}

} // namespace

SysfsBackend::SysfsBackend(fs::path root) : root_(std::move(root)) {}

ScanResult SysfsBackend::scan() {
    ScanResult result;
    std::error_code error;
    fs::directory_iterator entries(root_, error);
    if (error) {
        result.error = root_.string() + ": " + error.message();
        return result;
    }
    for (const auto& entry : entries) {
        const std::string name = entry.path().filename().string();
        if (name.find(':') != std::string::npos || !fs::is_directory(entry.path(), error)) {
            continue;
        }
        if (auto device = readDevice(entry.path())) {
            result.devices.push_back(std::move(*device));
        }
    }
    std::sort(result.devices.begin(), result.devices.end(),
              [](const Device& left, const Device& right) { return left.port < right.port; });
    return result;
}

std::optional<std::string> SysfsBackend::unplug(const Device& device) {
    const fs::path authorized = root_ / device.port / "authorized";
    if (auto error = writeAttribute(authorized, "0")) {
        return error;
    }
    return writeAttribute(authorized, "1");
}

} // namespace halvo::daemon
