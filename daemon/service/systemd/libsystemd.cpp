// The service manager through libsystemd.
#include "daemon/service/service_manager.h"

#include <cstdlib>
#include <ctime>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>
#include <vector>

namespace halvo::daemon::service_manager {

namespace {

void notify(const std::string& state) {
    sd_notify(0, state.c_str());
}

// A status line is one line: the protocol separates assignments by line feeds.
std::string statusLine(std::string_view status) {
    std::string line = "STATUS=";
    for (char c : status) {
        line.push_back(c == '\n' ? ' ' : c);
    }
    return line;
}

std::uint64_t monotonicMicroseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000u +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000u;
}

int journalPriority(LogLevel level) {
    switch (level) {
    case LogLevel::error:
        return 3;
    case LogLevel::warning:
        return 4;
    case LogLevel::notice:
        return 5;
    case LogLevel::info:
        break;
    }
    return 6;
}

class JournalSink final : public LogSink {
  public:
    void write(LogLevel level, std::string_view message,
               std::span<const LogField> fields) override {
        std::vector<std::string> entries;
        entries.reserve(fields.size() + 3);
        entries.push_back("MESSAGE=" + std::string(message));
        entries.push_back("PRIORITY=" + std::to_string(journalPriority(level)));
        entries.emplace_back("SYSLOG_IDENTIFIER=halvod");
        for (const LogField& field : fields) {
            entries.push_back(std::string(field.name) + "=" + field.value);
        }
        std::vector<iovec> vectors;
        vectors.reserve(entries.size());
        for (std::string& entry : entries) {
            vectors.push_back(iovec{entry.data(), entry.size()});
        }
        sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size()));
    }
};

// Whether JOURNAL_STREAM names standard error's own device and inode, as
// systemd sets it for a service whose output goes to the journal; a variable
// inherited by a program whose output goes elsewhere does not count.
bool standardErrorIsJournal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || ::fstat(2, &status) != 0) {
        return false;
    }
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

// Puts the socket where its name says; what is wrong otherwise.
util::Expected<void> place(int fd, const std::string& name, ActivatedSockets& sockets) {
    std::optional<int>* slot = nullptr;
    // Without FileDescriptorName a socket is named after its unit, and
    // systemd-socket-activate passes no names at all.
    if (name == "control" || name == "unknown" || name == "halvod.socket") {
        slot = &sockets.control;
    } else if (name == "usbip") {
        slot = &sockets.usbip;
    } else if (name == "usbip-tls") {
        slot = &sockets.usbipTls;
    } else {
        return util::Failure{"socket activation: a socket named \"" + name +
                             "\", where the daemon takes \"control\", \"usbip\" and \"usbip-tls\""};
    }
    if (*slot) {
        return util::Failure{"socket activation: two sockets named \"" + name + "\""};
    }
    if (sd_is_socket_inet(fd, AF_UNSPEC, SOCK_STREAM, 1, 0) <= 0) {
        return util::Failure{"socket activation: the socket named \"" + name +
                             "\" is no listening TCP socket"};
    }
    *slot = fd;
    return {};
}

} // namespace

void notifyReady(std::string_view status) {
    notify("READY=1\n" + statusLine(status));
}

void notifyStatus(std::string_view status) {
    notify(statusLine(status));
}

void notifyReloading() {
    notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(monotonicMicroseconds()) + "\n" +
           statusLine("reloading"));
}

void notifyStopping() {
    notify("STOPPING=1\n" + statusLine("stopping"));
}

util::Expected<ActivatedSockets> takeActivatedSockets() {
    char** names = nullptr;
    const int count = sd_listen_fds_with_names(1, &names);
    if (count < 0) {
        return util::Failure{"socket activation: cannot take the passed sockets"};
    }
    std::vector<std::string> named;
    for (int index = 0; index < count; ++index) {
        named.emplace_back(names != nullptr ? names[index] : "unknown");
        if (names != nullptr) {
            std::free(names[index]);
        }
    }
    std::free(names);
    ActivatedSockets sockets;
    for (int index = 0; index < count; ++index) {
        if (auto placed =
                place(SD_LISTEN_FDS_START + index, named[static_cast<std::size_t>(index)], sockets);
            !placed) {
            return util::Failure{placed.error()};
        }
    }
    return sockets;
}

std::shared_ptr<LogSink> journalSinkIfConnected() {
    if (!standardErrorIsJournal()) {
        return nullptr;
    }
    return std::make_shared<JournalSink>();
}

} // namespace halvo::daemon::service_manager
