// The commands of halvoctl, one row each: the words that name it, the options
// it reads, the check of its operand and the function that installs its
// callbacks. Reading the command line and dispatching are both driven by
// this one table.
#pragma once

#include "cli/invocation.h"

#include <optional>
#include <span>

namespace halvo::cli {

struct CommandContext;

// Takes the first operand (null when there is none) and the `-f` text (null
// when not given) into the invocation, or says what is missing.
using OperandCheck = std::optional<UsageError> (*)(Invocation& invocation, const char* operand,
                                                   const char* rulePath);
// Installs the command's onConnected and onData callbacks on the context's client.
using CallbackInstaller = void (*)(CommandContext& context);

struct CommandRow {
    const char* group; // the first word
    const char* word;  // the sub-command word; null: the group takes none and ignores what follows
    bool bare;         // what the group means when no sub-command follows
    const char* options; // getopt's option string; null: no option parsing
    OperandCheck checkOperand;
    CallbackInstaller install; // null: the dispatch reports "not implemented"
};

// In the order the words are matched: the groups as the help text lists them.
std::span<const CommandRow> commandTable();

} // namespace halvo::cli
