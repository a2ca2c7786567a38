#include "bench/sample_stats.h"

#include <algorithm>
#include <cmath>

namespace halvo::bench {

namespace {

// The value at fraction `at` (0..1) of the sorted samples.
double sortedQuantile(const std::vector<double>& sorted, double at) {
    const double position = at * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(std::floor(position));
    const std::size_t above = std::min(below + 1, sorted.size() - 1);
    const double weight = position - static_cast<double>(below);
    return sorted[below] + (sorted[above] - sorted[below]) * weight;
}

} // namespace

Summary summarize(std::vector<double> samples) {
    Summary summary;
    summary.count = samples.size();
    if (samples.empty()) {
        return summary;
    }
    std::sort(samples.begin(), samples.end());
    summary.median = sortedQuantile(samples, 0.5);
    summary.lowerQuartile = sortedQuantile(samples, 0.25);
    summary.upperQuartile = sortedQuantile(samples, 0.75);
    return summary;
}

double quantile(std::vector<double> samples, double at) {
    if (samples.empty()) {
        return 0;
    }
    std::sort(samples.begin(), samples.end());
    return sortedQuantile(samples, at);
}

std::vector<double> pairRatios(const std::vector<double>& contender,
                               const std::vector<double>& floor) {
    const std::size_t pairs = std::min(contender.size(), floor.size());
    std::vector<double> ratios;
    ratios.reserve(pairs);
    for (std::size_t i = 0; i < pairs; ++i) {
        ratios.push_back(contender[i] / floor[i]);
    }
    return ratios;
}

std::vector<double> scaled(const std::vector<double>& samples, double divisor) {
    std::vector<double> result;
    result.reserve(samples.size());
    for (double sample : samples) {
        result.push_back(sample / divisor);
    }
    return result;
}

} // namespace halvo::bench
