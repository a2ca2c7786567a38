// halvo-attach: imports USB devices that a USB/IP server shares (halvod or
// any other) into this machine through the kernel's vhci-hcd.
#include "attach/commands.h"
#include "attach/linux_vhci.h"
#include "attach/tls_channel.h"

#include <iostream>

namespace {
constexpr std::chrono::seconds kTimeout{10};
}

int main(int argc, char** argv) {
    using namespace halvo::attach;
    LinuxVhci vhci;
    Records records;
    Context context{
        vhci,
        records,
        plainConnector(kTimeout),
        std::cout,
        std::cerr,
        [](const halvo::tls::Credentials& files) { return tlsConnector(files, kTimeout); }};
    return runCommandLine(std::vector<std::string>(argv + 1, argv + argc), context);
}
