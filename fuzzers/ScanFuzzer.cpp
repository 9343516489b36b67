#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Require.h"
#include "RuleChecks.h"
#include "heuristic/FullRule.h"
#include "heuristic/LogRecords.h"
#include "heuristic/Scanner.h"
#include "host/parser/Logger.h"
#include "host/parser/MailReader.h"

namespace {

using namespace Corvane;
using namespace Corvane::Heuristic;

constexpr std::size_t kSettingsBytes = 3;
constexpr float kThresholdStep = 0.25F;

struct Settings {
    unsigned int percent;
    float threshold;
    unsigned int pieceBytes;
};

struct Result {
    langID language;
    unsigned int mask;
    bool tripped;
    float score;
    RefMatches matches;
};

// The rules of fuzzers/rules, every one of which must load. A scan before that does nothing.
Scanner s_load() {
    Scanner empty;
    RefMatches matches = RefMatches::create();
    const Mail mail = MailReader().read("Subject: x\n\nx\n", 14);
    require(!empty.ready() &&
                empty.process(matches, mail.properties(), mail.sender(), 0, false) == 0 &&
                matches->empty(),
            "nothing is scanned before a set was loaded");
    Logger::instance(false).sink([](unsigned int id, int, const std::string &) {
        require(id != kLogRuleRefused && id != kLogDuplicateRule, "the rules load");
    });
    Scanner scanner{File::Path(CORVANE_FUZZ_RULES_DIR)};
    silenceLog();
    require(scanner.ruleCount() > 0, "the rules are there");
    return scanner;
}

// Told that a rule may have changed, a set tries rule by rule instead of what it has prepared.
Scanner s_loadForWalk() {
    Scanner scanner{File::Path(CORVANE_FUZZ_RULES_DIR)};
    const RefRule &rule = scanner.rules().bodyRules(DEFAULT)->front();
    rule->ordinal(rule->ordinal());
    return scanner;
}

Result s_scan(Scanner &scanner, const Buffer &message, const Settings &settings) {
    const Mail mail = MailReader().read(message);
    Result result{};
    result.language = Scanner::selectLanguage(mail.properties()->part().operator->());
    require(result.language >= DEFAULT && result.language < ALL, "a message has one language");
    result.matches = RefMatches::create();
    result.matches->threshold(settings.threshold);
    FullTap tap(scanner, scanner.rules().fullRules(result.language), result.matches,
                settings.percent, false);
    for (unsigned int from = 0; from < message.length(); from += settings.pieceBytes) {
        const unsigned int length = std::min(settings.pieceBytes, message.length() - from);
        tap.write(Buffer(message.data() + from, length, true));
    }
    tap.end();
    result.mask =
        scanner.process(result.matches, mail.properties(), mail.sender(), settings.percent, false);
    result.score = result.matches.score(false);
    result.tripped = result.matches->tripped();
    return result;
}

bool s_holds(const Result &result, Rule::Type kind) {
    return std::any_of(result.matches->begin(), result.matches->end(),
                       [kind](const RefRule &rule) { return rule->type() == kind; });
}

void s_requireMask(const Result &result) {
    constexpr unsigned int kText = Scanner::kTextMatched | Scanner::kSecondTextMatched;
    require((result.mask & ~(kText | Scanner::kRawBodyMatched)) == 0, "the mask has three bits");
    require(((result.mask & kText) != 0) == s_holds(result, Rule::Body),
            "the mask says whether a body rule has tripped");
    require(((result.mask & Scanner::kRawBodyMatched) != 0) == s_holds(result, Rule::RawBody),
            "the mask says whether a raw-body rule has tripped");
}

void s_requireResult(const Scanner &scanner, const Settings &settings, const Result &result) {
    const unsigned int cutoff = scanner.getordinalCutoff(settings.percent);
    for (const RefRule &rule : *result.matches) {
        const RefRuleList &list = scanner.rules().rules(result.language, rule->type());
        require(!list.find(rule->name()).isNull(), "only rules of the message's language trip");
        // Lines that stream past are tried with every full rule.
        require(rule->type() == Rule::Full ||
                    (rule->active() && (cutoff == 0 || rule->ordinal() < cutoff)),
                "only active rules below the cutoff trip");
    }
    s_requireMask(result);
    require(settings.threshold != 0.0F || !result.tripped, "threshold 0 means never");
    require(settings.threshold == 0.0F || result.tripped || result.score <= settings.threshold,
            "a total above the threshold is noticed");
    requireScore(result.matches);
}

void s_requireSame(const Result &one, const Result &other) {
    require(one.language == other.language && one.mask == other.mask &&
                one.tripped == other.tripped && one.score == other.score &&
                std::equal(one.matches->begin(), one.matches->end(), other.matches->begin(),
                           other.matches->end()),
            "a message scans the same again, and rule by rule");
}

// A threshold and a percentage take rules away. Meta rules may say that a rule has not tripped, so
// they are left out.
void s_requireSubset(const Result &limited, const Result &full) {
    for (const RefRule &rule : *limited.matches) {
        require(rule->type() == Rule::Meta || !full.matches.find(rule->name()).isNull(),
                "limits add no rule");
    }
}

} // namespace

// The first byte is the percentage, the second the threshold in quarters, the third the size of the
// pieces in which the message streams past at the second scan; the rest is the message.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Scanner s_scanner = s_load();
    static Scanner s_walk = s_loadForWalk();
    if (size < kSettingsBytes) {
        return 0;
    }
    const Buffer message(data + kSettingsBytes, static_cast<unsigned int>(size - kSettingsBytes),
                         true);
    const float threshold = kThresholdStep * static_cast<float>(static_cast<std::int8_t>(data[1]));
    const Settings whole{data[0], threshold, std::max(message.length(), 1U)};
    const Settings pieces{data[0], threshold, data[2] + 1U};
    const Settings unlimited{0, 0.0F, whole.pieceBytes};
    const Result first = s_scan(s_scanner, message, whole);
    const Result full = s_scan(s_scanner, message, unlimited);
    s_requireSame(first, s_scan(s_scanner, message, pieces));
    s_requireSame(first, s_scan(s_walk, message, whole));
    s_requireSubset(first, full);
    s_requireResult(s_scanner, whole, first);
    s_requireResult(s_scanner, unlimited, full);
    return 0;
}
