#include "ScanMessage.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include "Failure.h"
#include "heuristic/FullRule.h"
#include "host/parser/MailReader.h"
#include "host/parser/MimePart.h"

namespace Corvane::Cli {

namespace {

using Heuristic::RefMatches;
using Heuristic::RefRule;

constexpr std::array<const char *, 6> kLanguages = {"DEFAULT", "CN", "JP", "KO", "RU", "TH"};
constexpr std::array<const char *, 7> kKinds = {"none",    "header", "uri", "body",
                                                "rawbody", "full",   "meta"};

// The tap takes a copy of each piece: small ones keep that copy small.
constexpr unsigned int kTapPieceBytes = 65536;

TrippedRule s_tripped(const RefRule &rule) {
    const bool counts = !rule->metasubrule() && !rule->score().isNull();
    return {rule->name(), kKinds.at(rule->type()), counts ? rule->score()->value() : 0.0F};
}

// No cutoff reaches the tap: it tries every full rule.
void s_tap(Heuristic::Scanner &scanner, const ScanSettings &settings, Heuristic::langID language,
           const Buffer &bytes, RefMatches &matches) {
    Heuristic::FullTap tap(scanner, scanner.rules().fullRules(language), matches, settings.percent,
                           settings.verbose);
    const unsigned int most =
        std::min(bytes.length(), settings.limits.value(MailLimit::MessageBytes));
    // The tap never checks an unterminated last line, so that need not be kept twice.
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), most);
    const auto length = static_cast<unsigned int>(text.rfind('\n') + 1);
    for (unsigned int from = 0; from < length; from += kTapPieceBytes) {
        tap.write(Buffer(bytes.data() + from, std::min(kTapPieceBytes, length - from), true));
    }
    tap.end();
}

void s_scan(const ScanSettings &settings, const Buffer &bytes, Verdict &verdict) {
    // A handle of its own: many threads share the settings.
    Heuristic::Scanner scanner = settings.scanner;
    const Mail mail = MailReader(settings.limits).read(bytes);
    const Heuristic::langID language =
        Heuristic::Scanner::selectLanguage(mail.properties()->part().operator->());
    RefMatches matches = RefMatches::create();
    if (settings.stop) {
        matches->threshold(settings.threshold);
    }
    s_tap(scanner, settings, language, bytes, matches);
    verdict.mask =
        scanner.process(matches, mail.properties(), settings.sender.value_or(mail.sender()),
                        settings.percent, settings.verbose);
    verdict.language = kLanguages.at(static_cast<std::size_t>(language));
    verdict.score = matches.score(false);
    verdict.tripped = matches->tripped();
    verdict.over = verdict.tripped || verdict.score > settings.threshold;
    verdict.limits = mail.limitsHit();
    std::transform(matches->begin(), matches->end(), std::back_inserter(verdict.rules), s_tripped);
}

} // namespace

Verdict scanMessage(const ScanSettings &settings, const RawMessage &message) {
    using Clock = std::chrono::steady_clock;
    Verdict verdict;
    verdict.file = message.file;
    verdict.index = message.index;
    verdict.failure = message.failure;
    if (!verdict.failure.empty()) {
        return verdict;
    }
    const Clock::time_point start = Clock::now();
    try {
        s_scan(settings, message.bytes, verdict);
    } catch (const Exception &failure) {
        verdict.failure = "cannot scan '" + MessageSource::label(message.file, message.index) +
                          "': " + readable(failure);
    }
    verdict.millis = std::chrono::duration<float, std::milli>(Clock::now() - start).count();
    return verdict;
}

} // namespace Corvane::Cli
