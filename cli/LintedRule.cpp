#include "LintedRule.h"

#include "host/parser/Logger.h"

namespace Corvane::Cli {

std::string languageNames(std::uint8_t languages) {
    static constexpr const char *kNames[] = {"DEFAULT", "CN", "JP", "KO", "RU", "TH"};
    std::string names;
    for (unsigned int each = Heuristic::DEFAULT; each < Heuristic::ALL; ++each) {
        if ((languages & 1U << each) != 0) {
            names += (names.empty() ? "" : ", ") + std::string(kNames[each]);
        }
    }
    return names;
}

std::string quoted(std::string_view text) {
    std::string result(1, '\'');
    result += Logger::printable(std::string(text));
    result += '\'';
    return result;
}

} // namespace Corvane::Cli
