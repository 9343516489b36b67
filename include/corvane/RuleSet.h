#ifndef CORVANE_RULESET_H
#define CORVANE_RULESET_H

// The entry to the library: a rule set, and the scoring of messages with it.
//
//     auto rules = corvane::RuleSet::load("/etc/corvane/rules"); // throws corvane::LoadError
//     corvane::ScanOptions options;
//     options.threshold = 5.0F;
//     const corvane::Verdict verdict = rules.scan(bytes, options); // one raw message
//     if (verdict.over()) { ... }
//
// Threads: a set never changes. Any number of threads may use one, and copies of it, at once; one
// object must not be assigned while another thread uses that same object (RuleSetHolder is for
// that). Copies share the set, which is freed with the last of them. Sets are independent: nothing
// in the process but its log knows of them.

#include <cstddef>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/Explanation.h"
#include "corvane/Export.h"
#include "corvane/LoadError.h"
#include "corvane/Problem.h"
#include "corvane/Rule.h"
#include "corvane/RuleFiles.h"
#include "corvane/RuleProfile.h"
#include "corvane/ScanOptions.h"
#include "corvane/Verdict.h"

namespace corvane {

// How many rules there are. A rule that is filed under several languages counts once.
struct RuleCounts {
    std::size_t loaded = 0;     // in the set
    std::size_t active = 0;     // of these, the ones that can trip
    std::size_t refused = 0;    // left out: could not be built
    std::size_t duplicates = 0; // left out: the name was taken in all their languages
    std::size_t files = 0;      // read, files of scores included
};

struct LoadedRules;

class CORVANE_API RuleSet {
public:
    // A set without rules. Moving copies, so that a set that was moved from is still one.
    RuleSet();
    RuleSet(const RuleSet &) noexcept = default;
    RuleSet &operator=(const RuleSet &) noexcept = default;
    ~RuleSet() = default;

    // Loads the rule set of a directory, plain or encrypted; or of several, by one loader, in their
    // order: of two rules of one name, language and kind the first stays, of two scores of one name
    // the last, so that a directory of local scores goes behind the set that it changes. What is
    // wrong with single rules is told by problems(). Throws LoadError where a directory is missing
    // or cannot be read, and where a file cannot be read or decrypted. Directories without rules
    // give an empty set.
    static RuleSet load(const std::string &directory);
    static RuleSet load(const std::vector<std::string> &directories);
    static RuleSet load(std::initializer_list<std::string> directories);

    // The same from memory: what would be read of directories with these files. Nothing is written
    // to disk, except that decryption passes through a temporary file as that of files does. Throws
    // LoadError as load(), and for a name that no file of a directory can have.
    static RuleSet fromMemory(const std::map<std::string, std::string> &files);
    static RuleSet fromFiles(const std::vector<RuleFiles> &directories);

    // Scores a raw message: any bytes are one, with LF or CRLF at the ends of lines; they are
    // borrowed for the call. The same set, message and options give the same verdict, times and an
    // exhausted budget apart. Throws std::bad_alloc, and std::runtime_error where rules cannot be
    // evaluated.
    Verdict scan(std::string_view message, const ScanOptions &options = ScanOptions()) const;

    // The same, and adds to the profile what each rule costs. Throws std::invalid_argument for a
    // profile of another set.
    Verdict scan(std::string_view message, const ScanOptions &options, RuleProfile &profile) const;

    // Scores a message and says where each rule that tripped did; and of the rules asked for by
    // name why they did not. Slow, for those who write rules: what is found is looked for again,
    // for each rule on all that it is tried on. options.trace has no effect. Throws as scan().
    Explanation explain(std::string_view message, const ScanOptions &options = ScanOptions(),
                        const std::vector<std::string> &names = {}) const;

    // Whether the set has no rules, and how many it has.
    bool empty() const noexcept;
    std::size_t size() const noexcept;
    const RuleCounts &counts() const noexcept;

    // The rules in the order they were loaded, and what was wrong with single lines, in the order
    // they were read. Both live as long as a copy of the set.
    const std::vector<Rule> &rules() const noexcept;
    const std::vector<Problem> &problems() const noexcept;

    // The languages that have rules, as Rule::languages names them.
    const std::vector<std::string_view> &languages() const noexcept;

    // The version text of the first README that has one, such as " (v5.123)"; "" without.
    const std::string &version() const noexcept;

    // What the rules are, in 16 hexadecimal digits: the same for the same names and plain bytes of
    // the rule and score files in the same order, wherever they lie and whether they are encrypted.
    // With engine() (Engine.h) it says what gave a verdict.
    const std::string &generation() const noexcept;

private:
    friend class RuleProfile;
    friend class RuleSetLoader;

    explicit RuleSet(std::shared_ptr<const LoadedRules> loaded) noexcept;

    std::shared_ptr<const LoadedRules> loaded_;
};

} // namespace corvane

#endif
