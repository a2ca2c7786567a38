#include "daemon/control/session.h"

#include "daemon/core/activity_log.h"
#include "daemon/platform/memory_release.h"
#include "link/bounded_memory.h"

#include <algorithm>
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
// A payload is read, and taken from the budget, this much at a time.
constexpr std::size_t kPayloadPiece = 256 * 1024;
// Payloads from this size on are parsed off the event loop: about a
// millisecond of parsing.
constexpr std::size_t kParseOffLoop = 64 * 1024;

} // namespace

bool MemoryBudget::tryTake(std::size_t bytes, std::uint64_t taker) {
    if (used_ + bytes > limit_ && used_ > 0) {
        if (turn_ && *turn_ != taker) {
            return false;
        }
        turn_ = taker;
    }
    used_ += bytes;
    return true;
}

void MemoryBudget::endTurn(std::uint64_t taker) {
    if (turn_ == taker) {
        turn_.reset();
    }
}

Session::Session(asio::ip::tcp::socket socket, std::uint64_t id, SessionHost& host,
                 const ClientLimits& limits, MemoryBudget& budget)
    : socket_(std::move(socket)), id_(id), host_(host), limits_(limits), budget_(budget),
      budgetRetry_(socket_.get_executor()), payloadDeadline_(socket_.get_executor()) {
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
            self->startPayload(header.command, header.size);
        });
}

void Session::startPayload(std::uint32_t command, std::uint32_t size) {
    payload_.clear();
    receivingPayload_ = true;
    payloadDeadline_.expires_after(limits_.payloadTimeout);
    payloadDeadline_.async_wait(
        [self = shared_from_this()](const boost::system::error_code& error) {
            if (!error && !self->closed_ && self->receivingPayload_) {
                self->close("payload not received in time");
            }
        });
    readPayloadPiece(command, size);
}

// Reads the next piece of the payload once the shared budget holds it: what
// the budget holds is what the buffer holds, however large the header said
// the payload would be.
void Session::readPayloadPiece(std::uint32_t command, std::uint32_t size) {
    const std::size_t received = payload_.size();
    if (received == size) {
        receivingPayload_ = false;
        payloadDeadline_.cancel();
        deliver(command);
        return;
    }
    const std::size_t wanted = received + std::min<std::size_t>(kPayloadPiece, size - received);
    if (wanted > payloadBudget_) {
        // Doubling keeps the copies few; the budget pays for the whole buffer.
        const std::size_t grown = std::min<std::size_t>(size, std::max(wanted, 2 * payloadBudget_));
        if (!budget_.tryTake(grown - payloadBudget_, id_)) {
            budgetRetry_.expires_after(kBudgetRetry);
            budgetRetry_.async_wait(
                [self = shared_from_this(), command, size](const boost::system::error_code& error) {
                    if (!error && !self->closed_) {
                        self->readPayloadPiece(command, size);
                    }
                });
            return;
        }
        payloadBudget_ = grown;
        payload_.reserve(grown);
    }
    asio::async_read(socket_, asio::dynamic_buffer(payload_, size),
                     asio::transfer_exactly(wanted - received),
                     [self = shared_from_this(), command,
                      size](const boost::system::error_code& error, std::size_t) {
                         if (self->closed_) {
                             return;
                         }
                         if (error) {
                             self->close();
                             return;
                         }
                         self->readPayloadPiece(command, size);
                     });
}

void Session::deliver(std::uint32_t command) {
    largeRequest_ = payload_.size() >= kLargeBuffer;
    if (payload_.size() < kParseOffLoop) {
        handOver(command,
                 payload_.empty()
                     ? link::DecodedPayload(json::object())
                     : link::decodePayload(
                           payload_, link::makeBoundedStorage(limits_.maxParseBytes).storage));
        return;
    }
    // The buffer goes with the job (and is freed there); the budget holds its
    // bytes until the parse is done.
    host_.worker().run(
        [payload = std::move(payload_), limit = limits_.maxParseBytes] {
            return link::decodePayload(payload, link::makeBoundedStorage(limit).storage);
        },
        [self = shared_from_this(), command](link::DecodedPayload decoded) {
            if (!self->closed_) {
                self->handOver(command, std::move(decoded));
            }
        });
    payload_ = std::string();
}

void Session::handOver(std::uint32_t command, link::DecodedPayload decoded) {
    payload_ = std::string();
    budget_.endTurn(id_);
    budget_.give(payloadBudget_);
    payloadBudget_ = 0;
    if (auto* problem = std::get_if<link::PayloadError>(&decoded)) {
        close(problem->description == "too large to parse" ? "payload too large to parse"
                                                           : "payload is not a JSON object");
        return;
    }
    awaitingReply_ = true;
    host_.packetReceived(*this, command, std::get<json::object>(std::move(decoded)));
}

void Session::readNextRequest() {
    if (largeRequest_) {
        largeRequest_ = false;
        host_.worker().post(returnFreeMemory);
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
    if (isReply && awaitingReply_) {
        awaitingReply_ = false;
        readNextRequest();
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
    budget_.endTurn(id_);
    budget_.give(queuedBytes_ + payloadBudget_);
    queuedBytes_ = 0;
    payloadBudget_ = 0;
    outbox_.clear();
    payload_ = std::string();
    budgetRetry_.cancel();
    payloadDeadline_.cancel();
    boost::system::error_code ignored;
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    host_.sessionEnded(*this);
    if (large) {
        host_.worker().post(returnFreeMemory);
    }
}

} // namespace halvo::daemon
