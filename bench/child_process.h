// Runs programs as child processes and measures each from the outside: the
// wall time from start to reaped, and the child's own CPU time and peak
// resident memory as the kernel accounts them.
//
// A new process starts as a copy of the one that forks it, and the kernel
// counts that copy in the new process's peak memory even after it has
// executed another program. The children are therefore started by a
// launcher process, forked while the caller is still small, so that the
// caller's later buffers (a 100 MiB reply, say) do not show up in the
// children's figures.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace halvo::bench {

struct ChildRun {
    double wallSeconds = 0;
    double cpuSeconds = 0; // user + system
    double peakMiB = 0;    // largest resident set
    int exitStatus = -1;   // -1 when the child did not exit normally;
                           // 127 when the program could not be executed
};

class ChildLauncher {
  public:
    // Forks the launcher. Call it early, while the calling process is small,
    // and before any thread starts. Ends the process when it cannot fork.
    ChildLauncher();
    // Stops the launcher and reaps it.
    ~ChildLauncher();
    ChildLauncher(const ChildLauncher&) = delete;
    ChildLauncher& operator=(const ChildLauncher&) = delete;

    // Runs `argv` (argv[0] a path) with standard output written to
    // `outputPath` (truncated) and standard error inherited. Nothing when
    // the launcher is gone or the child could not be forked.
    std::optional<ChildRun> run(const std::vector<std::string>& argv,
                                const std::string& outputPath);

  private:
    pid_t launcher_ = -1;
    int requests_ = -1; // our end: we write requests
    int replies_ = -1;  // our end: we read the measured runs
};

} // namespace halvo::bench
