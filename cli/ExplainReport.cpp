#include "ExplainReport.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/parser/Logger.h"
#include "report/JsonBytes.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

using corvane::ExplainedText;
using corvane::Reason;
using corvane::RuleExplanation;
using corvane::RuleKind;
// As the objects of a scan: floats, so that a score is written with no more digits than it needs.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

constexpr const char *kIndent = "    ";
// Bytes shown around what is marked, and of what is marked.
constexpr std::size_t kAround = 40;
constexpr std::size_t kMostMarked = 160;

bool s_isInCharacter(char byte) {
    constexpr unsigned int kMask = 0xC0;
    constexpr unsigned int kContinues = 0x80;
    return (static_cast<unsigned char>(byte) & kMask) == kContinues;
}

// Without the parts of characters that a cut leaves at its ends.
std::string s_cut(const std::string &text, std::size_t from, std::size_t to) {
    while (from > 0 && from < to && s_isInCharacter(text[from])) {
        ++from;
    }
    while (to < text.size() && to > from && s_isInCharacter(text[to])) {
        --to;
    }
    return Logger::printable(text.substr(from, to - from));
}

std::size_t s_columns(const std::string &text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !s_isInCharacter(byte); }));
}

std::string s_where(const ExplainedText &text) {
    const std::string number = std::to_string(text.number);
    if (text.source == "uri") {
        return "URI " + number + " from " + text.uriSource;
    }
    if (text.source == "header" || text.source == "sender" || text.source == "whole-header") {
        const std::string name = "header " + number + ", " + Logger::printable(text.header);
        return text.form.empty() || text.form == "value" ? name
                                                         : name + ':' + std::string(text.form);
    }
    const std::string line =
        (text.source == "line" ? "message" : std::string(text.source)) + ", line " + number;
    return text.piece > 1 ? line + ", piece " + std::to_string(text.piece) : line;
}

// Bodies and lines have places in the whole of them, too.
bool s_hasOffset(const ExplainedText &text) {
    return text.form.empty() && text.uriSource.empty() && text.header.empty();
}

std::string s_why(const RuleExplanation &told) {
    switch (told.reason) {
    case Reason::NotLoaded:
        return "no rule of this name is loaded";
    case Reason::OtherLanguage:
        return "it is for another language";
    case Reason::SwitchedOff:
        return "it is switched off";
    case Reason::NeverTrips:
        return "it never trips";
    case Reason::BeyondPercent:
        return "it is not among the rules loaded first that --percent has tried";
    case Reason::NotReached:
        return "the scan stopped before, over the threshold";
    case Reason::BudgetEnded:
        return "the budget ended before it was tried";
    case Reason::NameTaken:
        return "another rule of its name had tripped";
    case Reason::HeaderAbsent:
        return "no header that it is tried on is there";
    case Reason::NoText:
        return "the message has nothing of what it is tried on";
    case Reason::BeyondLimit:
        return "it matches behind the part that is read";
    case Reason::PatternGivenUp:
        return "its pattern was given up: it takes too many steps";
    case Reason::Excluded:
        return "each header matches what it must not match";
    case Reason::NoMatch:
        return "its pattern matches nowhere";
    case Reason::ExpressionFalse:
        return "its expression is false";
    default:
        return "it tripped";
    }
}

void s_setText(Json &json, const ExplainedText &text) {
    json["source"] = text.source;
    json["number"] = text.number;
    if (!text.header.empty()) {
        Reporting::setBytes(json, "header", text.header);
    }
    if (!text.form.empty()) {
        json["form"] = text.form;
    }
    if (!text.uriSource.empty()) {
        json["from"] = text.uriSource;
    }
    if (s_hasOffset(text)) {
        json["piece"] = text.piece;
        json["offset"] = text.offset;
    }
    Reporting::setBytes(json, "text", text.text);
    if (text.hasRange) {
        json["start"] = text.start;
        json["end"] = text.end;
        Reporting::setBytes(json, "matched", text.text.substr(text.start, text.end - text.start));
    }
}

void s_setRule(Json &json, const corvane::Rule &rule) {
    json["kind"] = corvane::kindName(rule.kind);
    Reporting::setBytes(json, "file", rule.file);
    json["line"] = rule.line;
    json["languages"] = rule.languages;
    json["score"] = rule.score;
    Reporting::setBytes(json, "description", rule.description);
}

Json s_json(const RuleExplanation &told) {
    Json json;
    Reporting::setBytes(json, "name", told.name);
    json["reason"] = corvane::reasonName(told.reason);
    if (!told.detail.empty()) {
        Reporting::setBytes(json, "detail", told.detail);
    }
    if (told.rule.has_value()) {
        s_setRule(json, *told.rule);
    }
    if (told.reason == Reason::Tripped) {
        json["total"] = told.total;
    }
    if (told.where.has_value()) {
        s_setText(json["where"], *told.where);
    }
    if (told.nearest.has_value()) {
        Json &nearest = json["nearest"];
        s_setText(nearest, told.nearest->text);
        Reporting::setBytes(nearest, "pattern", told.nearest->pattern);
        nearest["item"] = told.nearest->item;
        nearest["itemLength"] = told.nearest->itemLength;
        nearest["isComplete"] = told.nearest->isComplete;
    }
    for (const corvane::MetaStep &step : told.steps) {
        Json each;
        each["depth"] = step.depth;
        each["operation"] = step.operation;
        Reporting::setBytes(each, "operand", step.operand);
        each["value"] = step.value;
        json["steps"].push_back(each);
    }
    return json;
}

std::string s_json(const RawMessage &raw, const corvane::Explanation &why, float threshold) {
    Json json;
    json["version"] = 1;
    Reporting::setBytes(json, "file", raw.file);
    if (raw.index > 0) {
        json["index"] = raw.index;
    }
    json["score"] = Reporting::shownTotal(why.verdict, threshold);
    json["total"] = why.verdict.score();
    json["threshold"] = threshold;
    json["over"] = why.verdict.over();
    json["stopped"] = why.verdict.stopped();
    json["language"] = why.verdict.language();
    json["because"] = why.languageReason;
    json["limits"] = why.verdict.limits();
    json["tripped"] = Json::array();
    for (const RuleExplanation &told : why.tripped) {
        json["tripped"].push_back(s_json(told));
    }
    json["untripped"] = Json::array();
    for (const RuleExplanation &told : why.untripped) {
        json["untripped"].push_back(s_json(told));
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace

void ExplainReport::message(const RawMessage &raw, const corvane::Explanation &why) {
    if (isJson_) {
        out_ << s_json(raw, why, threshold_);
    } else {
        text(raw, why);
    }
    isFirst_ = false;
}

void ExplainReport::text(const RawMessage &raw, const corvane::Explanation &why) {
    out_ << (isFirst_ ? "" : "\n") << Logger::printable(MessageSource::label(raw.file, raw.index))
         << '\n'
         << "language: " << why.verdict.language() << " (" << why.languageReason << ")\n";
    for (const std::string_view limit : why.verdict.limits()) {
        out_ << "cut at: " << limit << '\n';
    }
    sum_ = 0.0;
    for (const RuleExplanation &told : why.tripped) {
        sum_ += std::stod(Reporting::shortest(told.rule->score));
        rule(told);
    }
    out_ << "\ntotal " << Reporting::shortest(Reporting::shownTotal(why.verdict, threshold_))
         << (why.verdict.over() ? ", over " : ", not over ") << Reporting::shortest(threshold_)
         << (why.verdict.stopped() ? "; the scan stopped there\n" : "\n");
    for (const RuleExplanation &told : why.untripped) {
        rule(told);
    }
}

void ExplainReport::rule(const RuleExplanation &told) {
    out_ << '\n';
    if (told.rule.has_value()) {
        out_ << Logger::printable(told.rule->file) << ':' << told.rule->line << ": "
             << corvane::kindName(told.rule->kind) << ' ' << Logger::printable(told.name) << ' '
             << Reporting::shortest(told.rule->score);
    } else {
        out_ << Logger::printable(told.name);
    }
    if (told.reason == Reason::Tripped) {
        out_ << ", total " << Reporting::shortest(static_cast<float>(sum_)) << '\n';
    } else {
        out_ << ": " << s_why(told) << '\n';
    }
    if (told.rule.has_value() && !told.rule->description.empty()) {
        out_ << kIndent << Logger::printable(told.rule->description) << '\n';
    }
    if (!told.detail.empty()) {
        out_ << kIndent << Logger::printable(told.detail) << '\n';
    }
    if (told.where.has_value()) {
        place(*told.where);
    }
    if (told.nearest.has_value()) {
        nearest(*told.nearest);
    }
    steps(told);
}

void ExplainReport::place(const ExplainedText &text) {
    out_ << kIndent << s_where(text);
    if (!text.hasRange) {
        out_ << ":\n";
        excerpt(text.text, 0, 0);
        return;
    }
    out_ << ", bytes " << text.start << " to " << text.end;
    if (s_hasOffset(text) && text.offset > 0) {
        out_ << " (from " << text.offset + text.start << " in all)";
    }
    out_ << ":\n";
    excerpt(text.text, text.start, text.end);
}

void ExplainReport::nearest(const corvane::NearestTry &nearest) {
    if (nearest.text.start == nearest.text.end) {
        out_ << kIndent << "no try came beyond its first character; the pattern begins:\n";
    } else {
        out_ << kIndent << "the nearest try: ";
        const ExplainedText &text = nearest.text;
        out_ << s_where(text) << ", bytes " << text.start << " to " << text.end << ":\n";
        excerpt(text.text, text.start, text.end);
        out_ << kIndent << "which came to this in the pattern:\n";
    }
    excerpt(nearest.pattern, nearest.item, nearest.item + nearest.itemLength);
    if (!nearest.isComplete) {
        out_ << kIndent << "(of very many tries, only the first were followed)\n";
    }
}

// Marks what is from start to end, by whole characters; all of a long text is cut.
void ExplainReport::excerpt(const std::string &text, std::size_t start, std::size_t end) {
    while (start > 0 && start < text.size() && s_isInCharacter(text[start])) {
        --start;
    }
    while (end > start && end < text.size() && s_isInCharacter(text[end])) {
        ++end;
    }
    const std::size_t from = start > kAround ? start - kAround : 0;
    const std::size_t marked = std::min(end, start + kMostMarked);
    const std::size_t to = std::min(text.size(), marked + kAround);
    const std::string before = (from > 0 ? "..." : "") + s_cut(text, from, start);
    const std::string middle = s_cut(text, start, marked);
    const bool isCut = marked < end || to < text.size();
    out_ << kIndent << kIndent << before << middle << (marked < end ? "" : s_cut(text, marked, to))
         << (isCut ? "..." : "") << '\n';
    if (end > start) {
        out_ << kIndent << kIndent << std::string(s_columns(before), ' ')
             << std::string(std::max<std::size_t>(s_columns(middle), 1), '^') << '\n';
    }
}

void ExplainReport::steps(const RuleExplanation &told) {
    constexpr std::size_t kIndentWidth = 2;
    constexpr std::size_t kWidth = 40;
    for (const corvane::MetaStep &step : told.steps) {
        std::string line(step.depth * kIndentWidth, ' ');
        line +=
            step.operation + (step.operation.empty() ? "" : " ") + Logger::printable(step.operand);
        line.resize(std::max(line.size() + 1, kWidth), ' ');
        out_ << kIndent << line << "= " << Reporting::shortest(step.value) << '\n';
    }
}

} // namespace Corvane::Cli
