#include "LintReport.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string>
#include <tuple>

#include <nlohmann/json.hpp>

namespace Corvane::Cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kJsonVersion = 1;
// Lines of equal findings that are named.
constexpr std::size_t kMostLines = 10;

const char *s_levelName(Level level) {
    return level == Level::Error ? "error" : "warning";
}

auto s_kindOf(const Finding &finding) {
    return std::tie(finding.file, finding.level, finding.code, finding.text, finding.remedy);
}

// " (also at lines 4, 7)" for the lines of findings like the first.
std::string s_others(const std::vector<unsigned int> &lines) {
    if (lines.size() < 2) {
        return {};
    }
    std::string others = " (also at lines ";
    const std::size_t named = std::min(lines.size() - 1, kMostLines);
    for (std::size_t i = 1; i <= named; ++i) {
        others += (i > 1 ? ", " : "") + std::to_string(lines[i]);
    }
    if (named + 1 < lines.size()) {
        others += " and " + std::to_string(lines.size() - 1 - named) + " more";
    }
    return others + ')';
}

void s_writeLine(const Finding &finding, const std::string &others, std::ostream &out) {
    out << finding.file << ':' << finding.line << ':' << finding.column << ": "
        << s_levelName(finding.level) << ' ' << finding.code << ": " << finding.text << "; "
        << finding.remedy << others << '\n';
    if (!finding.excerpt.empty()) {
        out << "    " << finding.excerpt << "\n    " << std::string(finding.caret, ' ') << "^\n";
    }
}

// File names may be no UTF-8.
void s_dump(const Json &report, std::ostream &out) {
    out << report.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

// The path as a reference that may stand in a URI.
std::string s_uriOf(const std::string &path) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const std::string kept = "/-._~";
    constexpr unsigned int kBitsOfDigit = 4;
    constexpr unsigned int kLastDigit = 15;
    std::string uri;
    for (const char byte : path) {
        const auto code = static_cast<unsigned char>(byte);
        if ((code < 0x80 && std::isalnum(code) != 0) || kept.find(byte) != std::string::npos) {
            uri += byte;
        } else {
            uri += '%';
            uri += kDigits[code >> kBitsOfDigit];
            uri += kDigits[code & kLastDigit];
        }
    }
    return uri;
}

Json s_sarifResult(const Finding &finding) {
    return {{"ruleId", finding.code},
            {"level", s_levelName(finding.level)},
            {"message", {{"text", finding.text + "; " + finding.remedy}}},
            {"locations",
             {{{"physicalLocation",
                {{"artifactLocation", {{"uri", s_uriOf(finding.file)}}},
                 {"region", {{"startLine", finding.line}, {"startColumn", finding.column}}}}}}}}};
}

} // namespace

void writeLintText(const std::vector<Finding> &findings, LintLines lines, std::ostream &out) {
    std::map<decltype(s_kindOf(findings.front())), std::vector<unsigned int>> alike;
    if (lines == LintLines::Grouped) {
        for (const Finding &each : findings) {
            alike[s_kindOf(each)].push_back(each.line);
        }
    }
    for (const Finding &each : findings) {
        const auto found = alike.find(s_kindOf(each));
        if (found == alike.end()) {
            s_writeLine(each, {}, out);
        } else if (!found->second.empty()) {
            s_writeLine(each, s_others(found->second), out);
            found->second.clear();
        }
    }
}

void writeLintJson(const std::vector<Finding> &findings, std::ostream &out) {
    Json report = {{"version", kJsonVersion}, {"findings", Json::array()}};
    for (const Finding &each : findings) {
        report["findings"].push_back({{"file", each.file},
                                      {"line", each.line},
                                      {"column", each.column},
                                      {"level", s_levelName(each.level)},
                                      {"code", each.code},
                                      {"text", each.text},
                                      {"remedy", each.remedy}});
    }
    s_dump(report, out);
}

void writeLintSarif(const std::vector<Finding> &findings, std::ostream &out) {
    std::set<std::string> codes;
    Json results = Json::array();
    for (const Finding &each : findings) {
        codes.insert(each.code);
        results.push_back(s_sarifResult(each));
    }
    Json rules = Json::array();
    for (const std::string &code : codes) {
        rules.push_back({{"id", code}});
    }
    const Json driver = {{"name", "corvane-lint"}, {"rules", rules}};
    const Json run = {{"tool", {{"driver", driver}}}, {"results", results}};
    s_dump({{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
            {"version", "2.1.0"},
            {"runs", Json::array({run})}},
           out);
}

} // namespace Corvane::Cli
