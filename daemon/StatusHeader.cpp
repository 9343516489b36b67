#include "StatusHeader.h"

#include <vector>

#include "Text.h"
#include "corvane/Engine.h"
#include "report/Numbers.h"

namespace Corvane::Milter {

namespace {

constexpr std::string_view kFold = "\n\t";
constexpr std::size_t kUsualLineBytes = 76;
constexpr std::size_t kMostDescriptionBytes = 300;
constexpr std::size_t kMostIdBytes = 100;
// What separates names and fields.
constexpr std::string_view kSeparators = " ,;=+";

// Puts words into lines. A word itself is never cut.
class Lines {
public:
    // room: what is left of the first line.
    explicit Lines(std::size_t taken) : column_(taken) {}

    // Adds a word, with this in front unless it begins a line.
    void add(const std::string &word, std::string_view between) {
        if (!text_.empty() && column_ + between.size() + word.size() > kUsualLineBytes) {
            text_ += kFold;
            column_ = 1;
        } else if (!text_.empty()) {
            text_ += between;
            column_ += between.size();
        }
        text_ += word;
        column_ += word.size();
    }

    const std::string &text() const { return text_; }

private:
    std::string text_;
    std::size_t column_;
};

std::string s_name(const std::string &name) {
    return escaped(name, Charset::Ascii, kSeparators, kMostNameBytes);
}

void s_addRules(const corvane::Verdict &verdict, Lines &lines) {
    const std::vector<corvane::Hit> &hits = verdict.hits();
    std::string word = "rules=";
    std::string_view between = " ";
    std::size_t shown = 0;
    std::size_t bytes = 0;
    for (; shown < hits.size() && shown < kMostStatusRules; ++shown) {
        const std::string name = s_name(hits[shown].name);
        bytes += name.size() + 1;
        if (bytes > kMostStatusBytes) {
            break;
        }
        word += name;
        word += shown + 1 < hits.size() ? "," : ";";
        lines.add(word, between);
        word.clear();
        between = "";
    }
    if (shown < hits.size() || hits.empty()) {
        word += hits.empty() ? "none;" : '+' + std::to_string(hits.size() - shown) + ';';
        lines.add(word, between);
    }
}

void s_addLimits(const Scored &scored, Lines &lines) {
    std::string word;
    for (const std::string_view limit : scored.verdict.limits()) {
        word += word.empty() ? "limits=" : ",";
        word += limit;
    }
    if (!word.empty()) {
        lines.add(word + ';', " ");
    }
}

} // namespace

std::string statusValue(const Scored &scored, const Setup &setup, const std::string &id) {
    constexpr std::size_t kAssumedPrefixBytes = 18;
    Lines lines(kAssumedPrefixBytes);
    lines.add(std::string(nameOf(scored.status)) + ';', " ");
    if (scored.cause != Cause::None) {
        lines.add("cause=" + std::string(nameOf(scored.cause)) + ';', " ");
    }
    // An early end leaves a part of the score, which is worth more than nothing.
    if (scored.hasVerdict() || scored.cause == Cause::Budget || scored.cause == Cause::TooLarge) {
        lines.add("score=" + Reporting::shortest(scored.score) + ';', " ");
        lines.add("threshold=" + Reporting::shortest(setup.config.scan.threshold) + ';', " ");
        s_addRules(scored.verdict, lines);
        s_addLimits(scored, lines);
    }
    lines.add("generation=" + setup.rules.generation() + ';', " ");
    lines.add("engine=" + std::string(corvane::engine()) + ';', " ");
    lines.add("id=" +
                  (id.empty() ? "none" : escaped(id, Charset::Ascii, kSeparators, kMostIdBytes)),
              " ");
    return lines.text();
}

std::string reportValue(const Scored &scored) {
    std::string text;
    const std::vector<corvane::Hit> &hits = scored.verdict.hits();
    for (std::size_t each = 0; each < hits.size() && each < kMostStatusRules; ++each) {
        const corvane::Hit &hit = hits[each];
        if (!text.empty()) {
            text.append(";").append(kFold);
        }
        text += s_name(hit.name) + ' ' + Reporting::shortest(hit.score);
        if (!hit.description.empty()) {
            text += ' ' + escaped(hit.description, Charset::Ascii, ";", kMostDescriptionBytes);
        }
    }
    if (hits.size() > kMostStatusRules) {
        text.append(";").append(kFold).append("+");
        text += std::to_string(hits.size() - kMostStatusRules);
    }
    return text.empty() ? "none" : text;
}

} // namespace Corvane::Milter
