#include "Scan.h"

#include <cmath>
#include <iomanip>

#include "ExitStatus.h"
#include "LogSummary.h"
#include "MessageSource.h"
#include "RuleDirectory.h"
#include "heuristic/BodyRule.h"
#include "heuristic/Rule.h"
#include "host/parser/Exception.h"
#include "host/parser/MailReader.h"
#include "host/parser/MimePart.h"

namespace Corvane::Cli {

namespace {

using Heuristic::BodyCheck;
using Heuristic::RefMatches;
using Heuristic::RefRule;
using Heuristic::RefRuleList;
using Heuristic::RuleContainer;

constexpr int kScoreDecimals = 3;
constexpr int kScoreWidth = 9;

// Every rule of a language, none left out, no trace.
constexpr unsigned int kNoCutoff = 0;
constexpr bool kNoTrace = false;

struct Totals {
    std::size_t scanned = 0;
    std::size_t over = 0;
    std::size_t failed = 0;
};

// A failure of the command's own is a sentence already; one of the libraries needs its details.
std::string s_readable(const Exception &failure) {
    return Logger::printable(failure.file().empty() ? failure.message() : failure.asString());
}

const MPartText *s_text(const MimePart &part, MPartAttribute::Type type) {
    return dynamic_cast<const MPartText *>(part.findAttr(type));
}

// Body rules see the text and, where it differs, its second rendering; raw-body rules the body as
// received.
RefMatches s_match(const RuleContainer &rules, const Mail &mail) {
    RefMatches matches = RefMatches::create();
    const MimePart *part = mail.properties()->part().operator->();
    if (part == nullptr) {
        return matches;
    }
    RefRuleList bodyRules(rules.bodyRules(Heuristic::DEFAULT), true);
    BodyCheck bodyCheck(bodyRules, matches, kNoCutoff, kNoTrace);
    if (const MPartText *text = s_text(*part, MPartAttribute::Text)) {
        bodyCheck.check(text->text(), false);
    }
    if (const MPartText *text = s_text(*part, MPartAttribute::RawText)) {
        RefRuleList rawRules(rules.rawBodyRules(Heuristic::DEFAULT), true);
        BodyCheck(rawRules, matches, kNoCutoff, kNoTrace).check(text->text(), true);
    }
    const MPartText *second = s_text(*part, MPartAttribute::AltText);
    if (second != nullptr && (second->flags() & MPartText::kDiffers) != 0) {
        bodyCheck.check(second->text(), false);
    }
    return matches;
}

const char *s_kind(const RefRule &rule) {
    return rule->type() == Heuristic::Rule::RawBody ? "rawbody" : "body";
}

void s_show(std::ostream &out, const std::string &name, const RefMatches &matches, bool over,
            const MailLimitSet &limitsHit) {
    out << std::fixed << std::setprecision(kScoreDecimals) << std::setw(kScoreWidth)
        << matches.score(false) << (over ? "  OVER  " : "  ok    ") << Logger::printable(name)
        << '\n';
    for (const RefRule &rule : *matches) {
        out << std::setw(2 * kScoreWidth)
            << (rule->score().isNull() ? 0.0F : rule->score()->value()) << "  " << std::left
            << std::setw(kScoreWidth) << s_kind(rule) << std::right
            << Logger::printable(rule->name()) << '\n';
    }
    for (const MailLimit limit : limitsHit) {
        out << std::setw(2 * kScoreWidth) << "cut at"
            << "  " << mailLimitName(limit) << '\n';
    }
}

// Answers whether the message is over the threshold.
bool s_scan(const RuleContainer &rules, const std::string &name, float threshold,
            std::ostream &out) {
    const MailLimits limits;
    const Buffer bytes = readMessage(name, limits.value(MailLimit::MessageBytes));
    const Mail mail = MailReader(limits).read(bytes.data(), bytes.length());
    const RefMatches matches = s_match(rules, mail);
    const bool over = matches.score(false) > threshold;
    s_show(out, name, matches, over, mail.limitsHit());
    return over;
}

void s_scanInto(Totals &totals, const RuleContainer &rules, const std::string &name,
                float threshold, std::ostream &out, std::ostream &err) {
    try {
        totals.over += s_scan(rules, name, threshold, out) ? 1U : 0U;
        ++totals.scanned;
    } catch (const Exception &failure) {
        ++totals.failed;
        out.flush();
        err << "corvane: " << s_readable(failure) << '\n';
    }
}

int s_exitStatus(const Totals &totals) {
    if (totals.failed > 0) {
        return kExitFailed;
    }
    return totals.over > 0 ? kExitOver : kExitClean;
}

std::string s_refuseNonFinite(const std::string &text) {
    float value = 0.0F;
    return CLI::detail::lexical_cast(text, value) && std::isfinite(value)
               ? std::string()
               : "'" + text + "' is no number; give the score above which a message counts as over";
}

} // namespace

void addScanCommand(CLI::App &app, ScanOptions &options) {
    CLI::App *scan = app.add_subcommand("scan", "Score messages and show which rules tripped");
    scan->add_option("--rules", options.rules, "Directory whose *.cf files hold the rules")
        ->required()
        ->type_name("DIR");
    scan->add_option("--threshold", options.threshold, "Score above which a message counts as over")
        ->capture_default_str()
        ->check(s_refuseNonFinite, "")
        ->type_name("SCORE");
    scan->add_option("MESSAGE", options.messages, "Message files; - is standard input")
        ->required()
        ->type_name("");
    scan->footer("Exit status: 0 no message is over the threshold, 1 at least one is, 2 something "
                 "could not be read.\n");
}

int runScan(const ScanOptions &options, std::ostream &out, std::ostream &err) {
    LogSummary log;
    RuleContainer rules;
    try {
        loadRuleDirectory(options.rules, rules, log);
    } catch (const Exception &failure) {
        log.show(err);
        err << "corvane: " << s_readable(failure) << '\n';
        return kExitFailed;
    }
    log.show(err);

    Totals totals;
    for (const std::string &name : options.messages) {
        s_scanInto(totals, rules, name, options.threshold, out, err);
    }
    log.show(err);
    if (options.messages.size() > 1) {
        out << totals.scanned << " of " << options.messages.size() << " messages scanned, "
            << totals.over << " over " << std::defaultfloat << options.threshold << ", "
            << totals.failed << " not read\n";
    }
    out.flush();
    if (!out) {
        err << "corvane: cannot write the results\n";
        return kExitFailed;
    }
    return s_exitStatus(totals);
}

} // namespace Corvane::Cli
