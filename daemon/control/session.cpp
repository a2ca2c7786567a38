#include "daemon/control/session.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <cstdio>
#include <variant>

namespace halvo::daemon {

namespace asio = boost::asio;
namespace json = boost::json;

Session::Session(asio::ip::tcp::socket socket, std::uint64_t id, SessionHost& host)
    : socket_(std::move(socket)), id_(id), host_(host) {}

void Session::start() {
    boost::system::error_code ignored;
    socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
    readHeader();
}

void Session::readHeader() {
    asio::async_read(
        socket_, asio::buffer(header_),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
            if (error) {
                self->close();
                return;
            }
            link::PacketHeader header = link::decodeHeader(self->header_.data());
            if (header.size == 0) {
                self->payload_.clear();
                self->deliver(header.command);
                return;
            }
            if (!link::isValidPayloadSize(header.size)) {
                std::fprintf(stderr, "halvod: client %llu: payload size %u refused\n",
                             static_cast<unsigned long long>(self->id_), header.size);
                self->close();
                return;
            }
            self->readPayload(header.command, header.size);
        });
}

void Session::readPayload(std::uint32_t command, std::uint32_t size) {
    payload_.clear();
    // The buffer grows as bytes arrive, so a header that announces 100 MiB
    // costs nothing until the bytes come.
    asio::async_read(
        socket_, asio::dynamic_buffer(payload_, size), asio::transfer_exactly(size),
        [self = shared_from_this(), command](const boost::system::error_code& error, std::size_t) {
            if (error) {
                self->close();
                return;
            }
            self->deliver(command);
        });
}

void Session::deliver(std::uint32_t command) {
    json::object request;
    if (!payload_.empty()) {
        link::DecodedPayload decoded = link::decodePayload(payload_);
        if (std::holds_alternative<link::PayloadError>(decoded)) {
            std::fprintf(stderr, "halvod: client %llu: payload is not a JSON object\n",
                         static_cast<unsigned long long>(id_));
            close();
            return;
        }
        request = std::get<json::object>(std::move(decoded));
    }
    payload_ = std::string();
    host_.packetReceived(*this, command, std::move(request));
    if (!closed_) {
        readHeader();
    }
}

void Session::send(std::string packet) {
    if (closed_) {
        return;
    }
    queuedBytes_ += packet.size();
    if (queuedBytes_ > kMaxQueuedBytes) {
        std::fprintf(stderr, "halvod: client %llu: too much unread output\n",
                     static_cast<unsigned long long>(id_));
        close();
        return;
    }
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
            self->queuedBytes_ -= self->outbox_.front().size();
            self->outbox_.pop_front();
            if (!self->outbox_.empty()) {
                self->writeNext();
            }
        });
}

void Session::close() {
    if (closed_) {
        return;
    }
    closed_ = true;
    boost::system::error_code ignored;
    socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    host_.sessionEnded(*this);
}

} // namespace halvo::daemon
