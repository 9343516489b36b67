#ifndef CORVANE_HEURISTIC_SCANNER_H
#define CORVANE_HEURISTIC_SCANNER_H

// The entry to the library: rule sets, and the scoring of messages with them.
//
//     const File::Path directory("/etc/corvane/rules");
//     Scanner scanner = Scanner::instance(&directory, false);
//     if (scanner.ruleCount() == 0) { ... the load failed, as the log says, or the set is empty ... }
//
//     RefMatches matches = RefMatches::create();
//     matches->threshold(5.0F);
//     scanner.process(matches, properties, sender, 0, false);
//     if (matches->tripped()) { ... }
//
// Threads: any number of threads may scan at once, each with a match set of its own and beside loads and resets. A
// scanner is a handle: copies share the rule set, which lives as long as the last of them. One handle must not be
// assigned while another thread uses it.

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "host/include2/TesselRefcounted.h"
#include "host/parser/Buffer.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/File.h"
#include "host/parser/Header.h"
#include "host/parser/MessageProperties.h"
#include "host/parser/MimePart.h"
#include "host/parser/Mutex.h"

namespace Corvane::Heuristic {

class LoadObserver;
struct RuleSource;

// A loaded rule set.
class CORVANE_HEURISTIC_API ScannerRules : public RefImpl {
public:
    ScannerRules();
    ~ScannerRules() override;

    // The rules, and how many were built from its files.
    RuleContainer container;
    unsigned int ruleCount;

private:
    friend class Scanner;
    friend class StageRules;

    // What fast scans use beside the container's lists; null for a set that was not loaded.
    std::unique_ptr<const RuleIndex> index_;
};

class CORVANE_HEURISTIC_API Scanner : public Ref<ScannerRules> {
public:
    // What process() answers: which body stages have added a rule.
    static constexpr unsigned int kTextMatched = 1;
    static constexpr unsigned int kRawBodyMatched = 2;
    static constexpr unsigned int kSecondTextMatched = 4;

    // A scanner with an empty rule set.
    Scanner();

    // A scanner with the rule set of the directory; logs its counts and version (0x300002C). A directory that is missing
    // or holds no rule files gives an empty set. Throws what RuleFileParser throws.
    explicit Scanner(const File::Path &directory);

    // The same for several directories, on disk or in memory, by one parser; the version is the first that one of them
    // has. The observer hears of each file and line, and at the end of the counts, before this constructor returns.
    Scanner(const std::vector<RuleSource> &sources, LoadObserver &observer);

    Scanner(const Scanner &);
    Scanner(Scanner &&) noexcept;
    Scanner &operator=(const Scanner &);
    Scanner &operator=(Scanner &&) noexcept;
    ~Scanner() override;

    // The scanner of the process.
    //   - With a directory: loads it, makes it the current rule set, and answers a scanner on it. reset has no effect.
    //   - Without one, reset = true: makes an empty rule set the current one and answers a scanner on it.
    //   - Without one, reset = false: answers a scanner on the current rule set. Where none has ever been loaded it waits
    //     a few milliseconds for one, then logs that (0x300002D) and answers a scanner with an empty set of its own.
    // A failed load is logged (0x300002E); the answer is a scanner with an empty set of its own, for which ruleCount() is
    // 0, and the current rule set stays. directory is borrowed for the call. Throws nothing of this library.
    static Scanner instance(const File::Path *directory, bool reset);

    // Whether any rule set has been loaded in this process.
    bool ready() const;

    // The rules of this scanner's set, and how many were built from its files (0: empty).
    RuleContainer &rules() const;
    unsigned int ruleCount() const;

    // The ordinal below which a rule must be to belong to the first percent of the set; 0, for percent 0, means all.
    unsigned int getordinalCutoff(unsigned int percent) const;

    // The language whose rules are for a message with this main part (null: none), by the charset declared for its
    // text, and for UTF-8 by the text itself. Never ALL; throws nothing.
    static langID selectLanguage(const MimePart *textPart);

    // Tries all rules of the message's language: the header rules on the sender and the headers, the body rules on the
    // Subject and the text, the raw-body rules on the raw body, the body rules on a second rendering, the URI rules, the
    // full rules on the headers, and last the meta rules; each stage only while the match set is not tripped. percent
    // limits the rules as getordinalCutoff says; verbose traces each rule tried on standard output. Answers which body
    // stages have added a rule; 0 where no set was ever loaded. Throws code 1 for an empty handle, and what the checks
    // throw; what was added before stays.
    unsigned int process(RefMatches &matches, const RefMessageProperties &message,
                         const EmailAddress &sender, unsigned int percent, bool verbose);

    // Tries the given full rules on a text, unless the match set is tripped; those that match are erased from the list.
    // Neither this scanner's rules nor any cutoff play a part. Throws as FullCheck::check.
    void process(RefRuleList &rules, RefMatches &matches, const Buffer &text, bool verbose);

    // Try the raw-body rules, and the body rules, of a language on a body, unless the match set is tripped; answer
    // whether it has grown. Throw as RuleContainer's getters and BodyCheck::check.
    bool checkRaw(RefMatches &matches, langID language, const Buffer &body, unsigned int percent,
                  bool verbose);
    bool check(RefMatches &matches, langID language, const Buffer &body, unsigned int percent,
               bool verbose);

    // Tries the header rules of a language on an envelope sender, unless the match set is tripped.
    void check(RefMatches &matches, langID language, const EmailAddress &sender,
               unsigned int percent, bool verbose);

    // Tries the header rules of a language on headers, the body rules on their Subject and the full rules on them, each
    // while the match set is not tripped.
    void check(RefMatches &matches, langID language, const HeaderContainer &headers,
               unsigned int percent, bool verbose);

private:
    void load(const std::vector<RuleSource> &sources, LoadObserver *observer);
    static bool waitUntilReady();

    static Mutex m_mutex;
    static std::atomic<bool> m_ready;
};

} // namespace Corvane::Heuristic

#endif
