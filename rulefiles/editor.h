// The user's text editor, run on a file until it succeeds or the user gives up.
#pragma once

#include <string>

namespace halvo::rulefiles {

// Runs the editor named by VISUAL (used even when empty), else EDITOR, else
// "vi" on `path` and waits for it.  The name is one program looked up on
// PATH, started with the arguments {name, path}; no shell splits it.
// Returns 1 when the editor exited with status 0.  When it failed (or could
// not be started: the child prints "Cannot launch editor (<errno>).\n"),
// prints "Something went wrong with editor. Press any key to try one more
// time [y/n]: " on stdout and reads one character from stdin: 'n' returns 0,
// anything else (a newline or end of input too) runs the same editor again.
// Returns 0 after "Cannot create process.\n" or
// "Cannot get status of editor process\n" on stderr.
int runEditor(const std::string& path);

} // namespace halvo::rulefiles
