#include "CorpusRun.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include <unistd.h>

#include "CorpusSource.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "Progress.h"
#include "RuleLoad.h"
#include "WorkerPool.h"
#include "corpus/Result.h"
#include "corvane/Engine.h"
#include "corvane/RuleProfile.h"
#include "host/crypto/Digest.h"
#include "host/parser/Logger.h"
#include "host/parser/MailLimits.h"
#include "host/parser/Mutex.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

using Corpus::MessageKey;
using Corpus::MessageRow;
using corvane::RuleCost;
using corvane::RuleProfile;
using Clock = std::chrono::steady_clock;

// What is added to the result at once: as much as takes a while, so that little is lost with the
// process, and no more than fits into memory well.
constexpr std::size_t kMostAtOnce = 2000;
constexpr std::chrono::seconds kLongestAtOnce{5};

// Reading the clock for each try costs time: it is done for one message in so many, by their digests.
constexpr unsigned int kTimedOf = 16;

// The profiles that messages of one batch are scanned with: each is lent to one scan at a time.
class Profiles {
public:
    explicit Profiles(const corvane::RuleSet &rules) : rules_(rules) {}

    std::unique_ptr<RuleProfile> take(RuleProfile::Times times) {
        const Synchronized lock(mutex_);
        std::vector<std::unique_ptr<RuleProfile>> &free = free_[times];
        if (free.empty()) {
            return std::make_unique<RuleProfile>(rules_, times);
        }
        std::unique_ptr<RuleProfile> profile = std::move(free.back());
        free.pop_back();
        return profile;
    }

    void giveBack(RuleProfile::Times times, std::unique_ptr<RuleProfile> profile) {
        const Synchronized lock(mutex_);
        free_[times].push_back(std::move(profile));
    }

    // The costs of all messages so far, which are forgotten then. No profile may be lent.
    std::vector<RuleCost> drain() {
        const Synchronized lock(mutex_);
        std::vector<RuleCost> sums(rules_.size());
        for (auto &[times, profiles] : free_) {
            for (const std::unique_ptr<RuleProfile> &profile : profiles) {
                const std::vector<RuleCost> costs = profile->costs();
                for (std::size_t rule = 0; rule < costs.size(); ++rule) {
                    sums[rule].tries += costs[rule].tries;
                    sums[rule].bytes += costs[rule].bytes;
                    sums[rule].stepLimited += costs[rule].stepLimited;
                    sums[rule].time += costs[rule].time;
                }
            }
        }
        free_.clear();
        return sums;
    }

private:
    const corvane::RuleSet &rules_;
    Mutex mutex_;
    std::map<RuleProfile::Times, std::vector<std::unique_ptr<RuleProfile>>>
        free_ CORVANE_GUARDED_BY(mutex_);
};

// Finds the place of a rule in its set.
class RulePlaces {
public:
    explicit RulePlaces(const corvane::RuleSet &rules) : rules_(rules.rules()) {
        for (std::size_t place = 0; place < rules_.size(); ++place) {
            byName_.emplace(rules_[place].name, place);
        }
    }

    std::size_t of(const corvane::Hit &hit) const {
        const auto [first, last] = byName_.equal_range(hit.name);
        const auto found = std::find_if(first, last, [&](const auto &entry) {
            const corvane::Rule &rule = rules_[entry.second];
            return rule.kind == hit.kind && rule.line == hit.line && rule.file == hit.file;
        });
        return found != last ? found->second : first->second;
    }

private:
    const std::vector<corvane::Rule> &rules_;
    std::multimap<std::string_view, std::size_t> byName_;
};

class Run {
public:
    Run(const corvane::RuleSet &rules, const corvane::ScanOptions &options)
        : rules_(rules), options_(options), places_(rules), profiles_(rules) {}

    // Called by several threads at once.
    MessageRow scan(const CorpusMessage &message) {
        MessageRow row;
        row.key = message.key;
        row.bytes = message.raw.bytes.size();
        Crypto::Digest digest;
        digest.add(message.raw.bytes);
        row.sha256 = digest.hex();
        row.failure = message.raw.failure;
        row.verdict = "failed";
        if (row.failure.empty()) {
            scan(message, row);
        }
        return row;
    }

    std::vector<RuleCost> drainCosts() { return profiles_.drain(); }

private:
    void scan(const CorpusMessage &message, MessageRow &row) {
        const auto times =
            isTimed(message.key) ? RuleProfile::Times::Measured : RuleProfile::Times::LeftOut;
        std::unique_ptr<RuleProfile> profile = profiles_.take(times);
        corvane::Verdict verdict;
        try {
            verdict = rules_.scan(message.raw.bytes, options_, *profile);
        } catch (const std::runtime_error &failure) {
            row.failure = failure.what();
            return;
        }
        profiles_.giveBack(times, std::move(profile));
        row.language = verdict.language();
        row.total = Reporting::shownTotal(verdict, options_.threshold);
        row.verdict = verdict.over() ? "over" : "under";
        for (const std::string_view limit : verdict.limits()) {
            row.limits += row.limits.empty() ? "" : ",";
            row.limits += limit;
        }
        row.nanoseconds = (verdict.readingTime() + verdict.scanningTime()).count();
        for (const corvane::Hit &hit : verdict.hits()) {
            row.hits.push_back(places_.of(hit));
        }
        std::sort(row.hits.begin(), row.hits.end());
    }

    static bool isTimed(const MessageKey &key) { return Corpus::Shard{1, kTimedOf}.holds(key); }

    const corvane::RuleSet &rules_;
    const corvane::ScanOptions &options_;
    RulePlaces places_;
    Profiles profiles_;
};

// The usual ones: the command has no options for others.
std::string s_limits() {
    const MailLimits limits;
    std::string text;
    for (auto each = static_cast<unsigned int>(MailLimit::MessageBytes);
         each <= static_cast<unsigned int>(MailLimit::StyleRules); ++each) {
        const auto limit = static_cast<MailLimit>(each);
        text.append(text.empty() ? "" : " ").append(mailLimitName(limit));
        text += '=' + std::to_string(limits.value(limit));
    }
    return text;
}

Corpus::Settings s_settings(const CorpusRunArguments &arguments, const corvane::RuleSet &rules,
                            const std::vector<CorpusClass> &classes,
                            const CorpusSource::Survey &survey) {
    std::string names;
    for (const CorpusClass &each : classes) {
        const std::string before = names.substr(names.rfind(',') + 1);
        names += before == each.name ? "" : (names.empty() ? "" : ",") + each.name;
    }
    return {{"engine", std::string(corvane::engine())},
            {"generation", rules.generation()},
            {"threshold", Reporting::shortest(arguments.scan.threshold)},
            {"percent", std::to_string(arguments.scan.percent)},
            {"stop", arguments.scan.stop ? "yes" : "no"},
            {"limits", s_limits()},
            {"corpus", survey.digest},
            {"classes", names}};
}

bool s_readNumber(const std::string &text, unsigned int &number) {
    const char *end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && at == end;
}

// Fills shard, and answers what is wrong with the text, "" where nothing is.
std::string s_readShard(const std::string &text, Corpus::Shard &shard) {
    constexpr unsigned int kMost = 1000000;
    const std::size_t slash = std::min(text.find('/'), text.size());
    const bool isShard = slash < text.size() && s_readNumber(text.substr(0, slash), shard.index) &&
                         s_readNumber(text.substr(slash + 1), shard.count) && shard.index > 0 &&
                         shard.index <= shard.count && shard.count <= kMost;
    return isShard ? std::string()
                   : "'" + text +
                         "' is no shard; give one as K/N, such as 3/8 for the third of "
                         "eight";
}

std::string s_refuseShard(const std::string &text) {
    Corpus::Shard ignored;
    return s_readShard(text, ignored);
}

// Scans what the result lacks.
class Filling {
public:
    Filling(Run &run, CorpusSource &source, Corpus::GrowingResult &result, unsigned int workers,
            std::uint64_t bytes, std::ostream &err)
        : run_(run), source_(source), result_(result), pool_(workers), bytes_(bytes), err_(err),
          progress_(err, isatty(STDERR_FILENO) != 0 ? Progress::Mode::On : Progress::Mode::Off) {}

    Totals fill() {
        Clock::time_point last = Clock::now();
        std::size_t submitted = 0;
        while (std::optional<CorpusMessage> next = source_.next()) {
            submit(std::make_shared<const CorpusMessage>(std::move(*next)));
            ++submitted;
            if (submitted % kMostAtOnce == 0 || Clock::now() - last > kLongestAtOnce) {
                keep();
                last = Clock::now();
            }
        }
        keep();
        return totals_;
    }

private:
    void submit(const std::shared_ptr<const CorpusMessage> &message) {
        const auto task = [this, message]() -> WorkerPool::Finish {
            const auto row = std::make_shared<MessageRow>(run_.scan(*message));
            return [this, row] { take(std::move(*row)); };
        };
        pool_.submit(task, message->raw.bytes.size());
    }

    void take(MessageRow row) {
        if (!row.failure.empty()) {
            ++totals_.failed;
            progress_.clear();
            err_ << "corvane: " << Logger::printable(row.failure) << '\n';
        } else {
            ++totals_.scanned;
            totals_.over += row.verdict == "over" ? 1U : 0U;
        }
        rows_.push_back(std::move(row));
        progress_.step(totals_, bytes_ == 0 ? 1.0
                                            : static_cast<double>(source_.bytesBegun()) /
                                                  static_cast<double>(bytes_));
    }

    void keep() {
        pool_.drain();
        result_.add(rows_, run_.drainCosts());
        rows_.clear();
    }

    Run &run_;
    CorpusSource &source_;
    Corpus::GrowingResult &result_;
    WorkerPool pool_;
    std::uint64_t bytes_;
    std::ostream &err_;
    Progress progress_;
    Totals totals_;
    std::vector<MessageRow> rows_;
};

} // namespace

void addCorpusRunCommand(CLI::App &corpus, CorpusRunArguments &arguments) {
    CLI::App *run = corpus.add_subcommand(
        "run", "Scan the messages of a corpus and keep what came of each in a file");
    addRuleSources(*run, arguments);
    run->add_option("--class", arguments.classes,
                    "A class of messages and where they are: a file, an mbox, a directory; may be "
                    "given more than once")
        ->allow_extra_args(false)
        ->type_name("NAME=PATH");
    run->add_option("-o,--output", arguments.result, "The file that is to hold the result")
        ->required()
        ->type_name("RESULT");
    addIncludeOption(*run, arguments.include);
    run->add_option("--shard", arguments.shard,
                    "Scan only the Kth of N parts of the messages, for a result that is merged "
                    "with those of the others")
        ->check(s_refuseShard, "")
        ->type_name("K/N");
    addWorkersOption(*run, arguments.workers);
    addVerdictOptions(*run, arguments.scan);
    run->add_option("DIR", arguments.directory,
                    "A directory with a directory for each class, called by its name")
        ->type_name("");
    run->footer("A run that was interrupted goes on where it was if it is started again in the "
                "same way.\n"
                "Exit status: 0 the result is there; 2 it is not, and why is said.\n");
}

int runCorpusRun(const CorpusRunArguments &arguments, std::ostream &out, std::ostream &err) {
    Corpus::Shard shard;
    (void)s_readShard(arguments.shard, shard);
    const std::vector<CorpusClass> classes = classesOf(arguments.directory, arguments.classes);
    corvane::ScanOptions options = arguments.scan;
    CorpusSource source(classes, arguments.include, options.limits.messageBytes);
    Corpus::requireNew(arguments.result);
    const corvane::RuleSet rules = loadGivenRules(arguments, err);
    showProblems(rules, err);
    const CorpusSource::Survey survey = source.survey();
    Corpus::GrowingResult result(arguments.result, s_settings(arguments, rules, classes, survey),
                                 rules.rules(), shard);
    const std::optional<MessageKey> last = result.last();
    bool isBehind = !last.has_value();
    source.choose([&last, &isBehind, shard](const MessageKey &key) {
        if (last.has_value() && key == *last) {
            isBehind = true;
            return false;
        }
        return isBehind && shard.holds(key);
    });
    const std::size_t before = result.size();
    if (before > 0) {
        err << "corvane: going on behind " << before << " messages\n";
    }
    Run run(rules, options);
    const Totals totals = Filling(run, source, result, arguments.workers, survey.bytes, err).fill();
    result.finish();
    out << before + totals.all() << " messages";
    if (totals.failed > 0) {
        out << ", " << totals.failed << " of them not read";
    }
    out << ": " << Logger::printable(arguments.result) << '\n';
    const int error = flushed(out);
    if (error != 0) {
        refuse("cannot write to standard output: " + systemReason(error));
    }
    return kExitClean;
}

} // namespace Corvane::Cli
