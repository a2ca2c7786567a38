#include "daemon/platform/linux/sysfs_backend.h"

#include "daemon/platform/linux/sysfs_attribute.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace halvo::daemon {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kFallbackName = "USB device";
constexpr std::string_view kImportController = "vhci_hcd";

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

// Decimal attributes; sysfs pads some of them ("%2d") with leading spaces.
template <typename Number>
std::optional<Number> readDecimalAttribute(const fs::path& folder, const char* name) {
    auto text = readAttribute(folder, name);
    if (!text) {
        return std::nullopt;
    }
    std::string_view digits(*text);
    digits.remove_prefix(std::min(digits.find_first_not_of(' '), digits.size()));
    const char* end = digits.data() + digits.size();
    Number number = 0;
    auto [rest, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return number;
}

// The kernel's speed code for sysfs `speed` (in Mbit/s).
std::uint32_t speedCode(std::string_view mbits) {
    static constexpr std::pair<std::string_view, std::uint32_t> kCodes[] = {
        {"1.5", 1}, {"12", 2}, {"480", 3}, {"5000", 5}, {"10000", 6}, {"20000", 6}};
    for (const auto& [text, code] : kCodes) {
        if (mbits == text) {
            return code;
        }
    }
    return 0;
}

// The number after the last '.' of an interface folder ("1-2:1.10" -> 10).
unsigned interfaceNumber(const fs::path& interface) {
    const std::string name = interface.filename().string();
    unsigned number = 0;
    std::from_chars(name.data() + name.rfind('.') + 1, name.data() + name.size(), number);
    return number;
}

std::vector<BusDescription::Interface> readInterfaces(const fs::path& deviceFolder) {
    const std::string prefix = deviceFolder.filename().string() + ":";
    std::vector<fs::path> folders;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(deviceFolder, error)) {
        if (entry.path().filename().string().starts_with(prefix)) {
            folders.push_back(entry.path());
        }
    }
    std::sort(folders.begin(), folders.end(), [](const fs::path& left, const fs::path& right) {
        return interfaceNumber(left) < interfaceNumber(right);
    });
    std::vector<BusDescription::Interface> interfaces;
    for (const fs::path& folder : folders) {
        interfaces.push_back(
            {readHexAttribute<std::uint8_t>(folder, "bInterfaceClass").value_or(0),
             readHexAttribute<std::uint8_t>(folder, "bInterfaceSubClass").value_or(0),
             readHexAttribute<std::uint8_t>(folder, "bInterfaceProtocol").value_or(0)});
    }
    return interfaces;
}

BusDescription readBusDescription(const fs::path& folder) {
    BusDescription bus;
    std::error_code error;
    bus.path = fs::canonical(folder, error).string();
    if (error) {
        bus.path = folder.string();
    }
    bus.busnum = readDecimalAttribute<std::uint32_t>(folder, "busnum").value_or(0);
    bus.devnum = readDecimalAttribute<std::uint32_t>(folder, "devnum").value_or(0);
    bus.speed = speedCode(readAttribute(folder, "speed").value_or(""));
    bus.deviceClass = readHexAttribute<std::uint8_t>(folder, "bDeviceClass").value_or(0);
    bus.deviceSubClass = readHexAttribute<std::uint8_t>(folder, "bDeviceSubClass").value_or(0);
    bus.deviceProtocol = readHexAttribute<std::uint8_t>(folder, "bDeviceProtocol").value_or(0);
    bus.configurationValue =
        readDecimalAttribute<std::uint8_t>(folder, "bConfigurationValue").value_or(0);
    bus.numConfigurations =
        readDecimalAttribute<std::uint8_t>(folder, "bNumConfigurations").value_or(0);
    bus.interfaces = readInterfaces(folder);
    return bus;
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
    device.bus = readBusDescription(folder);
    return device;
}

// Whether the device in `folder` hangs below a vhci_hcd controller (its
// real path runs through /sys/devices/platform/vhci_hcd.N/).
bool importedOverUsbip(const fs::path& folder) {
    std::error_code error;
    const fs::path real = fs::canonical(folder, error);
    return !error && std::any_of(real.begin(), real.end(), [](const fs::path& part) {
        return part.string().starts_with(kImportController);
    });
}

ScanResult scanFolder(const fs::path& root) {
    ScanResult result;
    std::error_code error;
    fs::directory_iterator entries(root, error);
    if (error) {
        result.error = root.string() + ": " + error.message();
        return result;
    }
    for (const auto& entry : entries) {
        const std::string name = entry.path().filename().string();
        if (name.find(':') != std::string::npos || !fs::is_directory(entry.path(), error) ||
            importedOverUsbip(entry.path())) {
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

} // namespace

// Shared with the scan's thread, which may outlive the backend.
struct SysfsBackend::Worker {
    std::mutex mutex;
    std::condition_variable finished;
    bool running = false;
    ScanResult result;
};

SysfsBackend::SysfsBackend(fs::path root, std::chrono::milliseconds scanBound)
    : root_(std::move(root)), scanBound_(scanBound), worker_(std::make_shared<Worker>()) {}

ScanResult SysfsBackend::scan() {
    std::unique_lock lock(worker_->mutex);
    const auto idle = [this] { return !worker_->running; };
    const std::string overran = "reading " + root_.string() + " blocks for more than " +
                                std::to_string(scanBound_.count()) +
                                " ms (a device's attribute does not answer)";
    if (!worker_->finished.wait_for(lock, scanBound_, idle)) {
        return {{}, overran};
    }
    worker_->running = true;
    std::thread([worker = worker_, root = root_] {
        ScanResult result = scanFolder(root);
        std::lock_guard guard(worker->mutex);
        worker->result = std::move(result);
        worker->running = false;
        worker->finished.notify_all();
    }).detach();
    if (!worker_->finished.wait_for(lock, scanBound_, idle)) {
        return {{}, overran};
    }
    return std::move(worker_->result);
}

util::Expected<void> SysfsBackend::unplug(const Device& device) {
    const fs::path authorized = root_ / device.port / "authorized";
    if (auto detached = writeAttribute(authorized, "0"); !detached) {
        return detached;
    }
    return writeAttribute(authorized, "1");
}

} // namespace halvo::daemon
