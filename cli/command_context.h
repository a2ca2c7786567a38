// A command's context: what its callbacks share: the client, the invocation, and the two
// slots that the rule commands fill while the link runs.
#pragma once

#include "cli/invocation.h"
#include "link/halvo_ipc_client.h"

#include <boost/json/array.hpp>
#include <memory>
#include <optional>
#include <string>

namespace halvo::cli {

struct RuleSlots {
    std::optional<boost::json::array> ruleSet;
    std::string editPath;
};

struct CommandContext {
    std::shared_ptr<link::QVHalvoIPCClient> client;
    Invocation invocation;
    std::shared_ptr<RuleSlots> slots = std::make_shared<RuleSlots>();

    // Installs the onConnected callback that sends the command's first
    // request. Callbacks hold the client weakly: the client owns them.
    template <typename Request> void onConnected(Request request) {
        std::weak_ptr<link::QVHalvoIPCClient> weak = client;
        client->setOnConnected([weak, request] {
            if (auto strong = weak.lock()) {
                request(*strong);
            }
        });
    }

    // Installs the reply handler, called with the client, the command code
    // and the payload.
    template <typename Handler> void onData(Handler handler) {
        std::weak_ptr<link::QVHalvoIPCClient> weak = client;
        client->setOnData([weak, handler](std::uint32_t code, const boost::json::object& reply) {
            if (auto strong = weak.lock()) {
                handler(*strong, code, reply);
            }
        });
    }
};

} // namespace halvo::cli
