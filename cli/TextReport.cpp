#include <iomanip>
#include <utility>

#include "MessageSource.h"
#include "Report.h"
#include "host/parser/Logger.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

constexpr int kScoreDecimals = 3;
constexpr int kScoreWidth = 9;

constexpr const char *kRed = "\x1b[1;31m";
constexpr const char *kYellow = "\x1b[33m";
constexpr const char *kGreen = "\x1b[32m";
constexpr const char *kPlain = "\x1b[0m";

class TextReport final : public Report {
public:
    TextReport(std::ostream &out, ReportContext context) : out_(out), context_(std::move(context)) {
        out_ << std::fixed << std::setprecision(kScoreDecimals);
    }

    void message(const MessageResult &result) override {
        if (!result.failure.empty()) {
            return;
        }
        const Reporting::ShownVerdict &verdict = result.verdict;
        out_ << std::setw(kScoreWidth) << verdict.score << "  ";
        mark(result);
        out_ << "  " << Logger::printable(MessageSource::label(result.file, result.index));
        if (verdict.language != "DEFAULT") {
            out_ << "  (" << verdict.language << ')';
        }
        out_ << '\n';
        for (const Reporting::ShownHit &hit : verdict.hits) {
            out_ << std::setw(2 * kScoreWidth) << hit.score << "  " << std::left
                 << std::setw(kScoreWidth) << hit.kind << std::right << Logger::printable(hit.name)
                 << '\n';
        }
        for (const std::string &limit : verdict.limits) {
            note("cut at") << limit << '\n';
        }
        givenUp(verdict);
    }

    void summary(const Totals &totals) override {
        const corvane::RuleCounts &counts = context_.rules.counts;
        out_ << counts.loaded << (counts.loaded == 1 ? " rule" : " rules") << " loaded, "
             << counts.refused + counts.duplicates << " left out\n";
        if (totals.all() == 1) {
            return;
        }
        out_ << totals.scanned << " of " << totals.all() << " messages scanned, " << totals.over
             << " over " << Reporting::shortest(context_.threshold) << ", " << totals.failed
             << " not read";
        if (totals.undecided > 0) {
            out_ << ", " << totals.undecided << " undecided";
        }
        out_ << '\n';
    }

private:
    std::ostream &note(const char *word) {
        return out_ << std::setw(2 * kScoreWidth) << word << "  ";
    }

    void givenUp(const Reporting::ShownVerdict &verdict) {
        if (verdict.stepLimited == 0) {
            return;
        }
        note("gave up") << verdict.stepLimited
                        << (verdict.stepLimited == 1 ? " try of a rule\n" : " tries of rules\n");
        if (context_.verbose) {
            for (const std::string &name : verdict.stepLimitedRules) {
                note("gave up") << Logger::printable(name) << '\n';
            }
        }
    }

    void mark(const MessageResult &result) {
        const bool isOver = result.verdict.over;
        const char *word = isOver ? "OVER" : result.isUndecided() ? "?   " : "ok  ";
        const char *colour = isOver ? kRed : result.isUndecided() ? kYellow : kGreen;
        if (context_.coloured) {
            out_ << colour << word << kPlain;
        } else {
            out_ << word;
        }
    }

    std::ostream &out_;
    ReportContext context_;
};

} // namespace

std::unique_ptr<Report> makeTextReport(std::ostream &out, ReportContext context) {
    return std::make_unique<TextReport>(out, std::move(context));
}

} // namespace Corvane::Cli
