// Exclusive creation of a new file under a name nobody can predict.
#pragma once

#include <string>
#include <sys/types.h>

namespace halvo::util {

// Replaces every trailing 'X' of `path` with a random letter or digit and
// creates that file exclusively (O_EXCL) with `mode` (less the umask), trying fresh names
// while the name is taken. Unlike glibc's mkstemp, which fills in exactly
// six X's, every X of the template counts, so "/tmp/tmp.XXXXXXXXXXXX" gets
// twelve random characters. Returns the open descriptor with `path` holding
// the name, or -1 with errno set (EINVAL for a template without X's).
int makeUniqueFile(std::string& path, mode_t mode = 0600);

} // namespace halvo::util
