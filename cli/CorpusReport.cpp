#include "CorpusReport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <set>
#include <sstream>

#include "CurveTable.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "MessageSource.h"
#include "corpus/Difference.h"
#include "corpus/Page.h"
#include "corpus/Result.h"
#include "corpus/Statistics.h"
#include "corpus/StatisticsJson.h"
#include "host/parser/Logger.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

using Corpus::Difference;
using Corpus::Result;
using Corpus::RuleChange;
using Corpus::RuleStatistics;
using Corpus::Statistics;
using Mode = Corpus::Database::Mode;
using Reporting::shortest;

std::string s_name(const std::string &path, std::size_t number) {
    return Logger::printable(MessageSource::label(path, number));
}

std::string s_oneDecimal(double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << value;
    return text.str();
}

void s_writeClasses(const Statistics &statistics, std::ostream &out) {
    TextTable table({"messages", "over", "not read", "ms", "class"});
    bool isAny = false;
    for (const Corpus::ClassStatistics &each : statistics.classes) {
        isAny = isAny || each.isToBeOver;
        table.add({std::to_string(each.messages), std::to_string(each.over),
                   std::to_string(each.failed), s_oneDecimal(each.meanMilliseconds),
                   Logger::printable(each.name) + (each.isToBeOver ? ", to be over" : "")});
    }
    constexpr std::size_t kNumbers = 4;
    table.write(out, kNumbers);
    if (!isAny) {
        out << "\nNo class is one whose messages are to be over; name them with --over.\n";
    }
}

void s_writeThresholds(const Statistics &statistics, std::ostream &out) {
    writeThreshold(statistics.curve, statistics.threshold, statistics.toBeOver,
                   statistics.toBeUnder, out);
    writeCurve(statistics.curve, statistics.toBeOver, statistics.toBeUnder, out);
}

template <class Weight>
std::vector<const RuleStatistics *> s_first(const Statistics &statistics, std::size_t most,
                                            Weight weight) {
    std::vector<const RuleStatistics *> rules;
    for (const RuleStatistics &rule : statistics.rules) {
        if (weight(rule) > 0) {
            rules.push_back(&rule);
        }
    }
    std::stable_sort(rules.begin(), rules.end(), [&weight](const auto *one, const auto *two) {
        return weight(*one) > weight(*two);
    });
    rules.resize(std::min(rules.size(), most));
    return rules;
}

void s_writeRules(const Statistics &statistics, std::size_t top, std::ostream &out) {
    out << "\nRules that hit most\n";
    TextTable hits({"over", "under", "precision", "decided", "score", "rule"});
    for (const RuleStatistics *rule :
         s_first(statistics, top, [](const RuleStatistics &each) { return each.all(); })) {
        hits.add({std::to_string(rule->hitsToBeOver), std::to_string(rule->hitsToBeUnder),
                  shareOf(rule->hitsToBeOver, rule->all()), std::to_string(rule->decided),
                  shortest(rule->score), Logger::printable(rule->name)});
    }
    constexpr std::size_t kNumbers = 5;
    hits.write(out, kNumbers);
    out << "\nRules that cost most\n";
    TextTable costs({"tries", "bytes", "given up", "sampled ms", "hits", "rule"});
    for (const RuleStatistics *rule :
         s_first(statistics, top, [](const RuleStatistics &each) { return each.bytes; })) {
        constexpr double kNanoseconds = 1e6;
        costs.add({std::to_string(rule->tries), std::to_string(rule->bytes),
                   std::to_string(rule->limited),
                   s_oneDecimal(static_cast<double>(rule->nanoseconds) / kNanoseconds),
                   std::to_string(rule->all()), Logger::printable(rule->name)});
    }
    costs.write(out, kNumbers);
}

void s_writeOverlaps(const Statistics &statistics, std::ostream &out) {
    if (statistics.overlaps.empty()) {
        return;
    }
    out << "\nRules that hit the same messages\n";
    TextTable table({"both", "of either", "rules"});
    for (const Corpus::Overlap &each : statistics.overlaps) {
        constexpr double kPercent = 100.0;
        table.add({std::to_string(each.both), s_oneDecimal(kPercent * each.jaccard) + " %",
                   Logger::printable(statistics.rules[each.one].name) + ' ' +
                       Logger::printable(statistics.rules[each.two].name)});
    }
    constexpr std::size_t kNumbers = 2;
    table.write(out, kNumbers);
}

void s_writeNearest(const Statistics &statistics, std::ostream &out) {
    out << "\nMessages nearest to the threshold\n";
    TextTable table({"total", "is", "class", "message"});
    for (const Corpus::NearMessage &each : statistics.nearest) {
        table.add({shortest(each.total), each.isRight ? "right" : "wrong",
                   Logger::printable(each.category), s_name(each.path, each.number)});
    }
    table.write(out, 1);
}

void s_writeNever(const Statistics &statistics, std::size_t top, std::ostream &out) {
    std::vector<std::string> names;
    std::size_t active = 0;
    for (const RuleStatistics &rule : statistics.rules) {
        active += rule.isActive ? 1U : 0U;
        if (rule.isActive && rule.all() == 0) {
            names.push_back(Logger::printable(rule.name));
        }
    }
    out << "\nRules that never hit: " << names.size() << " of " << active << '\n';
    for (std::size_t each = 0; each < std::min(names.size(), top); ++each) {
        out << "  " << names[each] << '\n';
    }
    if (names.size() > top) {
        out << "  and " << names.size() - top << " more; --top shows more, --json all\n";
    }
}

void s_writeShards(Result &result, std::ostream &out) {
    const std::size_t has = result.shards().size();
    if (has < result.shardCount()) {
        out << Logger::printable(result.path()) << " holds " << has << " of " << result.shardCount()
            << " shards\n";
    }
}

std::string s_score(bool isThere, float score) {
    return isThere ? shortest(score) : "-";
}

std::string s_pair(std::size_t before, std::size_t after) {
    return before == after ? std::to_string(after)
                           : std::to_string(before) + " > " + std::to_string(after);
}

void s_writeVerdicts(const Difference &difference, std::size_t top, std::ostream &out) {
    out << "\nMessages whose verdict changed: " << difference.verdicts.size() << '\n';
    std::size_t shown = 0;
    for (const Corpus::VerdictChange &change : difference.verdicts) {
        if (++shown > top) {
            out << "  and " << difference.verdicts.size() - top
                << " more; --top shows more, --json all\n";
            return;
        }
        out << "  " << shortest(change.before) << " > " << shortest(change.after) << ", "
            << (change.isOver ? "over" : "under") << (change.isRight ? ", right: " : ", wrong: ")
            << Logger::printable(change.category) << ' ' << s_name(change.path, change.number)
            << '\n';
        for (const Corpus::HitChange &hit : change.rules) {
            out << "      " << s_score(hit.wasHit, hit.before) << " > "
                << s_score(hit.isHit, hit.after) << "  " << Logger::printable(hit.rule) << '\n';
        }
    }
}

void s_writeRuleChanges(const Difference &difference, std::size_t top, std::ostream &out) {
    out << "\nRules that changed: " << difference.rules.size() << '\n';
    if (difference.rules.empty()) {
        return;
    }
    TextTable table({"over", "under", "score", "rule"});
    for (std::size_t each = 0; each < std::min(top, difference.rules.size()); ++each) {
        const RuleChange &rule = difference.rules[each];
        const std::string before = s_score(rule.was, rule.scoreBefore);
        const std::string after = s_score(rule.is, rule.scoreAfter);
        table.add({s_pair(rule.overBefore, rule.overAfter),
                   s_pair(rule.underBefore, rule.underAfter),
                   before == after ? after : before + " > " + after,
                   Logger::printable(rule.name) + (!rule.was  ? ", new"
                                                   : !rule.is ? ", gone"
                                                              : "")});
    }
    constexpr std::size_t kNumbers = 3;
    table.write(out, kNumbers);
    if (difference.rules.size() > top) {
        out << "  and " << difference.rules.size() - top << " more; --top shows more, --json all\n";
    }
}

void s_write(Result &before, Result &after, const Difference &difference, std::size_t top,
             std::ostream &out) {
    out << Logger::printable(before.path()) << " > " << Logger::printable(after.path()) << ": "
        << difference.messages << " messages\n";
    for (const Corpus::SettingChange &change : difference.settings) {
        out << "  another " << Result::called(change.name) << ": " << change.before << " > "
            << change.after << '\n';
    }
    out << "\nnew false positives " << difference.newFalsePositives << ", mended "
        << difference.mendedFalsePositives << "; newly missed " << difference.newMisses
        << ", mended " << difference.mendedMisses << '\n';
    if (difference.readByOne > 0) {
        out << "messages that could be read once only: " << difference.readByOne << '\n';
    }
    out << "\nbefore, ";
    s_writeThresholds(difference.before, out);
    out << "\nafter, ";
    s_writeThresholds(difference.after, out);
    s_writeVerdicts(difference, top, out);
    s_writeRuleChanges(difference, top, out);
}

void s_addOptions(CLI::App &app, CorpusShowArguments &arguments) {
    app.add_option("--over", arguments.over,
                   "A class whose messages are to be over; may be given more than once. Usually "
                   "those whose names begin with spam, phish, scam, junk, malware or virus")
        ->allow_extra_args(false)
        ->type_name("CLASS");
    app.add_option("--top", arguments.top, "How many rules and messages are shown")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{1}, std::size_t{1000000}))
        ->type_name("N");
    app.add_flag("--json", arguments.json, "Print all as one JSON object");
    app.add_option("--html", arguments.html,
                   "Write a page for browsers to FILE, which needs nothing besides, and print "
                   "nothing")
        ->type_name("FILE");
}

void s_flush(std::ostream &out) {
    const int error = flushed(out);
    if (error != 0) {
        refuse("cannot write what the result says: " + systemReason(error));
    }
}

} // namespace

void addCorpusReportCommand(CLI::App &corpus, CorpusShowArguments &arguments) {
    CLI::App *report =
        corpus.add_subcommand("report", "Say how good, how useful and how dear rules are");
    s_addOptions(*report, arguments);
    report->add_option("RESULT", arguments.result, "The result of a run")
        ->required()
        ->type_name("");
    report->footer("Exit status: 0 all was shown; 2 it was not, and why is said.\n");
}

void addCorpusDiffCommand(CLI::App &corpus, CorpusShowArguments &arguments) {
    CLI::App *diff = corpus.add_subcommand(
        "diff", "Say what other rules or settings change on the same messages");
    s_addOptions(*diff, arguments);
    diff->add_option("--max-new-fp", arguments.maxNewFalsePositives,
                     "End with status 1 if there are more new false positives")
        ->type_name("N");
    diff->add_option("--max-missed", arguments.maxMissed,
                     "End with status 1 if more messages are missed that were not")
        ->type_name("N");
    diff->add_option("BEFORE", arguments.result, "The result that the other is compared with")
        ->required()
        ->type_name("");
    diff->add_option("AFTER", arguments.other, "The other")->required()->type_name("");
    diff->footer("Exit status: 0 all was shown; 1 more has become worse than is allowed; 2 a "
                 "result could not be read, or they are not of the same messages.\n");
}

int runCorpusReport(const CorpusShowArguments &arguments, std::ostream &out) {
    Result result = Result::open(arguments.result, Mode::Read);
    const std::set<std::string> over = classesToBeOver(result, arguments.over);
    const Statistics statistics = statisticsOf(result, over, arguments.top);
    if (!arguments.html.empty()) {
        Corpus::writeWhole(arguments.html, Corpus::pageOf(toJson(result, statistics)));
    } else if (arguments.json) {
        out << toJson(result, statistics);
    } else {
        s_writeShards(result, out);
        s_writeClasses(statistics, out);
        out << '\n';
        s_writeThresholds(statistics, out);
        s_writeRules(statistics, arguments.top, out);
        s_writeOverlaps(statistics, out);
        s_writeNearest(statistics, out);
        s_writeNever(statistics, arguments.top, out);
    }
    s_flush(out);
    return kExitClean;
}

int runCorpusDiff(const CorpusShowArguments &arguments, std::ostream &out) {
    Result before = Result::open(arguments.result, Mode::Read);
    Result after = Result::open(arguments.other, Mode::Read);
    const std::set<std::string> over = classesToBeOver(before, arguments.over);
    const Difference difference = differenceOf(before, after, over);
    if (!arguments.html.empty()) {
        Corpus::writeWhole(arguments.html, Corpus::pageOf(toJson(before, after, difference)));
    } else if (arguments.json) {
        out << toJson(before, after, difference);
    } else {
        s_write(before, after, difference, arguments.top, out);
    }
    s_flush(out);
    constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
    const bool isWorse =
        difference.newFalsePositives > arguments.maxNewFalsePositives.value_or(kAny) ||
        difference.newMisses > arguments.maxMissed.value_or(kAny);
    return isWorse ? kExitOver : kExitClean;
}

} // namespace Corvane::Cli
