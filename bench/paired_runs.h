// Two programs run alternately, pair after pair, so that whatever else the
// machine is doing at a moment weighs on both of a pair alike.
#pragma once

#include "bench/child_process.h"

#include <optional>
#include <string>
#include <vector>

namespace halvo::bench {

struct PairedRuns {
    std::vector<ChildRun> contender;
    std::vector<ChildRun> floor;
};

// Runs both once unmeasured (to warm the page cache and the peer), then
// `pairs` measured pairs, the contender first in even pairs and the floor
// first in odd ones so that neither always follows the other. Standard
// output of every run goes to `outputPath`. Nothing, with the reason in
// `error`, as soon as a run cannot start or exits with a status other
// than 0.
std::optional<PairedRuns> runAlternately(ChildLauncher& launcher,
                                         const std::vector<std::string>& contender,
                                         const std::vector<std::string>& floor, int pairs,
                                         const std::string& outputPath, std::string& error);

// One field of every run, in order.
std::vector<double> field(const std::vector<ChildRun>& runs, double ChildRun::*member);

} // namespace halvo::bench
