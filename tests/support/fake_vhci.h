// vhci-hcd for tests: a controller of two high-speed and two SuperSpeed
// ports that keeps every attach line and, as the kernel does, its own
// reference to the socket until the port is detached or the server closes
// the connection.
#pragma once

#include "attach/vhci.h"

#include <map>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace halvo::testkit {

class FakeVhci final : public attach::VhciPorts {
  public:
    FakeVhci() {
        for (unsigned number = 0; number < 4; ++number) {
            ports_.push_back(attach::VhciPort{number, number >= 2, false, 0, 0, ""});
        }
    }
    ~FakeVhci() override {
        for (const auto& [port, fd] : sockets_) {
            ::close(fd);
        }
    }
    FakeVhci(const FakeVhci&) = delete;
    FakeVhci& operator=(const FakeVhci&) = delete;

    util::Expected<std::vector<attach::VhciPort>> ports() override {
        for (auto held = sockets_.begin(); held != sockets_.end();) {
            pollfd entry{held->second, POLLRDHUP, 0};
            if (::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR))) {
                ports_.at(held->first).used = false;
                ::close(held->second);
                held = sockets_.erase(held);
            } else {
                ++held;
            }
        }
        return ports_;
    }

    util::Expected<attach::Done> attach(const std::string& line) override {
        lines.push_back(line);
        std::istringstream in(line);
        unsigned number = 0;
        int fd = 0;
        std::uint32_t devid = 0;
        std::uint32_t speed = 0;
        in >> number >> fd >> devid >> speed;
        attach::VhciPort& port = ports_.at(number);
        port.used = true;
        port.devid = devid;
        port.speed = speed;
        port.localBusId = "9-" + std::to_string(number + 1);
        sockets_[number] = ::dup(fd);
        return attach::Done{};
    }

    util::Expected<attach::Done> detach(unsigned port) override {
        ports_.at(port).used = false;
        if (auto held = sockets_.find(port); held != sockets_.end()) {
            ::close(held->second);
            sockets_.erase(held);
        }
        return attach::Done{};
    }

    std::vector<std::string> lines;

  private:
    std::vector<attach::VhciPort> ports_;
    std::map<unsigned, int> sockets_;
};

} // namespace halvo::testkit
