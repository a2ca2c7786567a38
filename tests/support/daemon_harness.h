// Helpers shared by halvod's tests: scratch folders, a blocking protocol
// client, and halvod run as a separate process.
#pragma once

#include "daemon/core/rule_store.h"
#include "link/packet.h"
#include "tests/support/files.h"
#include "tests/support/process_runner.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace halvo::testkit {

// A sysfs folder as the kernel shows it: one attribute a file, each value
// ended by a line feed.  `attributes` is "name=value" entries split by ';'.
void addSysfsEntry(const std::filesystem::path& folder, std::string_view attributes);

// Whether `check` holds within the time, tried every 10 ms.
bool eventually(const std::function<bool()>& check,
                std::chrono::milliseconds timeout = std::chrono::seconds(5));

// A rules saver that answers each save as told and counts them.
class ScriptedSaver final : public daemon::RulesSaver {
  public:
    Result next;
    int saves = 0;
    Result save(const boost::json::array&) override {
        ++saves;
        return next;
    }
};

struct Packet {
    std::uint32_t command = 0;
    boost::json::object payload;
};

// One client connection to a daemon on 127.0.0.1, with blocking calls and
// time limits.
class TestClient {
  public:
    // From the loopback address `source` when one is given.
    explicit TestClient(std::uint16_t port, const char* source = nullptr);
    ~TestClient();
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;

    bool sendRaw(std::string_view bytes);
    // Without a payload the packet is a bare header.
    bool send(link::CommandCode command,
              const std::optional<boost::json::object>& payload = std::nullopt);

    // The next packet, or nothing when none came in time or the link ended.
    std::optional<Packet> receive(std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Sends a request and returns the reply with the same command code;
    // events that arrive first are kept in `events`.
    std::optional<boost::json::object>
    request(link::CommandCode command,
            const std::optional<boost::json::object>& payload = std::nullopt);

    // The next `size` bytes, unframed (for other protocols than halvo's), or
    // nothing when they did not all come in time.
    std::optional<std::string>
    receiveBytes(std::size_t size, std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Whether the daemon closes the connection within the time.
    bool closedByPeer(std::chrono::milliseconds timeout = std::chrono::seconds(5));

    void close();

    std::deque<Packet> events;

  private:
    bool readExactly(char* into, std::size_t size, std::chrono::steady_clock::time_point deadline);

    int fd_ = -1;
};

// halvod in a process of its own, on an ephemeral loopback port unless the
// arguments name one.  Its standard error goes to a file that the test can
// read at any time.  The machine's config file and rules folder stay out of
// it: "--config /dev/null" and "--rules-in-memory" are added unless the
// arguments name a config file or rules.
class DaemonProcess {
  public:
    // Nothing when the daemon did not announce its port in time (it may
    // have exited: see `runToExit`). `environment`: "NAME=value" entries
    // added to the test's.
    static std::unique_ptr<DaemonProcess> start(const std::vector<std::string>& arguments,
                                                const std::vector<std::string>& environment = {});
    ~DaemonProcess();

    std::uint16_t port() const { return port_; }
    pid_t pid() const { return pid_; }
    std::string errorOutput() const;

    void signal(int number);
    // Exit status, or 128 + signal when a signal ended it.
    int wait();

  private:
    DaemonProcess() = default;

    pid_t pid_ = -1;
    std::uint16_t port_ = 0;
    std::unique_ptr<TempDir> scratch_;
};

// The committed rules of the daemon on `port` (empty when it does not answer).
boost::json::array committedRules(std::uint16_t port);

// Runs halvod with the arguments to its end (killed at the options' bound),
// kept off the machine's config file and rules folder as `start` does.
RunResult runHalvod(const std::vector<std::string>& arguments, const RunOptions& options = {});

} // namespace halvo::testkit
