// Device-list replies for the benchmarks, shaped like the daemon's: a JSON
// object whose "devices" array holds one object per device with every key
// a table row reads, in varied lengths and with the optional parts both
// present and absent.
#pragma once

#include <cstddef>
#include <string>

namespace halvo::bench {

struct DeviceListPayload {
    std::string json;
    std::size_t devices = 0;
};

// A reply with exactly `count` devices.
DeviceListPayload deviceListPayload(std::size_t count);

// A reply with as many devices as fit in `maxBytes` bytes of JSON.
DeviceListPayload deviceListPayloadUpTo(std::size_t maxBytes);

} // namespace halvo::bench
