// Why a rule failed to parse, and where in its logical line; or, for an
// accepted rule, what the parser ignored at its end.
//
// The parser stages fill one in only when the caller asks for it (a null
// pointer means "just fail"), so the plain loading path never pays for the
// diagnosis.  describeRuleFault() turns it into the sentence the rule checker
// shows to people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace halvo::rules {

enum class RuleFaultKind : std::uint8_t {
    None,
    NoWords,             // nothing but empty quotes, a lone backslash or blanks
    UnterminatedQuote,   // a double quote is still open at the end of the line
    InvalidUtf8,         // a word is not valid UTF-8
    UnknownWord,         // a word in clause position that is no clause word
    NegatedAction,       // "!share", "!block"
    SecondAction,        // a second "share" or "block"
    NoAction,            // the line ends without "share" or "block"
    NegatedQuick,        // "!quick"
    NegatedOverride,     // "!override-name", "!override-serial"
    DuplicateClause,     // a clause that may appear once appears again
    HostAfterRdesk,      // "host" once "rdesk" was given
    RdeskAfterHost,      // "rdesk" once a host list was given
    BadNameMode,         // "name" followed by neither "is" nor "contains"
    BadIdComponent,      // a hwid or class component that is not hexadecimal
    TooManyIdComponents, // more than three ":"-separated components
    // Not errors: what the end of an accepted line leaves unread.
    DroppedClause,   // a clause word whose value never came ("share host")
    DroppedNegation, // a "!" with no clause word after it
};

// True for the kinds that do not stop a rule from loading.
constexpr bool isNotice(RuleFaultKind kind) {
    return kind == RuleFaultKind::DroppedClause || kind == RuleFaultKind::DroppedNegation;
}

struct RuleFault {
    RuleFaultKind kind = RuleFaultKind::None;
    // Byte offset in the logical line of the word (or quote) to point at.
    std::size_t lineOffset = 0;
    // The clause word concerned ("host", "hwid", ...), when there is one.
    std::string clause;
    // The offending text (unknown word, mode, id component), when there is one.
    std::string subject;
};

// One sentence, without a final newline, e.g. `unknown clause word "Share"`.
std::string describeRuleFault(const RuleFault& fault);

} // namespace halvo::rules
