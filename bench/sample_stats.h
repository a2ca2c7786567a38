// Summaries of repeated measurements on a shared, noisy machine: medians
// and quartiles rather than means, and ratios taken pair by pair so that a
// burst of load hits both sides of a comparison alike.
#pragma once

#include <cstddef>
#include <vector>

namespace halvo::bench {

struct Summary {
    double median = 0;
    double lowerQuartile = 0;
    double upperQuartile = 0;
    std::size_t count = 0;
};

// Quartiles interpolated between neighbouring samples; all zero when
// there are no samples.
Summary summarize(std::vector<double> samples);

// The value at fraction `at` (0..1) of the samples, interpolated; 0 when
// there are none.
double quantile(std::vector<double> samples, double at);

// contender[i] / floor[i] for every pair both sides hold.
std::vector<double> pairRatios(const std::vector<double>& contender,
                               const std::vector<double>& floor);

// Every sample divided by the same divisor.
std::vector<double> scaled(const std::vector<double>& samples, double divisor);

} // namespace halvo::bench
