#include "bench/benchmark_samples.h"

#include <gtest/gtest.h>

namespace halvo::bench {
namespace {

TEST(BenchmarkSamples, ReadsEachRepetitionInMillisecondsAndSkipsAggregates) {
    const char* report = R"({"context": {}, "benchmarks": [
        {"run_name": "BM_A", "run_type": "iteration", "repetition_index": 1,
         "cpu_time": 2500000, "real_time": 9, "time_unit": "ns"},
        {"run_name": "BM_B", "run_type": "iteration", "repetition_index": 0,
         "cpu_time": 4, "real_time": 9, "time_unit": "ms"},
        {"run_name": "BM_A", "run_type": "iteration", "repetition_index": 0,
         "cpu_time": 1500, "real_time": 9, "time_unit": "us"},
        {"run_name": "BM_A", "run_type": "aggregate", "aggregate_name": "median",
         "cpu_time": 2, "real_time": 9, "time_unit": "ms"}]})";
    std::optional<BenchmarkSamples> samples = readBenchmarkSamples(report);
    ASSERT_TRUE(samples);
    EXPECT_EQ(samples->at("BM_A"), (std::vector<double>{1.5, 2.5}));
    EXPECT_EQ(samples->at("BM_B"), (std::vector<double>{4}));
}

TEST(BenchmarkSamples, RefusesWhatIsNoReport) {
    const char* reports[] = {
        "",
        "[]",
        R"({"benchmarks": 3})",
        R"({"benchmarks": [{"run_name": "BM_A", "repetition_index": 0, "time_unit": "ms"}]})",
        R"({"benchmarks": [{"run_name": "BM_A", "repetition_index": 0, "cpu_time": 1,
                            "time_unit": "fortnights"}]})",
    };
    for (const char* report : reports) {
        EXPECT_FALSE(readBenchmarkSamples(report)) << report;
    }
}

} // namespace
} // namespace halvo::bench
