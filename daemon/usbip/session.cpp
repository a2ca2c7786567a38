#include "daemon/usbip/session.h"

#include "daemon/core/activity_log.h"
#include "daemon/usbip/server.h"

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

namespace halvo::daemon::usbip {

namespace asio = boost::asio;

namespace {

// IPv4 hosts on a dual-stack socket show as ::ffff:a.b.c.d; rules name them
// by their IPv4 address.
std::string addressText(const asio::ip::address& address) {
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
    }
    return address.to_string();
}

} // namespace

Session::Session(Server& server, std::uint64_t id, asio::ip::tcp::socket socket)
    : server_(server), id_(id), socket_(std::move(socket)), deadline_(socket_.get_executor()) {
    boost::system::error_code error;
    auto peer = socket_.remote_endpoint(error);
    if (!error) {
        addr_ = addressText(peer.address());
        port_ = peer.port();
    }
}

void Session::start() {
    deadline_.expires_after(server_.settings().requestTimeout);
    deadline_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        if (!error) {
            logActivity(LogLevel::warning, "USB/IP host dropped: no request in time",
                        {{"HALVO_PEER", self->peerText()}});
            self->finish();
        }
    });
    readMore();
}

void Session::readMore() {
    asio::async_read(
        socket_, asio::buffer(scratch_.data(), parser_.missing()),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t size) {
            if (self->finished_) {
                return;
            }
            if (error) {
                self->finish();
                return;
            }
            self->parser_.feed(std::span(self->scratch_.data(), size));
            if (!self->parser_.error().empty()) {
                logActivity(LogLevel::warning, "USB/IP request refused: " + self->parser_.error(),
                            {{"HALVO_PEER", self->peerText()}});
                self->finish();
            } else if (self->parser_.request()) {
                self->answer(*self->parser_.request());
            } else {
                self->readMore();
            }
        });
}

void Session::answer(const Request& request) {
    deadline_.cancel();
    if (request.code == OpCode::requestImport) {
        answerImport(request.busId);
        return;
    }
    reply(encodeDeviceList(server_.shares().visibleTo(addr_)));
}

void Session::answerImport(const std::string& busId) {
    ImportResult result =
        server_.shares().import(busId, RemoteHost{addr_, port_}, socket_.native_handle());
    server_.publish(result.events);
    reply(encodeImportReply(wireStatus(result.status), result.device ? &*result.device : nullptr));
}

void Session::reply(std::vector<std::uint8_t> bytes) {
    out_ = std::move(bytes);
    asio::async_write(socket_, asio::buffer(out_),
                      [self = shared_from_this()](const boost::system::error_code&, std::size_t) {
                          self->finish();
                      });
}

void Session::finish() {
    if (finished_) {
        return;
    }
    finished_ = true;
    deadline_.cancel();
    boost::system::error_code ignored;
    socket_.close(ignored);
    server_.sessionEnded(id_);
}

std::string Session::peerText() const {
    return addr_ + ":" + std::to_string(port_);
}

} // namespace halvo::daemon::usbip
