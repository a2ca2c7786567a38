// The per-repetition figures of a Google Benchmark run, read from its JSON
// report (--benchmark_format=json or --benchmark_out_format=json).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::bench {

// CPU time per iteration in milliseconds, by benchmark name, indexed by
// repetition. With random interleaving the k-th repetitions of two
// benchmarks ran close together, so they pair for a ratio. Aggregate rows
// (means, medians) are left out. Nothing when the text is not such a
// report.
using BenchmarkSamples = std::map<std::string, std::vector<double>>;
std::optional<BenchmarkSamples> readBenchmarkSamples(std::string_view report);

} // namespace halvo::bench
