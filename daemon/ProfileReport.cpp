#include "ProfileReport.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <iomanip>
#include <locale>
#include <sstream>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "Text.h"

namespace Corvane::Milter {

namespace {

using Json = nlohmann::ordered_json;
using std::chrono::nanoseconds;

struct Row {
    const corvane::Rule *rule = nullptr;
    corvane::RuleCost cost;
};

std::uint64_t s_key(const corvane::RuleCost &cost, ProfileOrder order) {
    switch (order) {
    case ProfileOrder::Tries:
        return cost.tries;
    case ProfileOrder::Bytes:
        return cost.bytes;
    case ProfileOrder::Matches:
        return cost.matches;
    case ProfileOrder::StepLimited:
        return cost.stepLimited;
    default:
        return static_cast<std::uint64_t>(cost.time.count());
    }
}

struct Table {
    std::vector<Row> rows;
    // Rules that have cost anything, those not shown included, and what they took.
    std::size_t rules = 0;
    nanoseconds tries{0};
};

Table s_table(const corvane::RuleProfile &profile, const ProfileQuery &query) {
    Table table;
    const std::vector<corvane::Rule> &rules = profile.rules().rules();
    const std::vector<corvane::RuleCost> costs = profile.costs();
    for (std::size_t each = 0; each < rules.size(); ++each) {
        table.tries += costs[each].time;
        if (costs[each].tries > 0 || costs[each].matches > 0 || costs[each].time.count() > 0) {
            table.rows.push_back({&rules[each], costs[each]});
        }
    }
    table.rules = table.rows.size();
    const auto isBefore = [&query](const Row &left, const Row &right) {
        const auto key = [&query](const Row &row) {
            return std::tuple(s_key(row.cost, query.order), row.cost.time.count());
        };
        return key(left) != key(right) ? key(left) > key(right)
                                       : left.rule->name < right.rule->name;
    };
    const std::size_t shown = std::min(query.top, table.rows.size());
    std::partial_sort(table.rows.begin(), table.rows.begin() + static_cast<std::ptrdiff_t>(shown),
                      table.rows.end(), isBefore);
    table.rows.resize(shown);
    return table;
}

double s_micros(nanoseconds time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

std::string s_place(const corvane::Rule &rule) {
    return escaped(rule.file, Charset::Utf8) + ':' + std::to_string(rule.line);
}

std::string s_tenths(double number) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(1) << number;
    return text.str();
}

// Flush right, with a blank behind it.
std::string s_column(std::string text, std::size_t width) {
    text.insert(0, width - std::min(width, text.size()), ' ');
    return text + ' ';
}

std::string s_line(const std::array<std::string, 7> &cells) {
    constexpr std::array<std::size_t, 7> kWidths = {12, 6, 10, 12, 9, 7, 8};
    std::string text;
    for (std::size_t each = 0; each < cells.size(); ++each) {
        text += s_column(cells.at(each), kWidths.at(each));
    }
    return text;
}

std::string s_summary(const Profiler::View &view, const Table &table) {
    const corvane::RuleProfile &profile = *view.profile;
    const double messages = std::max(static_cast<double>(profile.messages()), 1.0);
    std::string text =
        "generation " + profile.rules().generation() + ", " + std::to_string(profile.messages()) +
        " messages profiled, " +
        (view.every == 0 ? "off now\n" : "one in " + std::to_string(view.every) + "\n");
    text += "a message: " + s_tenths(s_micros(profile.readingTime()) / messages) + " us to read, " +
            s_tenths(s_micros(profile.scanningTime()) / messages) + " us to try the rules, " +
            s_tenths(s_micros(table.tries) / messages) + " us of that for single ones\n";
    return text + "rules: " + std::to_string(table.rules) + " of " +
           std::to_string(profile.rules().size()) + " were tried or tripped\n";
}

} // namespace

std::optional<ProfileOrder> profileOrderOf(std::string_view word) {
    constexpr std::array<std::string_view, 5> kWords = {"time", "tries", "bytes", "matches",
                                                        "step-limited"};
    const auto *found = std::find(kWords.begin(), kWords.end(), word);
    return found == kWords.end() ? std::nullopt
                                 : std::optional(static_cast<ProfileOrder>(found - kWords.begin()));
}

std::string profileJson(const Profiler::View &view, const ProfileQuery &query) {
    Json json;
    json["every"] = view.every;
    json["rules"] = Json::array();
    if (view.profile == nullptr) {
        return json.dump() + '\n';
    }
    const corvane::RuleProfile &profile = *view.profile;
    const Table table = s_table(profile, query);
    json["generation"] = profile.rules().generation();
    json["messages"] = profile.messages();
    json["reading_us"] = s_micros(profile.readingTime());
    json["scanning_us"] = s_micros(profile.scanningTime());
    json["tries_us"] = s_micros(table.tries);
    for (const Row &row : table.rows) {
        Json rule;
        rule["name"] = escaped(row.rule->name, Charset::Utf8);
        rule["kind"] = corvane::kindName(row.rule->kind);
        rule["file"] = escaped(row.rule->file, Charset::Utf8);
        rule["line"] = row.rule->line;
        rule["time_us"] = s_micros(row.cost.time);
        rule["tries"] = row.cost.tries;
        rule["bytes"] = row.cost.bytes;
        rule["matches"] = row.cost.matches;
        rule["step_limited"] = row.cost.stepLimited;
        json["rules"].push_back(std::move(rule));
    }
    return json.dump() + '\n';
}

std::string profileText(const Profiler::View &view, const ProfileQuery &query) {
    if (view.profile == nullptr) {
        return "nothing was profiled; begin with: corvane ctl profile --every 100\n";
    }
    const Table table = s_table(*view.profile, query);
    std::string text = s_summary(view, table);
    if (table.rows.empty()) {
        return text;
    }
    constexpr double kPercent = 100;
    constexpr double kLeastMicros = 1e-3;
    const double all = std::max(s_micros(table.tries), kLeastMicros);
    text +=
        s_line({"time_us", "share", "tries", "bytes", "matches", "limited", "kind"}) + " rule\n";
    for (const Row &row : table.rows) {
        const corvane::RuleCost &cost = row.cost;
        text += s_line({s_tenths(s_micros(cost.time)),
                        s_tenths(kPercent * s_micros(cost.time) / all) + '%',
                        std::to_string(cost.tries), std::to_string(cost.bytes),
                        std::to_string(cost.matches), std::to_string(cost.stepLimited),
                        std::string(corvane::kindName(row.rule->kind))}) +
                ' ' + escaped(row.rule->name, Charset::Utf8) + "  " + s_place(*row.rule) + '\n';
    }
    return text;
}

} // namespace Corvane::Milter
