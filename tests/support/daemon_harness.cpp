#include "tests/support/daemon_harness.h"

#include "tests/support/portable_fd.h"

#include <boost/json/parse.hpp>
#include <fcntl.h>
#include <poll.h>
#include <regex>
#include <signal.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#ifndef HALVOD_PATH
#error "HALVOD_PATH must name the halvod under test"
#endif

extern char** environ; // the POSIX way to reach the environment

namespace halvo::testkit {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono_literals;

void addSysfsEntry(const fs::path& folder, std::string_view attributes) {
    fs::create_directories(folder);
    std::istringstream entries{std::string(attributes)};
    for (std::string entry; std::getline(entries, entry, ';');) {
        const std::size_t equals = entry.find('=');
        writeFile(folder / entry.substr(0, equals), entry.substr(equals + 1) + "\n");
    }
}

bool eventually(const std::function<bool()>& check, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!check()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

TestClient::TestClient(std::uint16_t port, const char* source)
    : fd_(connectToLoopback(port, source)) {}

TestClient::~TestClient() {
    close();
}

void TestClient::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool TestClient::sendRaw(std::string_view bytes) {
    return sendAll(fd_, bytes);
}

bool TestClient::send(link::CommandCode command, const std::optional<json::object>& payload) {
    return sendRaw(payload ? link::encodePacket(link::code(command), *payload)
                           : link::encodePacket(link::code(command)));
}

bool TestClient::readExactly(char* into, std::size_t size,
                             std::chrono::steady_clock::time_point deadline) {
    return receiveExactly(fd_, into, size,
                          [deadline] { return std::chrono::steady_clock::now() >= deadline; });
}

std::optional<std::string> TestClient::receiveBytes(std::size_t size,
                                                    std::chrono::milliseconds timeout) {
    std::string bytes(size, '\0');
    if (fd_ < 0 || !readExactly(bytes.data(), size, std::chrono::steady_clock::now() + timeout)) {
        return std::nullopt;
    }
    return bytes;
}

std::optional<Packet> TestClient::receive(std::chrono::milliseconds timeout) {
    if (fd_ < 0) {
        return std::nullopt;
    }
    auto deadline = std::chrono::steady_clock::now() + timeout;
    link::HeaderBytes header{};
    if (!readExactly(reinterpret_cast<char*>(header.data()), header.size(), deadline)) {
        return std::nullopt;
    }
    link::PacketHeader decoded = link::decodeHeader(header.data());
    std::string payload(decoded.size, '\0');
    if (!readExactly(payload.data(), payload.size(), deadline)) {
        return std::nullopt;
    }
    std::error_code error;
    json::value document = json::parse(payload, error);
    if (error || !document.is_object()) {
        return std::nullopt;
    }
    return Packet{decoded.command, std::move(document.get_object())};
}

std::optional<json::object> TestClient::request(link::CommandCode command,
                                                const std::optional<json::object>& payload) {
    if (!send(command, payload)) {
        return std::nullopt;
    }
    while (auto packet = receive()) {
        if (packet->command == link::code(command)) {
            return std::move(packet->payload);
        }
        events.push_back(std::move(*packet));
    }
    return std::nullopt;
}

bool TestClient::closedByPeer(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    std::vector<char> unread(64 * 1024);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd wanted{fd_, POLLIN, 0};
        if (::poll(&wanted, 1, 50) > 0) {
            ssize_t got = ::recv(fd_, unread.data(), unread.size(), 0);
            if (got <= 0) {
                return true;
            }
        }
    }
    return false;
}

namespace {

bool namesOption(const std::vector<std::string>& arguments, std::string_view prefix) {
    return std::any_of(arguments.begin(), arguments.end(), [prefix](const std::string& argument) {
        return argument.starts_with(prefix);
    });
}

// The machine's own config file and rules folder stay out of tests.
std::vector<std::string> isolated(const std::vector<std::string>& arguments) {
    std::vector<std::string> result;
    if (!namesOption(arguments, "--config")) {
        result.insert(result.end(), {"--config", "/dev/null"});
    }
    if (!namesOption(arguments, "--rules")) {
        result.emplace_back("--rules-in-memory");
    }
    result.insert(result.end(), arguments.begin(), arguments.end());
    return result;
}

pid_t spawnHalvod(const std::vector<std::string>& arguments, const fs::path& errorFile,
                  std::vector<std::string> environment) {
    // Everything the child needs is made before the fork: a test process
    // may have threads, and the child may only make async-signal-safe calls.
    std::vector<std::string> argv = isolated(arguments);
    argv.insert(argv.begin(), HALVOD_PATH);
    std::vector<char*> pointers = execPointers(argv);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        environment.emplace_back(*entry);
    }
    std::vector<char*> environmentPointers = execPointers(environment);
    const std::string errorPath = errorFile.string();
    pid_t pid = ::fork();
    if (pid != 0) {
        return pid;
    }
    int err = ::open(errorPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(err, 2);
    ::execve(pointers[0], pointers.data(), environmentPointers.data());
    ::_exit(127);
}

// The port of the line "halvod: listening on ADDR:PORT".
std::optional<std::uint16_t> announcedPort(const std::string& output) {
    static const std::regex kLine("listening on .*:([0-9]+)\n");
    std::smatch port;
    if (!std::regex_search(output, port, kLine)) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(std::stoul(port[1]));
}

} // namespace

std::unique_ptr<DaemonProcess> DaemonProcess::start(const std::vector<std::string>& arguments,
                                                    const std::vector<std::string>& environment) {
    std::unique_ptr<DaemonProcess> daemon(new DaemonProcess());
    daemon->scratch_ = std::make_unique<TempDir>();
    std::vector<std::string> withListen = arguments;
    if (!namesOption(arguments, "--listen")) {
        withListen.insert(withListen.begin(), {"--listen", "127.0.0.1:0"});
    }
    daemon->pid_ = spawnHalvod(withListen, *daemon->scratch_ / "stderr", environment);
    const auto announcedOrExited = [&daemon] {
        daemon->port_ = announcedPort(daemon->errorOutput()).value_or(0);
        int status = 0;
        if (daemon->port_ == 0 && ::waitpid(daemon->pid_, &status, WNOHANG) == daemon->pid_) {
            daemon->pid_ = -1;
        }
        return daemon->port_ != 0 || daemon->pid_ < 0;
    };
    return eventually(announcedOrExited, 10s) && daemon->port_ != 0 ? std::move(daemon) : nullptr;
}

DaemonProcess::~DaemonProcess() {
    if (pid_ > 0) {
        signal(SIGKILL);
        wait();
    }
}

std::string DaemonProcess::errorOutput() const {
    return readFile(*scratch_ / "stderr");
}

void DaemonProcess::signal(int number) {
    if (pid_ > 0) {
        ::kill(pid_, number);
    }
}

int DaemonProcess::wait() {
    if (pid_ <= 0) {
        return -1;
    }
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

json::array committedRules(std::uint16_t port) {
    TestClient client(port);
    auto reply = client.request(link::CommandCode::ruleList);
    return reply ? (*reply)["rules"].as_array() : json::array();
}

RunResult runHalvod(const std::vector<std::string>& arguments, const RunOptions& options) {
    return runProgram(HALVOD_PATH, isolated(arguments), options);
}

} // namespace halvo::testkit
