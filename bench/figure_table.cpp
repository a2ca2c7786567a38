#include "bench/figure_table.h"

#include <cmath>

namespace halvo::bench {

namespace {

// Three significant digits at most, and never a silly precision for big
// numbers: 0.00123, 1.23, 12.3, 123, 1234.
std::string number(double value) {
    char text[32];
    const double magnitude = std::fabs(value);
    const int decimals = magnitude >= 100 ? 0 : magnitude >= 10 ? 1 : magnitude >= 1 ? 2 : 3;
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string withRange(const Summary& summary, const std::string& unit) {
    std::string text = number(summary.median);
    if (!unit.empty()) {
        text += ' ';
        text += unit;
    }
    if (summary.count > 1) {
        text += " [" + number(summary.lowerQuartile) + "-" + number(summary.upperQuartile) + "]";
    }
    return text;
}

void printRow(std::FILE* out, const std::string& id, const std::string& work,
              const std::string& contender, const std::string& floor, const std::string& ratio,
              const std::string& target, const std::string& met) {
    std::fprintf(out, "%-4s %-46s %-27s %-27s %-19s %-7s %s\n", id.c_str(), work.c_str(),
                 contender.c_str(), floor.c_str(), ratio.c_str(), target.c_str(), met.c_str());
}

} // namespace

bool isMet(const Figure& figure) {
    return figure.ratio.count > 0 && figure.ratio.median <= figure.target;
}

void printFigureTable(const std::vector<Figure>& figures, std::FILE* out) {
    printRow(out, "#", "Work (measure)", "Contender median [IQR]", "Floor median [IQR]",
             "Ratio median [IQR]", "Target", "Met");
    for (const Figure& figure : figures) {
        printRow(out, figure.id, figure.work, withRange(figure.contender, figure.unit),
                 withRange(figure.floor, figure.unit), withRange(figure.ratio, ""),
                 "<= " + number(figure.target), isMet(figure) ? "yes" : "NO");
    }
}

} // namespace halvo::bench
