#include "CurveTable.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "report/Numbers.h"

namespace Corvane::Cli {

using Corpus::CurvePoint;

void TextTable::write(std::ostream &out, std::size_t numbers) const {
    std::vector<std::size_t> widths(rows_.front().size());
    for (const std::vector<std::string> &row : rows_) {
        for (std::size_t each = 0; each < row.size(); ++each) {
            widths[each] = std::max(widths[each], row[each].size());
        }
    }
    for (const std::vector<std::string> &row : rows_) {
        std::string line;
        for (std::size_t each = 0; each < row.size(); ++each) {
            const std::string blanks(widths[each] - row[each].size(), ' ');
            line += "  ";
            line += each < numbers ? blanks + row[each] : row[each] + blanks;
        }
        out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
    }
}

std::string shareOf(std::size_t part, std::size_t whole) {
    constexpr double kPercent = 100.0;
    std::ostringstream text;
    text << std::fixed << std::setprecision(2)
         << (whole == 0 ? 0.0 : kPercent * static_cast<double>(part) / static_cast<double>(whole))
         << " %";
    return text.str();
}

void writeThreshold(const std::vector<CurvePoint> &curve, double threshold, std::size_t toBeOver,
                    std::size_t toBeUnder, std::ostream &out) {
    const auto found =
        std::find_if(curve.begin(), curve.end(), [threshold](const CurvePoint &point) {
            return static_cast<float>(point.threshold) == static_cast<float>(threshold);
        });
    const CurvePoint point = found != curve.end() ? *found : CurvePoint();
    out << "at the threshold of " << Reporting::shortest(static_cast<float>(threshold)) << ": "
        << point.falsePositives << " of " << toBeUnder << " false positives ("
        << shareOf(point.falsePositives, toBeUnder) << "), " << point.misses << " of " << toBeOver
        << " missed (" << shareOf(point.misses, toBeOver) << ")\n";
}

void writeCurve(const std::vector<CurvePoint> &curve, std::size_t toBeOver, std::size_t toBeUnder,
                std::ostream &out) {
    TextTable table({"false positives", "missed", "threshold"});
    const CurvePoint *last = nullptr;
    for (const double most : {0.0, 0.001, 0.005, 0.01, 0.02, 0.05}) {
        const auto found = std::find_if(curve.begin(), curve.end(), [&](const CurvePoint &point) {
            return static_cast<double>(point.falsePositives) <=
                   most * static_cast<double>(toBeUnder);
        });
        if (found != curve.end() && &*found != last) {
            last = &*found;
            table.add({shareOf(found->falsePositives, toBeUnder), shareOf(found->misses, toBeOver),
                       Reporting::shortest(static_cast<float>(found->threshold))});
        }
    }
    constexpr std::size_t kNumbers = 3;
    table.write(out, kNumbers);
}

} // namespace Corvane::Cli
