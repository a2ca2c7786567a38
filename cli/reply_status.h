// The "status" of a daemon reply and the messages that report it.
#pragma once

#include <boost/json/object.hpp>

namespace halvo::cli {

enum class ReplyStatus {
    absent,   // no "status" key
    notText,  // "status" is not a string
    ok,       // "ok"
    notFound, // "notfound"
    other,    // any other text
};

ReplyStatus readStatus(const boost::json::object& reply);

// The strict check of rule transactions: "status" present, text, "ok".
inline bool isStrictOk(const boost::json::object& reply) {
    return readStatus(reply) == ReplyStatus::ok;
}

// Writes "Internal error.\n" to stderr and exits with status 5.
[[noreturn]] void exitInternalError();

// Writes the message for `status` to stderr ("<subject> has not been
// found.\n" for 2, "Internal error.\n" for 5, nothing otherwise) and exits
// with it.
[[noreturn]] void printStatusAndExit(int status, const char* subject);

} // namespace halvo::cli
