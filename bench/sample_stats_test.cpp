#include "bench/sample_stats.h"

#include <gtest/gtest.h>

namespace halvo::bench {
namespace {

TEST(SampleStats, QuartilesInterpolateBetweenSortedSamples) {
    struct Case {
        std::vector<double> samples;
        double lower, median, upper;
    } cases[] = {
        {{7}, 7, 7, 7},
        {{4, 1, 3, 2}, 1.75, 2.5, 3.25},
        {{5, 1, 4, 2, 3}, 2, 3, 4},
        // One wild outlier moves the median by nothing.
        {{1, 1, 1, 1, 1000}, 1, 1, 1},
        // No samples summarize as zero.
        {{}, 0, 0, 0},
    };
    for (const Case& c : cases) {
        Summary summary = summarize(c.samples);
        EXPECT_DOUBLE_EQ(summary.lowerQuartile, c.lower);
        EXPECT_DOUBLE_EQ(summary.median, c.median);
        EXPECT_DOUBLE_EQ(summary.upperQuartile, c.upper);
        EXPECT_EQ(summary.count, c.samples.size());
    }
}

TEST(SampleStats, RatiosPairByIndexAndStopAtTheShorterSide) {
    EXPECT_EQ(pairRatios({2, 9, 8}, {1, 3}), (std::vector<double>{2, 3}));
    EXPECT_EQ(scaled({2, 9}, 2), (std::vector<double>{1, 4.5}));
}

} // namespace
} // namespace halvo::bench
