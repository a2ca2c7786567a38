#include "link/halvo_ipc_client.h"

#include "link/packet.h"
#include "util/utf8.h"

#include <boost/json/serialize.hpp>
#include <cstdio>
#include <cstring>
#include <string>

namespace halvo::link {

namespace json = boost::json;

std::shared_ptr<QVHalvoIPCClient> QVHalvoIPCClient::initWithLogger(std::shared_ptr<Logger> logger) {
    return initWithLogger(std::move(logger), kDaemonHost, kDaemonPort);
}

std::shared_ptr<QVHalvoIPCClient> QVHalvoIPCClient::initWithLogger(std::shared_ptr<Logger> logger,
                                                                   const char* host,
                                                                   std::uint16_t port) {
    auto client = std::make_shared<QVHalvoIPCClient>();
    if (!client->initClient(std::move(logger), host, port)) {
        return nullptr;
    }
    return client;
}

bool QVHalvoIPCClient::initClient(std::shared_ptr<Logger> clientLogger, const char* host,
                                  std::uint16_t port) {
    if (!initWithString(host, port, std::move(clientLogger))) {
        return false;
    }
    isProtoHeader = true;
    protoCmd = 19;
    setNextPacketSize(kHeaderSize);
    return true;
}

void QVHalvoIPCClient::stop() {
    onData_.set(nullptr);
    onConnected_.set(nullptr);
    onSent_.set(nullptr);
    onError_.set(nullptr);
    QVTCPConnection::stop();
}

void QVHalvoIPCClient::startProtocol() {
    QVTCPConnection::startProtocol();
    if (Callback callback = onConnected()) {
        callback();
    }
}

void QVHalvoIPCClient::stopProtocol(const char* reason) {
    std::fprintf(stderr, "\n%s\n", reason != nullptr ? reason : "(null)");
    QVTCPConnection::stopProtocol(nullptr);
    if (Callback callback = onError()) {
        callback();
    }
}

void QVHalvoIPCClient::sent() {
    if (Callback callback = onSent()) {
        callback();
    }
}

bool QVHalvoIPCClient::parseProtocolPacket(std::string_view piece) {
    return isProtoHeader ? parseHeader(piece) : parsePayload(piece);
}

bool QVHalvoIPCClient::parseHeader(std::string_view piece) {
    // A short final piece (the peer closed mid-header) is refused unread.
    if (piece.size() < kHeaderSize) {
        return false;
    }
    PacketHeader header = decodeHeader(reinterpret_cast<const unsigned char*>(piece.data()));
    protoCmd = static_cast<std::int32_t>(header.command);
    if (!isValidPayloadSize(header.size)) {
        log().info("<%p>: Invalid data size=%u in IPC packet", address(), header.size);
        return false;
    }
    payloadSize = header.size;
    setNextPacketSize(header.size);
    isProtoHeader = false;
    return true;
}

bool QVHalvoIPCClient::parsePayload(std::string_view piece) {
    if (piece.size() != payloadSize) {
        return false;
    }
    DecodedPayload decoded = decodePayload(piece);
    if (auto* failure = std::get_if<PayloadError>(&decoded)) {
        if (failure->kind == PayloadError::Kind::notJson) {
            log().error("<%p>: cannot parse JSON, %s", address(), failure->description.c_str());
        } else {
            log().error("<%p>: cannot parse JSON, got wrong top-level object", address());
        }
        return false;
    }
    // The callback runs before the client re-arms for the next header.
    if (DataCallback callback = onData()) {
        callback(static_cast<std::uint32_t>(protoCmd), std::get<json::object>(decoded));
    }
    setNextPacketSize(kHeaderSize);
    isProtoHeader = true;
    return true;
}

void QVHalvoIPCClient::sendPayloadText(std::string_view json, std::int32_t command) {
    std::string packet = encodePacket(static_cast<std::uint32_t>(command), json);
    sendData(packet.data(), packet.size());
}

void QVHalvoIPCClient::sendJSON(const json::object* payload, std::int32_t command) {
    if (payload == nullptr) {
        sendPayloadText({}, command);
        return;
    }
    std::string text;
    try {
        text = json::serialize(*payload);
    } catch (const std::exception&) {
        log().error("<%p>: cannot convert dictionary to JSON", address());
        return;
    }
    sendPayloadText(text, command);
}

void QVHalvoIPCClient::getDeviceList() {
    sendJSON(nullptr, code(CommandCode::deviceList));
}

void QVHalvoIPCClient::getConnectionList() {
    sendJSON(nullptr, code(CommandCode::connectionList));
}

void QVHalvoIPCClient::requestKillConnectionWith(const char* host, const std::uint16_t* port) {
    if (host == nullptr || !util::isValidUtf8(host)) {
        log().error("<%p>: cannot allocate object for request", address());
        return;
    }
    json::object request;
    request["host"] = host;
    if (port != nullptr) {
        request["port"] = static_cast<std::uint64_t>(*port);
    }
    sendJSON(&request, code(CommandCode::killConnection));
}

void QVHalvoIPCClient::requestKillConnectionWithPID(std::uint32_t pid) {
    json::object request;
    request["pid"] = static_cast<std::uint64_t>(pid);
    sendJSON(&request, code(CommandCode::killConnection));
}

void QVHalvoIPCClient::requestDisconnectDevice(std::uint32_t deviceId) {
    json::object request;
    request["id"] = static_cast<std::uint64_t>(deviceId);
    sendJSON(&request, code(CommandCode::disconnectDevice));
}

void QVHalvoIPCClient::startRuleTransaction() {
    sendJSON(nullptr, code(CommandCode::startRuleTransaction));
}

void QVHalvoIPCClient::getRuleList() {
    sendJSON(nullptr, code(CommandCode::ruleList));
}

bool QVHalvoIPCClient::loadRuleList(const json::array* rules) {
    if (rules == nullptr) {
        json::object empty;
        sendJSON(&empty, code(CommandCode::loadRuleList));
        return true;
    }
    // Serialised straight into the payload: a large rule set is not copied
    // into a request object first.
    std::string text;
    try {
        text = "{\"rules\":" + json::serialize(*rules) + "}";
    } catch (const std::exception&) {
        log().error("<%p>: cannot convert dictionary to JSON", address());
        return true;
    }
    sendPayloadText(text, code(CommandCode::loadRuleList));
    return true;
}

bool QVHalvoIPCClient::insertRuleForDevice(std::uint32_t deviceId, std::string_view action) {
    if (!util::isValidUtf8(action)) {
        log().error("<%p>: cannot allocate objects for request", address());
        return false;
    }
    json::object request;
    request["id"] = static_cast<std::uint64_t>(deviceId);
    request["action"] = action;
    sendJSON(&request, code(CommandCode::insertRuleForDevice));
    return true;
}

bool QVHalvoIPCClient::testRuleForDevice(std::uint32_t deviceId, std::string_view type,
                                         const char* host) {
    json::object request;
    request["id"] = static_cast<std::uint64_t>(deviceId);
    request["type"] = type;
    if (type == "net") {
        if (host == nullptr || !util::isValidUtf8(host)) {
            log().error("<%p>: cannot allocate string for request", address());
            return false;
        }
        request["addr"] = host;
    }
    sendJSON(&request, code(CommandCode::testRule));
    return true;
}

void QVHalvoIPCClient::endRuleTransaction(bool commit) {
    json::object request;
    request["action"] = commit ? "commit" : "rollback";
    sendJSON(&request, code(CommandCode::endRuleTransaction));
}

} // namespace halvo::link
