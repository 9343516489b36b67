#include "Report.h"

#include <algorithm>
#include <string_view>

namespace Corvane::Cli {

bool MessageResult::isUndecided() const {
    constexpr std::string_view kBudget = "budget";
    const auto &limits = verdict.limits();
    return failure.empty() && !verdict.over() &&
           std::find(limits.begin(), limits.end(), kBudget) != limits.end();
}

} // namespace Corvane::Cli
