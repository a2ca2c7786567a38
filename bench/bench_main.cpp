// Runs every benchmark of the utility against its floor and prints one
// table (see README.md for what each figure means and how it is taken).
//
// Usage: halvo_bench [--small-pairs=N] [--large-pairs=N] [--repetitions=N]
// Exit status: 0 when every target is met, 2 when one is missed, 1 when the
// figures could not be taken.
#include "bench/benchmark_samples.h"
#include "bench/device_reply.h"
#include "bench/figure_table.h"
#include "bench/paired_runs.h"
#include "bench/reply_peer.h"
#include "link/packet.h"
#include "tests/support/files.h"
#include "tests/support/private_network.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

using namespace halvo::bench;

namespace {

constexpr std::uint16_t kDaemonPort = 32999;
constexpr std::size_t kSmallListDevices = 20;
constexpr double kMiB = 1024.0 * 1024.0;

struct Options {
    int smallPairs = 201;
    int largePairs = 7;
    int repetitions = 9;
};

// Ends the benchmarks; main() reports it, after the scratch files are gone.
struct BenchFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void fail(const std::string& message) {
    throw BenchFailure(message);
}

void progress(const char* message) {
    std::fprintf(stderr, "halvo_bench: %s\n", message);
}

int positiveNumber(const char* argument, const char* text) {
    char* end = nullptr;
    long value = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value < 1 || value > 100000) {
        fail(std::string("not a positive count: ") + argument);
    }
    return static_cast<int>(value);
}

Options readOptions(int argc, char** argv) {
    struct Flag {
        const char* prefix;
        int Options::*count;
    };
    static constexpr Flag kFlags[] = {{"--small-pairs=", &Options::smallPairs},
                                      {"--large-pairs=", &Options::largePairs},
                                      {"--repetitions=", &Options::repetitions}};
    Options options;
    for (int i = 1; i < argc; ++i) {
        const Flag* match =
            std::find_if(std::begin(kFlags), std::end(kFlags), [&](const Flag& flag) {
                return std::strncmp(argv[i], flag.prefix, std::strlen(flag.prefix)) == 0;
            });
        if (match == std::end(kFlags)) {
            fail(std::string("unknown argument: ") + argv[i] +
                 "\nusage: halvo_bench [--small-pairs=N] [--large-pairs=N] [--repetitions=N]");
        }
        options.*(match->count) = positiveNumber(argv[i], argv[i] + std::strlen(match->prefix));
    }
    return options;
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!out.flush()) {
        fail("cannot write " + path);
    }
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs the program once, its output kept, and checks what it printed.
void checkOutput(ChildLauncher& launcher, const std::vector<std::string>& argv,
                 const std::string& outputPath,
                 bool (*isExpected)(const std::string& output, std::size_t expectation),
                 std::size_t expectation) {
    std::optional<ChildRun> run = launcher.run(argv, outputPath);
    if (!run || run->exitStatus != 0) {
        fail("check run of " + argv[0] + " failed");
    }
    if (!isExpected(readFile(outputPath), expectation)) {
        fail(argv[0] + " printed something else than expected (kept in " + outputPath + ")");
    }
}

bool isTableOf(const std::string& output, std::size_t devices) {
    return static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n')) == devices + 1;
}

bool isNumberLine(const std::string& output, std::size_t number) {
    return output == std::to_string(number) + "\n";
}

PairedRuns measure(ChildLauncher& launcher, const std::vector<std::string>& contender,
                   const std::vector<std::string>& floor, int pairs) {
    std::string error;
    std::optional<PairedRuns> runs =
        runAlternately(launcher, contender, floor, pairs, "/dev/null", error);
    if (!runs) {
        fail(error);
    }
    return *runs;
}

Figure pairedFigure(std::string id, std::string work, std::string unit,
                    const std::vector<double>& contender, const std::vector<double>& floor,
                    double target) {
    return Figure{std::move(id),
                  std::move(work),
                  std::move(unit),
                  summarize(contender),
                  summarize(floor),
                  summarize(pairRatios(contender, floor)),
                  target};
}

std::vector<double> inMilliseconds(const std::vector<double>& seconds) {
    return scaled(seconds, 1e-3);
}

BenchmarkSamples runRulesBench(ChildLauncher& launcher, int repetitions,
                               const std::string& reportPath) {
    const std::vector<std::string> argv = {
        RULES_BENCH_PATH,
        "--benchmark_repetitions=" + std::to_string(repetitions),
        "--benchmark_enable_random_interleaving=true",
        "--benchmark_min_time=0.2",
        "--benchmark_out_format=json",
        "--benchmark_out=" + reportPath,
    };
    std::optional<ChildRun> run = launcher.run(argv, "/dev/null");
    if (!run || run->exitStatus != 0) {
        fail("rules_bench failed");
    }
    std::optional<BenchmarkSamples> samples = readBenchmarkSamples(readFile(reportPath));
    if (!samples) {
        fail("cannot read the report of rules_bench in " + reportPath);
    }
    return *samples;
}

const std::vector<double>& samplesOf(const BenchmarkSamples& samples, const std::string& name) {
    auto found = samples.find(name);
    if (found == samples.end()) {
        fail("rules_bench reported no " + name);
    }
    return found->second;
}

void printNotes(const Options& options, const DeviceListPayload& large, const PairedRuns& small,
                const PairedRuns& big, std::FILE* out) {
    const auto cpuRatio = [](const PairedRuns& runs) {
        return summarize(pairRatios(field(runs.contender, &ChildRun::cpuSeconds),
                                    field(runs.floor, &ChildRun::cpuSeconds)))
            .median;
    };
    std::fprintf(out,
                 "\nP1, P5: %d alternating pairs against the same local peer; P2: %d pairs, "
                 "%.1f MiB payload of %zu devices,\n"
                 "        the floor reads it from a file (its peak memory: %.1f MiB).\n"
                 "P3, P4: CPU time per pass in one Google Benchmark run, %d repetitions "
                 "interleaved at random, k-th paired.\n"
                 "Whole-process CPU time (user+system) ratios, for comparison: P1 %.2f, P2 %.2f.\n",
                 options.smallPairs, options.largePairs,
                 static_cast<double>(large.json.size()) / kMiB, large.devices,
                 summarize(field(big.floor, &ChildRun::peakMiB)).median, options.repetitions,
                 cpuRatio(small), cpuRatio(big));
}

int runBenchmarks(const Options& options) {
    // Before any thread starts: a namespace cannot be entered later.
    const bool privateNetwork = halvo::testkit::isolateDaemonPort();
    // Now, while this process is small and has one thread.
    ChildLauncher launcher;
    progress(privateNetwork ? "serving on 127.0.0.1:32999 in a private network namespace"
                            : "serving on the machine's own 127.0.0.1:32999");
    std::string error;
    std::unique_ptr<ReplyPeer> peer = ReplyPeer::listen(kDaemonPort, error);
    if (!peer) {
        fail(error + "\n(is a daemon or a test peer using the port? run where user namespaces "
                     "are allowed, or stop it)");
    }

    const halvo::testkit::TempDir scratch; // the files the runs share
    const std::string checkOutputPath = (scratch / "output.txt").string();
    const std::vector<std::string> devList = {HALVOCTL_PATH, "dev", "list"};

    progress("P1, P5: dev list with 20 devices against the C floor client");
    const DeviceListPayload small = deviceListPayload(kSmallListDevices);
    peer->setReply(small.json);
    const std::vector<std::string> floorClient = {FLOOR_CLIENT_PATH};
    checkOutput(launcher, devList, checkOutputPath, isTableOf, small.devices);
    checkOutput(launcher, floorClient, checkOutputPath, isNumberLine, small.json.size());
    const PairedRuns smallRuns = measure(launcher, devList, floorClient, options.smallPairs);

    progress("P2: dev list with a 100 MiB reply against Boost.JSON parsing it");
    const DeviceListPayload large = deviceListPayloadUpTo(halvo::link::kMaxPayloadSize);
    const std::string payloadPath = (scratch / "devices.json").string();
    writeFile(payloadPath, large.json);
    peer->setReply(large.json);
    const std::vector<std::string> parseFloor = {JSON_PARSE_FLOOR_PATH, payloadPath};
    checkOutput(launcher, devList, checkOutputPath, isTableOf, large.devices);
    checkOutput(launcher, parseFloor, checkOutputPath, isNumberLine, large.devices);
    const PairedRuns largeRuns = measure(launcher, devList, parseFloor, options.largePairs);
    const double payloadMiB = static_cast<double>(large.json.size()) / kMiB;

    progress("P3, P4: rule parser and printer against Boost.JSON (rules_bench)");
    const BenchmarkSamples rules =
        runRulesBench(launcher, options.repetitions, (scratch / "rules.json").string());

    if (peer->failedExchanges() != 0) {
        fail("the peer saw requests other than the device list");
    }

    const Summary payloadSize{payloadMiB, payloadMiB, payloadMiB, 1};
    const std::vector<Figure> figures = {
        pairedFigure("P1", "dev list, 20 devices: wall time", "ms",
                     inMilliseconds(field(smallRuns.contender, &ChildRun::wallSeconds)),
                     inMilliseconds(field(smallRuns.floor, &ChildRun::wallSeconds)), 1.2),
        pairedFigure("P2", "dev list, 100 MiB reply: wall time", "ms",
                     inMilliseconds(field(largeRuns.contender, &ChildRun::wallSeconds)),
                     inMilliseconds(field(largeRuns.floor, &ChildRun::wallSeconds)), 1.3),
        Figure{"P2", "dev list, 100 MiB reply: peak memory/payload", "MiB",
               summarize(field(largeRuns.contender, &ChildRun::peakMiB)), payloadSize,
               summarize(scaled(field(largeRuns.contender, &ChildRun::peakMiB), payloadMiB)), 5.0},
        pairedFigure("P3", "rule_parser_run vs JSON parse: CPU time", "ms",
                     samplesOf(rules, "BM_ParseRuleText"), samplesOf(rules, "BM_ParseJson"), 1.0),
        pairedFigure("P4", "outputRuleList vs JSON serialise: CPU time", "ms",
                     samplesOf(rules, "BM_PrintRuleList"), samplesOf(rules, "BM_SerializeJson"),
                     1.0),
        pairedFigure("P5", "dev list, 20 devices: peak memory", "MiB",
                     field(smallRuns.contender, &ChildRun::peakMiB),
                     field(smallRuns.floor, &ChildRun::peakMiB), 1.2),
    };
    printFigureTable(figures, stdout);
    printNotes(options, large, smallRuns, largeRuns, stdout);
    const bool allMet = std::all_of(figures.begin(), figures.end(), isMet);
    return allMet ? 0 : 2;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return runBenchmarks(readOptions(argc, argv));
    } catch (const BenchFailure& failure) {
        std::fprintf(stderr, "halvo_bench: %s\n", failure.what());
        return 1;
    }
}
