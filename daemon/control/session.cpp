#include "daemon/control/session.h"

#include "daemon/core/activity_log.h"
#include "daemon/platform/memory_release.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <variant>

namespace halvo::daemon {

namespace asio = boost::asio;
namespace json = boost::json;

namespace {

// A payload that waits for the shared budget looks again after this long.
constexpr std::chrono::milliseconds kBudgetRetry{20};
// Buffers from this size on are worth handing back to the system when freed.
constexpr std::size_t kLargeBuffer = 1 * kMiB;

} // namespace

bool MemoryBudget::tryTake(std::size_t bytes) {
    // A request larger than the whole budget is still read, alone.
    if (used_ + bytes > limit_ && used_ > 0) {
        return false;
    }
    used_ += bytes;
    return true;
}

Session::Session(asio::ip::tcp::socket socket, std::uint64_t id, SessionHost& host,
                 const ClientLimits& limits, MemoryBudget& budget)
    : socket_(std::move(socket)), id_(id), host_(host), limits_(limits), budget_(budget),
      budgetRetry_(socket_.get_executor()) {
    boost::system::error_code ignored;
    peer_ = socket_.remote_endpoint(ignored);
}

Session::~Session() = default;

void Session::start() {
    boost::system::error_code ignored;
    socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
    readHeader();
}

void Session::readHeader() {
    asio::async_read(
        socket_, asio::buffer(header_),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
            if (self->closed_) {
                return;
            }
            if (error) {
                self->close();
                return;
            }
            self->lastHeard_ = std::chrono::steady_clock::now();
            link::PacketHeader header = link::decodeHeader(self->header_.data());
            if (header.size == 0) {
                self->payload_.clear();
                self->deliver(header.command);
                return;
            }
            if (!link::isValidPayloadSize(header.size)) {
                self->close("payload size refused");
                return;
            }
            self->waitForBudget(header.command, header.size);
        });
}

// Reads the payload once the shared budget holds its bytes.
void Session::waitForBudget(std::uint32_t command, std::uint32_t size) {
    if (budget_.tryTake(size)) {
        payloadBudget_ = size;
        readPayload(command, size);
        return;
    }
    budgetRetry_.expires_after(kBudgetRetry);
    budgetRetry_.async_wait(
        [self = shared_from_this(), command, size](const boost::system::error_code& error) {
            if (!error && !self->closed_) {
                self->waitForBudget(command, size);
            }
        });
}

void Session::readPayload(std::uint32_t command, std::uint32_t size) {
    // The budget holds the whole size: reserved at once, the buffer is never
    // copied as it grows, and its pages cost memory only as bytes arrive.
    payload_.clear();
    payload_.reserve(size);
    asio::async_read(
        socket_, asio::dynamic_buffer(payload_, size), asio::transfer_exactly(size),
        [self = shared_from_this(), command](const boost::system::error_code& error, std::size_t) {
            if (self->closed_) {
                return;
            }
            if (error) {
                self->close();
                return;
            }
            self->deliver(command);
        });
}

void Session::deliver(std::uint32_t command) {
    json::object request;
    const bool large = payload_.size() >= kLargeBuffer;
    if (!payload_.empty()) {
        link::DecodedPayload decoded = link::decodePayload(payload_, limits_.maxParseBytes);
        if (auto* problem = std::get_if<link::PayloadError>(&decoded)) {
            close(problem->description == "too large to parse" ? "payload too large to parse"
                                                               : "payload is not a JSON object");
            return;
        }
        request = std::get<json::object>(std::move(decoded));
    }
    payload_ = std::string();
    budget_.give(payloadBudget_);
    payloadBudget_ = 0;
    host_.packetReceived(*this, command, std::move(request));
    if (large) {
        returnFreeMemory();
    }
    if (closed_) {
        return;
    }
    if (queuedBytes_ > limits_.readPauseBytes) {
        readPaused_ = true;
    } else {
        readHeader();
    }
}

void Session::send(std::string packet, bool isReply) {
    if (closed_) {
        return;
    }
    const std::size_t size = packet.size();
    if (!isReply && queuedBytes_ > 0 && queuedBytes_ + size > limits_.maxUnreadBytes) {
        close("too much unread output");
        return;
    }
    // Over the shared budget, the host drops whoever holds the most.
    budget_.take(size);
    queuedBytes_ += size;
    outbox_.push_back(std::move(packet));
    if (outbox_.size() == 1) {
        writeNext();
    }
}

void Session::writeNext() {
    asio::async_write(
        socket_, asio::buffer(outbox_.front()),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
            if (self->closed_) {
                return;
            }
            if (error) {
                self->close();
                return;
            }
            const std::size_t sent = self->outbox_.front().size();
            self->queuedBytes_ -= sent;
            self->budget_.give(sent);
            self->outbox_.pop_front();
            if (!self->outbox_.empty()) {
                self->writeNext();
            }
            self->resumeReading();
        });
}

void Session::resumeReading() {
    if (readPaused_ && queuedBytes_ <= limits_.readPauseBytes) {
        readPaused_ = false;
        readHeader();
    }
}

void Session::log(const char* reason) const {
    logActivity(LogLevel::warning, std::string("client dropped: ") + reason,
                {{"HALVO_CLIENT", std::to_string(id_)},
                 {"HALVO_UID", uid_ ? std::to_string(*uid_) : std::string("none")},
                 {"HALVO_PEER", peer_.address().to_string() + ":" + std::to_string(peer_.port())}});
}

void Session::close(const char* reason) {
    if (closed_) {
        return;
    }
    if (reason != nullptr) {
        log(reason);
    }
    closed_ = true;
    const bool large = queuedBytes_ + payloadBudget_ >= kLargeBuffer;
    budget_.give(queuedBytes_ + payloadBudget_);
    queuedBytes_ = 0;
    payloadBudget_ = 0;
    outbox_.clear();
    payload_ = std::string();
    budgetRetry_.cancel();
    boost::system::error_code ignored;
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    host_.sessionEnded(*this);
    if (large) {
        returnFreeMemory();
    }
}

} // namespace halvo::daemon
