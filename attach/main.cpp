// halvo-attach: imports USB devices that a USB/IP server shares (halvod or
// any other) into this machine through the kernel's vhci-hcd.
#include "attach/commands.h"
#include "attach/linux_vhci.h"

#include <iostream>

int main(int argc, char** argv) {
    using namespace halvo::attach;
    LinuxVhci vhci;
    Records records;
    Context context{vhci, records, plainConnector(std::chrono::seconds(10)), std::cout, std::cerr};
    return runCommandLine(std::vector<std::string>(argv + 1, argv + argc), context);
}
