#include "bench/paired_runs.h"

namespace halvo::bench {

namespace {

std::optional<ChildRun> runChecked(ChildLauncher& launcher, const std::vector<std::string>& argv,
                                   const std::string& outputPath, std::string& error) {
    std::optional<ChildRun> run = launcher.run(argv, outputPath);
    if (!run) {
        error = "cannot start " + argv[0];
        return std::nullopt;
    }
    if (run->exitStatus != 0) {
        error = argv[0] + " ended with status " + std::to_string(run->exitStatus);
        return std::nullopt;
    }
    return run;
}

} // namespace

std::optional<PairedRuns> runAlternately(ChildLauncher& launcher,
                                         const std::vector<std::string>& contender,
                                         const std::vector<std::string>& floor, int pairs,
                                         const std::string& outputPath, std::string& error) {
    if (!runChecked(launcher, contender, outputPath, error) ||
        !runChecked(launcher, floor, outputPath, error)) {
        return std::nullopt;
    }
    PairedRuns runs;
    for (int pair = 0; pair < pairs; ++pair) {
        const bool contenderFirst = pair % 2 == 0;
        for (int turn = 0; turn < 2; ++turn) {
            const bool isContender = (turn == 0) == contenderFirst;
            std::optional<ChildRun> run =
                runChecked(launcher, isContender ? contender : floor, outputPath, error);
            if (!run) {
                return std::nullopt;
            }
            (isContender ? runs.contender : runs.floor).push_back(*run);
        }
    }
    return runs;
}

std::vector<double> field(const std::vector<ChildRun>& runs, double ChildRun::*member) {
    std::vector<double> values;
    values.reserve(runs.size());
    for (const ChildRun& run : runs) {
        values.push_back(run.*member);
    }
    return values;
}

} // namespace halvo::bench
