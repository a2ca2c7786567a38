#include "daemon/platform/fixture_backend.h"

#include "daemon/core/json_integer.h"
#include "util/json_file.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace halvo::daemon {

namespace json = boost::json;

namespace {

constexpr std::string_view kDefaultState = "available";

constexpr std::array<std::string_view, 12> kKnownKeys = {
    "vid",    "pid",   "rev",  "port",  "name",     "built-in",
    "serial", "state", "addr", "class", "subclass", "protocol",
};

// Reads one device object; an error text names the key at fault.
class DeviceReader {
  public:
    explicit DeviceReader(const json::object& record) : record_(record) {}

    util::Expected<void> read(Device& device) {
        for (const auto& member : record_) {
            if (std::find(kKnownKeys.begin(), kKnownKeys.end(), member.key()) == kKnownKeys.end()) {
                return util::Failure{"unknown key \"" + std::string(member.key()) + "\""};
            }
        }
        readNumber("vid", kMaxU16, true, device.vid);
        readNumber("pid", kMaxU16, true, device.pid);
        readNumber("rev", kMaxU16, true, device.rev);
        readNumber("class", kMaxU8, false, device.deviceClass);
        readNumber("subclass", kMaxU8, false, device.subclass);
        readNumber("protocol", kMaxU8, false, device.protocol);
        readText("port", true, device.port);
        readText("name", true, device.name);
        readText("serial", false, device.serial);
        device.state = std::string(kDefaultState);
        readText("state", false, device.state);
        std::string addr;
        if (readText("addr", false, addr)) {
            device.addr = addr;
        }
        if (const json::value* builtIn = record_.if_contains("built-in")) {
            if (!builtIn->is_bool()) {
                fail("\"built-in\" must be true or false");
            } else {
                device.builtIn = builtIn->get_bool();
            }
        }
        if (error_) {
            return util::Failure{*error_};
        }
        return {};
    }

  private:
    template <typename Number>
    void readNumber(std::string_view key, std::uint64_t max, bool required, Number& out) {
        const json::value* value = record_.if_contains(key);
        if (value == nullptr) {
            if (required) {
                fail("\"" + std::string(key) + "\" is missing");
            }
            return;
        }
        auto number = toBoundedInteger(*value, max);
        if (!number) {
            fail("\"" + std::string(key) + "\" must be an integer from 0 to " +
                 std::to_string(max));
            return;
        }
        out = static_cast<Number>(*number);
    }

    bool readText(std::string_view key, bool required, std::string& out) {
        const json::value* value = record_.if_contains(key);
        if (value == nullptr) {
            if (required) {
                fail("\"" + std::string(key) + "\" is missing");
            }
            return false;
        }
        if (!value->is_string()) {
            fail("\"" + std::string(key) + "\" must be a string");
            return false;
        }
        out = std::string(value->get_string());
        return true;
    }

    void fail(std::string reason) {
        if (!error_) {
            error_ = std::move(reason);
        }
    }

    const json::object& record_;
    std::optional<std::string> error_;
};

// A fixture has no bus: the description is made up from what the fixture
// says, so that USB/IP hosts see a plausible high-speed device with one
// interface of the device's class.
BusDescription describeOnFixtureBus(const Device& device, std::size_t number) {
    BusDescription bus;
    bus.path = "/sys/devices/fixture/" + device.port;
    bus.busnum = static_cast<std::uint32_t>(std::strtoul(device.port.c_str(), nullptr, 10));
    bus.devnum = static_cast<std::uint32_t>(number + 1);
    bus.speed = 3;
    bus.configurationValue = 1;
    bus.numConfigurations = 1;
    bus.interfaces.push_back({device.deviceClass, device.subclass, device.protocol});
    return bus;
}

} // namespace

util::Expected<std::vector<Device>> parseDeviceFixture(const json::object& document) {
    const json::value* list = document.if_contains("devices");
    if (list == nullptr || !list->is_array()) {
        return util::Failure{"\"devices\" must be an array"};
    }
    std::vector<Device> devices;
    std::size_t number = 0;
    for (const json::value& element : list->get_array()) {
        ++number;
        const std::string where = "device #" + std::to_string(number) + ": ";
        if (!element.is_object()) {
            return util::Failure{where + "not an object"};
        }
        Device device;
        if (auto read = DeviceReader(element.get_object()).read(device); !read) {
            return util::Failure{where + read.error()};
        }
        device.bus = describeOnFixtureBus(device, devices.size());
        devices.push_back(std::move(device));
    }
    return devices;
}

FixtureBackend::FixtureBackend(std::vector<Device> devices) : devices_(std::move(devices)) {}

util::Expected<std::unique_ptr<FixtureBackend>> FixtureBackend::fromFile(const std::string& path) {
    auto document = util::readJsonObjectFile(path);
    if (!document) {
        return util::Failure{document.error()};
    }
    auto devices = parseDeviceFixture(document.value());
    if (!devices) {
        return util::Failure{path + ": " + devices.error()};
    }
    return std::make_unique<FixtureBackend>(std::move(devices).value());
}

ScanResult FixtureBackend::scan() {
    return ScanResult{devices_, {}};
}

util::Expected<void> FixtureBackend::unplug(const Device&) {
    return {};
}

} // namespace halvo::daemon
