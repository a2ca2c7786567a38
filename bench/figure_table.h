// The one table the benchmarks print: per figure the contender's and the
// floor's median with their interquartile range, the median of the ratios
// taken pair by pair, the target that ratio must not exceed, and whether it
// is met.
#pragma once

#include "bench/sample_stats.h"

#include <cstdio>
#include <string>
#include <vector>

namespace halvo::bench {

struct Figure {
    std::string id;   // "P1"
    std::string work; // what was measured, and by which measure
    std::string unit; // of the contender's and the floor's values
    Summary contender;
    Summary floor; // a single value (count 1) prints without a range
    Summary ratio;
    double target = 0; // the ratio's median may be at most this
};

bool isMet(const Figure& figure);

void printFigureTable(const std::vector<Figure>& figures, std::FILE* out);

} // namespace halvo::bench
