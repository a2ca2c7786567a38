// VhciPorts through the sysfs files of vhci-hcd's first controller, which
// lists every controller's ports (status, status.1, ...) and takes every
// attach and detach.
#pragma once

#include "attach/vhci.h"

#include <filesystem>

namespace halvo::attach {

inline constexpr const char* kVhciFolder = "/sys/devices/platform/vhci_hcd.0";

class LinuxVhci final : public VhciPorts {
  public:
    explicit LinuxVhci(std::filesystem::path folder = kVhciFolder) : folder_(std::move(folder)) {}

    util::Expected<std::vector<VhciPort>> ports() override;
    util::Expected<Done> attach(const std::string& line) override;
    util::Expected<Done> detach(unsigned port) override;

  private:
    util::Expected<Done> write(const char* file, const std::string& line);

    std::filesystem::path folder_;
};

} // namespace halvo::attach
