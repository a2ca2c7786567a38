#include "tests/support/daemon_harness.h"

#include "tests/support/portable_fd.h"

#include <arpa/inet.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#ifndef HALVOD_PATH
#error "HALVOD_PATH must name the halvod under test"
#endif

namespace halvo::testkit {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono_literals;

void addSysfsEntry(const fs::path& folder, const std::map<std::string, std::string>& attributes) {
    fs::create_directories(folder);
    for (const auto& [name, value] : attributes) {
        writeFile(folder / name, value + "\n");
    }
}

TestClient::TestClient(std::uint16_t port) {
    fd_ = openSocket(AF_INET, SOCK_STREAM);
    if (fd_ < 0) {
        return;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close();
        return;
    }
    int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

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
    while (!bytes.empty()) {
        ssize_t sent = sendQuietly(fd_, bytes.data(), bytes.size());
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool TestClient::send(link::CommandCode command) {
    return sendRaw(link::encodePacket(link::code(command)));
}

bool TestClient::send(link::CommandCode command, const json::object& payload) {
    return sendRaw(link::encodePacket(link::code(command), payload));
}

bool TestClient::readExactly(char* into, std::size_t size,
                             std::chrono::steady_clock::time_point deadline) {
    while (size > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd wanted{fd_, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&wanted, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        ssize_t got = ::recv(fd_, into, size, 0);
        if (got <= 0) {
            return false;
        }
        into += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
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

std::optional<json::object> TestClient::awaitReply(link::CommandCode command) {
    while (auto packet = receive()) {
        if (packet->command == link::code(command)) {
            return std::move(packet->payload);
        }
        events.push_back(std::move(*packet));
    }
    return std::nullopt;
}

std::optional<json::object> TestClient::request(link::CommandCode command) {
    if (!send(command)) {
        return std::nullopt;
    }
    return awaitReply(command);
}

std::optional<json::object> TestClient::request(link::CommandCode command,
                                                const json::object& payload) {
    if (!send(command, payload)) {
        return std::nullopt;
    }
    return awaitReply(command);
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

pid_t spawnHalvod(const std::vector<std::string>& arguments, const fs::path& errorFile) {
    // Everything the child needs is made before the fork: a test process
    // may have threads, and the child may only make async-signal-safe calls.
    std::vector<std::string> argv{HALVOD_PATH};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& argument : argv) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
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
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
}

int decodeStatus(int status) {
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return 128 + WTERMSIG(status);
}

bool namesListenAddress(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument.starts_with("--listen")) {
            return true;
        }
    }
    return false;
}

// The port of the line "halvod: listening on ADDR:PORT".
std::optional<std::uint16_t> announcedPort(const std::string& output) {
    const std::string kMarker = "listening on ";
    std::size_t start = output.find(kMarker);
    std::size_t end = output.find('\n', start);
    if (start == std::string::npos || end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = output.substr(start, end - start);
    return static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
}

} // namespace

std::unique_ptr<DaemonProcess> DaemonProcess::start(const std::vector<std::string>& arguments) {
    std::unique_ptr<DaemonProcess> daemon(new DaemonProcess());
    daemon->scratch_ = std::make_unique<TempDir>();
    std::vector<std::string> withListen = arguments;
    if (!namesListenAddress(arguments)) {
        withListen.insert(withListen.begin(), {"--listen", "127.0.0.1:0"});
    }
    daemon->pid_ = spawnHalvod(withListen, *daemon->scratch_ / "stderr");
    auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
        if (auto port = announcedPort(daemon->errorOutput())) {
            daemon->port_ = *port;
            return daemon;
        }
        int status = 0;
        if (::waitpid(daemon->pid_, &status, WNOHANG) == daemon->pid_) {
            daemon->pid_ = -1;
            return nullptr;
        }
        std::this_thread::sleep_for(10ms);
    }
    return nullptr;
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
    return decodeStatus(status);
}

ExitResult runToExit(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout) {
    TempDir scratch;
    pid_t pid = spawnHalvod(arguments, scratch / "stderr");
    auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(10ms);
    }
    return ExitResult{decodeStatus(status), readFile(scratch / "stderr")};
}

} // namespace halvo::testkit
