#include "cli/reply_status.h"

#include "cli/exit_status.h"
#include "util/json_fields.h"

#include <cstdio>
#include <cstdlib>

namespace halvo::cli {

ReplyStatus readStatus(const boost::json::object& reply) {
    const boost::json::value* status = util::findKey(reply, "status");
    if (status == nullptr) {
        return ReplyStatus::absent;
    }
    if (!status->is_string()) {
        return ReplyStatus::notText;
    }
    const boost::json::string& text = status->get_string();
    if (text == "ok") {
        return ReplyStatus::ok;
    }
    if (text == "notfound") {
        return ReplyStatus::notFound;
    }
    return ReplyStatus::other;
}

void exitInternalError() {
    std::fputs("Internal error.\n", stderr);
    std::exit(exitStatus::failure);
}

void printStatusAndExit(int status, const char* subject) {
    if (status == exitStatus::notFound) {
        std::fprintf(stderr, "%s has not been found.\n", subject);
    } else if (status == exitStatus::failure) {
        std::fputs("Internal error.\n", stderr);
    }
    std::exit(status);
}

} // namespace halvo::cli
