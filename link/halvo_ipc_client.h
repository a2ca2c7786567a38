// The utility's link to the daemon: connects to 127.0.0.1:32999, cuts the
// byte stream into IPC packets, hands each payload as a JSON object with
// its command code to onData, and offers one operation per request.
//
// All callbacks run on the transport's event loop, one at a time.
#pragma once

#include "link/tcp_common_connection.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>

namespace halvo::link {

inline constexpr const char* kDaemonHost = "127.0.0.1";
inline constexpr std::uint16_t kDaemonPort = 32999;

class QVHalvoIPCClient final : public QVTCPConnection {
  public:
    using Callback = std::function<void()>;
    using DataCallback = std::function<void(std::uint32_t command, const boost::json::object&)>;

    // A client for the daemon's endpoint, awaiting its first header; null
    // when the transport cannot be made.
    static std::shared_ptr<QVHalvoIPCClient> initWithLogger(std::shared_ptr<Logger> logger);
    // The same for another endpoint (tests).
    static std::shared_ptr<QVHalvoIPCClient> initWithLogger(std::shared_ptr<Logger> logger,
                                                            const char* host, std::uint16_t port);

    // Clears the callbacks, then cancels the connection.
    void stop() override;
    void startProtocol() override;
    // Writes "\n<reason>\n" to stderr, then calls onError.
    void stopProtocol(const char* reason) override;
    void sent() override;
    bool parseProtocolPacket(std::string_view piece) override;

    // One packet: the header and, when `payload` is given, its compact JSON.
    void sendJSON(const boost::json::object* payload, std::int32_t command);

    void getDeviceList();
    void getConnectionList();
    // `port` null: no port in the request.
    void requestKillConnectionWith(const char* host, const std::uint16_t* port);
    void requestKillConnectionWithPID(std::uint32_t pid);
    void requestDisconnectDevice(std::uint32_t deviceId);
    void startRuleTransaction();
    void getRuleList();
    // `rules` null sends an empty object. The results say only that the
    // request was built and handed on.
    bool loadRuleList(const boost::json::array* rules);
    bool insertRuleForDevice(std::uint32_t deviceId, std::string_view action);
    // "addr" is sent only for the type "net".
    bool testRuleForDevice(std::uint32_t deviceId, std::string_view type, const char* host);
    void endRuleTransaction(bool commit);

    Callback onConnected() const { return onConnected_.get(); }
    void setOnConnected(Callback callback) { onConnected_.set(std::move(callback)); }
    DataCallback onData() const { return onData_.get(); }
    void setOnData(DataCallback callback) { onData_.set(std::move(callback)); }
    Callback onSent() const { return onSent_.get(); }
    void setOnSent(Callback callback) { onSent_.set(std::move(callback)); }
    Callback onError() const { return onError_.get(); }
    void setOnError(Callback callback) { onError_.set(std::move(callback)); }

  private:
    bool initClient(std::shared_ptr<Logger> logger, const char* host, std::uint16_t port);
    bool parseHeader(std::string_view piece);
    bool parsePayload(std::string_view piece);
    void sendPayloadText(std::string_view json, std::int32_t command);
    void* address() { return this; }

    bool isProtoHeader = true;
    std::int32_t protoCmd = 19;
    std::uint32_t payloadSize = 0;

    // A callback property: the setter stores its own copy, the getter
    // returns one, each under a lock of its own, so that a callback may be
    // read on the event loop while the owner replaces it.
    template <typename Function> class AtomicCallback {
      public:
        Function get() const {
            std::lock_guard lock(mutex_);
            return function_;
        }
        void set(Function function) {
            std::lock_guard lock(mutex_);
            function_ = std::move(function);
        }

      private:
        mutable std::mutex mutex_;
        Function function_;
    };

    AtomicCallback<Callback> onConnected_;
    AtomicCallback<DataCallback> onData_;
    AtomicCallback<Callback> onSent_;
    AtomicCallback<Callback> onError_;
};

} // namespace halvo::link
