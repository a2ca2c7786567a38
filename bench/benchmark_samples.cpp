#include "bench/benchmark_samples.h"

#include "util/json_fields.h"

#include <boost/json/parse.hpp>

namespace halvo::bench {

namespace json = boost::json;

namespace {

std::optional<double> millisecondsPerUnit(std::string_view unit) {
    if (unit == "ns") {
        return 1e-6;
    }
    if (unit == "us") {
        return 1e-3;
    }
    if (unit == "ms") {
        return 1.0;
    }
    if (unit == "s") {
        return 1e3;
    }
    return std::nullopt;
}

// Adds one repetition row; false when the row is malformed.
bool addRepetition(const json::object& row, BenchmarkSamples& samples) {
    const std::optional<std::string_view> name = util::getString(row, "run_name");
    const std::optional<std::string_view> unit = util::getString(row, "time_unit");
    const json::value* cpuTime = util::findKey(row, "cpu_time");
    const json::value* index = util::findKey(row, "repetition_index");
    if (!name || !unit || cpuTime == nullptr || !util::isNumber(*cpuTime) || index == nullptr ||
        !util::isNumber(*index)) {
        return false;
    }
    const std::optional<double> scale = millisecondsPerUnit(*unit);
    if (!scale) {
        return false;
    }
    const std::size_t repetition = util::toU32(*index);
    std::vector<double>& times = samples[std::string(*name)];
    if (times.size() <= repetition) {
        times.resize(repetition + 1);
    }
    times[repetition] = cpuTime->to_number<double>() * *scale;
    return true;
}

} // namespace

std::optional<BenchmarkSamples> readBenchmarkSamples(std::string_view report) {
    std::error_code error;
    json::value document = json::parse(report, error);
    const json::object* top = error ? nullptr : document.if_object();
    const json::array* rows = top != nullptr ? util::getArray(*top, "benchmarks") : nullptr;
    if (rows == nullptr) {
        return std::nullopt;
    }
    BenchmarkSamples samples;
    for (const json::value& element : *rows) {
        const json::object* row = element.if_object();
        if (row == nullptr) {
            return std::nullopt;
        }
        if (util::getString(*row, "run_type") == "aggregate") {
            continue;
        }
        if (!addRepetition(*row, samples)) {
            return std::nullopt;
        }
    }
    return samples;
}

} // namespace halvo::bench
