// The exit statuses of the utility (the errno numbers ENOENT, EIO, ENOMEM
// and EINVAL, kept as the daemon's tooling expects them).
#pragma once

namespace halvo::cli::exitStatus {

inline constexpr int success = 0;
inline constexpr int notFound = 2;    // the daemon knows no such device or connection
inline constexpr int failure = 5;     // link failed, rules not loaded, daemon said no
inline constexpr int noClient = 12;   // the client object could not be made
inline constexpr int usageError = 22; // bad command line

} // namespace halvo::cli::exitStatus
