#include <iomanip>

#include "Report.h"
#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

constexpr int kScoreDecimals = 3;
constexpr int kScoreWidth = 9;

constexpr const char *kRed = "\x1b[1;31m";
constexpr const char *kGreen = "\x1b[32m";
constexpr const char *kPlain = "\x1b[0m";

class TextReport final : public Report {
public:
    TextReport(std::ostream &out, float threshold, Colours colours)
        : out_(out), threshold_(threshold), colours_(colours) {}

    void message(const Verdict &verdict) override {
        if (!verdict.failure.empty()) {
            return;
        }
        out_ << std::fixed << std::setprecision(kScoreDecimals) << std::setw(kScoreWidth)
             << verdict.score << "  ";
        mark(verdict.over);
        out_ << "  " << Logger::printable(MessageSource::label(verdict.file, verdict.index));
        if (std::string(verdict.language) != "DEFAULT") {
            out_ << "  (" << verdict.language << ')';
        }
        out_ << '\n';
        for (const TrippedRule &rule : verdict.rules) {
            out_ << std::setw(2 * kScoreWidth) << rule.score << "  " << std::left
                 << std::setw(kScoreWidth) << rule.kind << std::right
                 << Logger::printable(rule.name) << '\n';
        }
        for (const MailLimit limit : verdict.limits) {
            out_ << std::setw(2 * kScoreWidth) << "cut at"
                 << "  " << mailLimitName(limit) << '\n';
        }
    }

    void summary(const Totals &totals) override {
        if (totals.all() != 1) {
            out_ << totals.scanned << " of " << totals.all() << " messages scanned, " << totals.over
                 << " over " << std::defaultfloat << threshold_ << ", " << totals.failed
                 << " not read\n";
        }
    }

private:
    void mark(bool over) {
        const char *word = over ? "OVER" : "ok  ";
        if (colours_ == Colours::On) {
            out_ << (over ? kRed : kGreen) << word << kPlain;
        } else {
            out_ << word;
        }
    }

    std::ostream &out_;
    float threshold_;
    Colours colours_;
};

} // namespace

std::unique_ptr<Report> makeTextReport(std::ostream &out, float threshold, Colours colours) {
    return std::make_unique<TextReport>(out, threshold, colours);
}

} // namespace Corvane::Cli
