#include "daemon/usbip/tls_session.h"

#include "daemon/core/activity_log.h"
#include "daemon/core/peer_text.h"
#include "daemon/usbip/server.h"
#include "daemon/usbip/session.h"

#include <algorithm>

namespace halvo::daemon::usbip {

namespace asio = boost::asio;

namespace {

// Said once per run: every later import fails for the same reason.
bool toldKernelLacksTls = false;

} // namespace

TlsSession::TlsSession(Server& server, std::uint64_t id, asio::ip::tcp::socket socket,
                       RemoteHost host, const tls::Context& context)
    : server_(server), id_(id), socket_(std::move(socket)), deadline_(socket_.get_executor()),
      host_(std::move(host)) {
    boost::system::error_code error;
    socket_.native_non_blocking(true, error);
    auto connection = tls::Connection::create(context, socket_.native_handle());
    if (connection) {
        tls_.emplace(std::move(connection).value());
    } else {
        setUpProblem_ = connection.error();
    }
}

void TlsSession::start() {
    if (!tls_) {
        warn(setUpProblem_);
        finish();
        return;
    }
    deadline_.expires_after(server_.settings().requestTimeout);
    deadline_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        // A hand-over's time is not the host's; the reply after it is one
        // small record.
        if (!error && !self->finished_ && !self->handingOver()) {
            self->warn(std::string("USB/IP host dropped: ") + self->lateStep() + " in time");
            self->finish();
        }
    });
    drive([this] { return tls_->handshake(); }, [this] { shaken(); });
}

const char* TlsSession::lateStep() const {
    if (!shaken_) {
        return "no TLS handshake";
    }
    return parser_.request() ? "reply not taken" : "no request";
}

template <typename Attempt, typename Next> void TlsSession::drive(Attempt attempt, Next next) {
    auto progress = attempt();
    if (!progress) {
        warn(progress.error());
        finish();
        return;
    }
    if (*progress == tls::Progress::done) {
        next();
        return;
    }
    const auto wait = *progress == tls::Progress::wantRead ? asio::socket_base::wait_read
                                                           : asio::socket_base::wait_write;
    socket_.async_wait(
        wait, [self = shared_from_this(), attempt, next](const boost::system::error_code& error) {
            if (self->finished_) {
                return;
            }
            if (error) {
                self->finish();
                return;
            }
            self->drive(attempt, next);
        });
}

void TlsSession::shaken() {
    shaken_ = true;
    host_.names = tls_->peerNames();
    logActivity(LogLevel::info, "USB/IP host proved its certificate",
                {{log_field::kPeer, host_.logText()}});
    readMore();
}

void TlsSession::readMore() {
    auto got = std::make_shared<std::size_t>(0);
    drive(
        [this, got]() -> util::Expected<tls::Progress> {
            // Never more than the request lacks: after an import the rest
            // is the device's traffic, the kernel's to read.
            auto read = tls_->read(std::span(scratch_.data(), parser_.missing()));
            if (!read) {
                return util::Failure{read.error()};
            }
            *got = read->bytes;
            return read->progress;
        },
        [this, got] {
            parser_.feed(std::span(scratch_.data(), *got));
            if (!parser_.error().empty()) {
                warn("USB/IP request refused: " + parser_.error());
                finish();
            } else if (parser_.request()) {
                answer(*parser_.request());
            } else {
                readMore();
            }
        });
}

void TlsSession::answer(const Request& request) {
    if (request.code == OpCode::requestImport) {
        answerImport(request.busId);
        return;
    }
    reply(encodeDeviceList(server_.shares().visibleTo(host_)));
}

void TlsSession::answerImport(const std::string& busId) {
    const std::vector<Device> visible = server_.shares().visibleTo(host_);
    const bool mayImport = std::any_of(visible.begin(), visible.end(),
                                       [&](const Device& device) { return device.port == busId; });
    if (auto ready = tls_->readyForKernel(); !ready && mayImport) {
        if (!tls::kernelLacksTls(tls_->kernelState())) {
            warn("USB/IP import refused: " + ready.error());
        } else if (!toldKernelLacksTls) {
            toldKernelLacksTls = true;
            logActivity(LogLevel::error, "USB/IP imports over TLS are refused: " + ready.error() +
                                             "; devices are never shared in clear on the TLS port");
        }
        reply(encodeImportReply(Status::deviceError, nullptr));
        return;
    }
    // A device the host may not import is refused as absent by the share
    // table, whatever the kernel could have done.  The kernel has the keys;
    // once it has the socket too, the reply is its first record.
    handOverImport(server_, socket_.native_handle(), busId, host_,
                   [self = shared_from_this()](ImportAnswer answer) {
                       if (!self->finished_) {
                           self->reply(std::move(answer.reply));
                       }
                   });
}

void TlsSession::reply(std::vector<std::uint8_t> bytes) {
    out_ = std::move(bytes);
    written_ = 0;
    drive(
        [this]() -> util::Expected<tls::Progress> {
            auto wrote = tls_->write(std::span(out_).subspan(written_));
            if (!wrote) {
                return util::Failure{wrote.error()};
            }
            written_ += wrote->bytes;
            if (wrote->progress == tls::Progress::done && written_ < out_.size()) {
                return tls::Progress::wantWrite;
            }
            return wrote->progress;
        },
        [this] { finish(); });
}

void TlsSession::finish() {
    if (finished_) {
        return;
    }
    finished_ = true;
    deadline_.cancel();
    tls_.reset(); // no close_notify: the kernel may carry the session on
    boost::system::error_code ignored;
    socket_.close(ignored);
    server_.sessionEnded(id_);
}

void TlsSession::warn(const std::string& message) const {
    logActivity(LogLevel::warning, message, {{log_field::kPeer, host_.logText()}});
}

} // namespace halvo::daemon::usbip
