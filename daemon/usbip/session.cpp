#include "daemon/usbip/session.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/usbip/server.h"

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

namespace halvo::daemon::usbip {

namespace asio = boost::asio;

Session::Session(Server& server, std::uint64_t id, asio::ip::tcp::socket socket, RemoteHost host)
    : server_(server), id_(id), socket_(std::move(socket)), deadline_(socket_.get_executor()),
      host_(std::move(host)) {}

void Session::start() {
    // The whole exchange, reply included: a host that does not read a long
    // device list would otherwise keep its place for good.
    deadline_.expires_after(server_.settings().requestTimeout);
    deadline_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        // A hand-over's time is not the host's; the reply after it is one
        // small write.
        if (!error && !self->finished_ && !self->handingOver()) {
            self->dropLate();
        }
    });
    readMore();
}

void Session::dropLate() {
    const bool answered = parser_.request().has_value();
    logActivity(LogLevel::warning,
                answered ? "USB/IP host dropped: reply not taken in time"
                         : "USB/IP host dropped: no request in time",
                {{log_field::kPeer, endpointText(host_.addr, host_.port)}});
    if (!handedOff_) {
        // A reset, so that the kernel does not keep the unsent reply either.
        boost::system::error_code ignored;
        socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    }
    finish();
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
                            {{log_field::kPeer, endpointText(self->host_.addr, self->host_.port)}});
                self->finish();
            } else if (self->parser_.request()) {
                self->answer(*self->parser_.request());
            } else {
                self->readMore();
            }
        });
}

void Session::answer(const Request& request) {
    if (request.code == OpCode::requestImport) {
        answerImport(request.busId);
        return;
    }
    reply(encodeDeviceList(server_.shares().visibleTo(host_.addr)));
}

void Session::answerImport(const std::string& busId) {
    handOverImport(server_, socket_.native_handle(), busId, host_,
                   [self = shared_from_this()](ImportAnswer answer) {
                       self->handedOff_ = answer.handedOff;
                       if (!self->finished_) {
                           self->reply(std::move(answer.reply));
                       }
                   });
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

} // namespace halvo::daemon::usbip
