// Scores messages from a program of one's own: docs/embedding.md explains it piece by piece.
//
//     embed MESSAGE DIRECTORY NEXT
//
// MESSAGE is a file with one raw message, DIRECTORY a rule set, NEXT one that is to replace it.

#include <atomic>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <heuristic/FullRule.h>
#include <heuristic/LogRecords.h>
#include <heuristic/Scanner.h>
#include <host/parser/Exception.h>
#include <host/parser/Logger.h>
#include <host/parser/MailLimits.h>
#include <host/parser/MailReader.h>
#include <host/parser/Media.h>
#include <host/parser/Uri.h>

using namespace Corvane;
using namespace Corvane::Heuristic;

namespace {

constexpr float kThreshold = 5.0F;
constexpr unsigned int kAllRules = 0;
constexpr bool kNoTrace = false;

// Called on whichever thread logs, and on several at once.
void logRecord(unsigned int id, int /*level*/, const std::string &text) {
    static std::mutex s_mutex;
    const std::lock_guard<std::mutex> lock(s_mutex);
    std::clog << (id == kLogRulesLoaded ? "info " : "warning ") << std::hex << id << std::dec
              << ": " << Logger::printable(text) << '\n';
}

// Makes the rule set of the directory the current one and answers whether it holds rules. A set that cannot be loaded
// leaves the current one in place; one without rules replaces it. A missing directory would count as such.
bool load(const std::string &directory) {
    const File::Path path(directory);
    return path.exists() && Scanner::instance(&path, false).ruleCount() > 0;
}

// The rules that a raw message trips.
RefMatches scanBytes(Scanner scanner, const Buffer &bytes) {
    const Mail mail = MailReader().read(bytes);
    const langID language = Scanner::selectLanguage(mail.properties()->part().operator->());
    RefMatches matches = RefMatches::create();

    // Full rules see the bytes as they are.
    FullTap tap(scanner, scanner.rules().fullRules(language), matches, kAllRules, kNoTrace);
    tap.write(bytes);
    tap.end();

    // All others see what the reader made of them.
    scanner.process(matches, mail.properties(), mail.sender(), kAllRules, kNoTrace);
    return matches;
}

void show(const std::string &title, const RefMatches &matches) {
    const float total = matches.score(false);
    std::cout << title << ": " << total << (total > kThreshold ? ", over\n" : ", ok\n");
    for (const RefRule &rule : *matches) {
        std::cout << "    " << rule->name();
        if (!rule->metasubrule()) {
            std::cout << ' ' << rule->score()->value();
        }
        std::cout << '\n';
    }
}

// A text as a part's attribute. The copy outlives the caller's string.
Ref<MPartAttribute> textAttribute(const std::string &charset, const std::string &text) {
    const Buffer copy(text.data(), static_cast<unsigned int>(text.size()), false);
    return Ref<MPartAttribute>(new MPartText(charset, copy, 0));
}

Ref<MPartAttribute> uriAttribute(const std::string &uri) {
    auto *uris = new UriContainer;
    Ref<MPartAttribute> attribute(uris);
    uris->add(UriContainer::kText, Uri(uri));
    return attribute;
}

// What a parser of one's own hands over instead of the mail reader's result.
RefMessageProperties ownMessage() {
    const RefHeaderList headers(true);
    headers->append(Header("From", "Claims Desk <desk@claims.example.com>"));
    headers->append(Header("Subject", "Claim your prize"));

    const Ref<MimePart> part(new MimePart);
    part->attr(MPartAttribute::Text, textAttribute("utf-8", "You have won.\n"));
    part->attr(MPartAttribute::RawText, textAttribute("utf-8", "You have won.\r\n"));
    part->attr(MPartAttribute::Uris, uriAttribute("http://claims.example.com/form"));
    return RefMessageProperties::create(headers, part);
}

RefMatches scanOwnMessage(Scanner scanner) {
    const EmailAddress sender("", "bounce@claims.example.com");
    RefMatches matches = RefMatches::create();
    matches->threshold(kThreshold);
    scanner.process(matches, ownMessage(), sender, kAllRules, kNoTrace);
    return matches;
}

// Scans on two threads while this one loads the rule set anew. Answers how many totals were not the expected one.
unsigned int scanWhileReloading(const std::string &directory, const Buffer &bytes, float expected) {
    constexpr unsigned int kThreads = 2;
    constexpr int kScans = 200;
    constexpr int kReloads = 5;
    std::atomic<unsigned int> differing{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (unsigned int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&differing, &bytes, expected] {
            for (int scan = 0; scan < kScans; ++scan) {
                // A handle of its own for each message: a reload beside it changes nothing in this scan.
                const Scanner current = Scanner::instance(nullptr, false);
                differing += scanBytes(current, bytes).score(false) == expected ? 0U : 1U;
            }
        });
    }
    for (int reload = 0; reload < kReloads; ++reload) {
        load(directory);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    return differing;
}

int run(const std::string &message, const std::string &directory, const std::string &next) {
    if (!load(directory)) {
        std::cerr << "embed: no rules from " << directory << '\n';
        return 2;
    }
    Buffer bytes;
    FileMediaIn(message).read(bytes, kMaxMessageBytes);

    const Scanner scanner = Scanner::instance(nullptr, false);
    const RefMatches matches = scanBytes(scanner, bytes);
    const float total = matches.score(false);
    show("message", matches);
    show("own message", scanOwnMessage(scanner));
    std::cout << "different while reloading: " << scanWhileReloading(directory, bytes, total)
              << '\n';

    const bool loaded = load(next);
    std::cout << (loaded ? "loaded: " : "not loaded: ")
              << Scanner::instance(nullptr, false).ruleCount() << " rules\n";
    return total > kThreshold ? 1 : 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::cerr << "usage: embed MESSAGE DIRECTORY NEXT\n";
        return 2;
    }
    Logger::instance(false).sink(logRecord);
    try {
        return run(argv[1], argv[2], argv[3]);
    } catch (const Exception &failure) {
        std::cerr << "embed: " << failure.what() << '\n';
        return 2;
    }
}
