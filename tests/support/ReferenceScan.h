#ifndef CORVANE_TESTS_SUPPORT_REFERENCESCAN_H
#define CORVANE_TESTS_SUPPORT_REFERENCESCAN_H

// A second, slow scanner for comparison: what a scan must find, in what order and after which tries. Every rule of a
// list is tried after the other on every text, with nothing left out and nothing remembered.
//
//     const ReferenceRules rules(scanner);
//     ReferenceScan scan(rules, {37, 5.0F, true});
//     ReferenceTap tap(scan, language);      // optional, as is the tap of a real scan
//     tap.write(bytes);
//     scan.process(mail.properties(), mail.sender());
//     scan.outcome().additions;
//
// It shares the host library and the loaded lists with the scanner, but neither rules' matching, nor checks, nor match
// sets. Rules that are no sub-rules must have a score, as all rules of a loaded set have.
//
// Threads: one thread.

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "heuristic/Scanner.h"
#include "host/regex/Expression.h"
#include "host/regex/StringPattern.h"
#include "support/MetaReference.h"

namespace Corvane::Heuristic {

struct ReferenceRule {
    std::string name;
    bool subRule = false;
    bool active = false;
    float score = 0.0F;
    unsigned int ordinal = 0;
    Regex::Expression expression;

    // Of a header rule: the headers it is for, and which form of their value it looks at.
    enum class Form { Decoded, Raw, Address, DisplayName, Whole };
    StringPattern headerName;
    Form form = Form::Decoded;
    bool positive = true;
    bool exists = false;

    // Of a meta rule.
    MetaTokens tokens;
};

// The rules of a scanner, each compiled anew from its definition.
class ReferenceRules {
public:
    using List = std::vector<const ReferenceRule *>;

    // The scanner may be dropped afterwards.
    explicit ReferenceRules(const Scanner &scanner);

    // The rules of a kind in the order of the loaded list; owned by this object.
    const List &list(langID language, Rule::Type kind) const { return lists_.at({language, kind}); }

    // The ordinal from which on rules are left out; 0 for none.
    unsigned int cutoff(unsigned int percent) const;

private:
    std::map<const Rule *, ReferenceRule> compiled_;
    std::map<std::pair<langID, Rule::Type>, List> lists_;
    unsigned int count_;
};

struct ReferenceSettings {
    unsigned int percent = 0;
    float threshold = 0.0F;
    bool verbose = false;
};

struct ReferenceOutcome {
    enum class Stage { Tap, Header, Text, RawBody, SecondText, Uri, Full, Meta };
    static constexpr unsigned int kStages = 8;

    struct Addition {
        std::string name;
        Stage stage;
        float total; // with this rule
    };

    std::vector<Addition> additions; // in the order they were made
    float score = 0.0F;
    bool tripped = false;
    unsigned int mask = 0;
    std::string trace; // the names tried, each with a line end
};

class ReferenceScan {
public:
    // Both must outlive the scan; it is for one message.
    ReferenceScan(const ReferenceRules &rules, const ReferenceSettings &settings)
        : rules_(rules), settings_(settings) {}

    void process(const RefMessageProperties &message, const EmailAddress &sender);

    ReferenceOutcome outcome() const;

    static langID language(const MimePart *part);

private:
    friend class ReferenceTap;
    using List = ReferenceRules::List;
    using Stage = ReferenceOutcome::Stage;
    using Test = std::function<bool(const ReferenceRule &)>;

    bool add(const ReferenceRule &rule);
    bool tripped();
    List tryEach(const List &list, const Test &matches);
    static void erase(List &list, const List &matched);

    void headerStage(const MessageProperties &message, const EmailAddress &sender, langID language);
    void textStage(const MessageProperties &message, langID language);
    void bodyStage(const MimePart &part, Stage stage, langID language);
    void uriStage(const MimePart &part, langID language);
    void fullStage(const RefHeaderList &headers, langID language);
    void metaStage(langID language);

    bool checkHeader(List &list, const Header &header);
    void checkBody(List &list, const std::string &body);
    void checkLine(List &list, const std::string &line);

    const ReferenceRules &rules_;
    const ReferenceSettings settings_;
    unsigned int cutoff_ = 0;
    Stage stage_ = Stage::Tap;

    std::map<std::string, float> held_; // what each rule held counts
    float total_ = 0.0F;
    bool tripped_ = false;
    ReferenceOutcome outcome_;
};

// Feeds full rules with a message that arrives in pieces; for before the scan's process().
class ReferenceTap {
public:
    // Adds to the scan, which must outlive it.
    ReferenceTap(ReferenceScan &scan, langID language)
        : scan_(scan), list_(scan.rules_.list(language, Rule::Full)) {}

    void write(const std::string &data);
    bool end() const { return pending_.empty(); }

private:
    ReferenceScan &scan_;
    ReferenceRules::List list_;
    std::string pending_;
};

} // namespace Corvane::Heuristic

#endif
