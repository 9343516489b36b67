#ifndef CORVANE_HEURISTIC_HEADERRULE_H
#define CORVANE_HEURISTIC_HEADERRULE_H

// Header rules: an expression that the value of a named header must, or must not, match, or a test that a header is
// there; and the check that runs a list of them over the headers of one message and its envelope sender.
//
//     RefRule rule(Rule::Header, "FROM_EXAMPLE");
//     rule->value("From:addr =~ /@example\\.org$/i");
//     HeaderCheck check(rules, matches, 0, false);
//     check.check(sender);
//     check.check(headers);
//
// Threads: a rule is immutable once its value is set; a check, and the parameter it wraps a header in, belong to one
// thread.

#include <list>
#include <string>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "host/parser/Buffer.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/Header.h"
#include "host/regex/Expression.h"
#include "host/regex/StringPattern.h"

namespace Corvane::Heuristic {

enum class HeaderValues;
class HeaderPass;

// The text with its encoded words (RFC 2047) decoded, owning its bytes; or, where it holds none or they cannot be
// decoded, a view of text as it stands, which must outlive the result.
CORVANE_HEURISTIC_API Buffer headerValueDecode(const std::string &text);

// What of a header a rule is tried on: the value decoded; as it stands; the address and the display name parsed from it;
// the whole header, name included, decoded.
enum class HeaderForm : unsigned char { Value, Raw, Addr, Name, All };

// One header of a message, with the forms of its value that rules ask for. Each form is prepared when a rule first asks
// for it. The buffers live as long as this object, which is why it cannot be copied.
class CORVANE_HEURISTIC_API HeaderRuleParameter : public Header {
public:
    explicit HeaderRuleParameter(const Header &header);
    HeaderRuleParameter(const HeaderRuleParameter &) = delete;
    HeaderRuleParameter &operator=(const HeaderRuleParameter &) = delete;
    ~HeaderRuleParameter() override;

    const Header &header() const { return *this; }

    // The value decoded; as it stands; the address and the display name parsed from it (empty where it holds no
    // address); and the whole header, name included, decoded.
    const Buffer &value() const { return value_; }
    const Buffer &raw() const;
    const Buffer &addr() const;
    const Buffer &name() const;
    const Buffer &all() const;
    const Buffer &form(HeaderForm form) const;

private:
    Buffer value_;
    // Filled on the first request; one that came out empty is prepared again.
    mutable Buffer raw_;
    mutable Buffer addr_;
    mutable Buffer name_;
    mutable Buffer all_;
    mutable std::string wholeText_; // all_ may view it
};

class CORVANE_HEURISTIC_API HeaderRule : public Rule {
public:
    // A rule of kind Header that matches nothing until it has a value.
    HeaderRule();
    explicit HeaderRule(const std::string &name);
    ~HeaderRule() override;

    // Takes one of these, and stores it as it stands:
    //     NAME[:addr|:name|:raw] [=~|!~] EXPRESSION [[if-unset: TEXT]]
    //     exists:NAME
    //     eval:ANYTHING          logged (0x300002F), never matches
    // NAME may hold *, which stands for any run of characters; MESSAGEID, ToCc and ALL stand for the headers whose names
    // contain "Message-Id", those whose names begin with "to" or "cc", and every header with its name. A definition
    // that lacks a name or an expression is stored and never matches. Throws code 4 where the expression does not
    // compile; the rule stays as it was then.
    void value(const std::string &definition) override;
    using Rule::value;

    // The names of the headers that the rule is tried on; the null pattern where its definition gives none. The reference
    // lives as long as the rule.
    const StringPattern &headers() const { return selection_.pattern; }

    // The expression as the definition has it, and whether a value must match it; empty where there is none.
    std::string expression() const;
    bool isPositive() const { return selection_.positive; }

    // The expression as it is compiled, null where there is none; which form of a value it is tried on; and whether the
    // definition asks only whether a header is there.
    const Regex::Expression &compiled() const { return expression_; }
    HeaderForm form() const { return selection_.form; }
    bool asksForPresence() const { return selection_.exists; }

    // Whether the definition has an expression, or asks only whether a header is there; without, the rule never matches.
    bool isComplete() const { return selection_.exists || !expression_.isNull(); }

    // Whether the rule is active, applies to the header, and its expression matches (or, after !~, does not). A failing
    // expression is no match either way. Throws code 4, with the cause attached.
    bool matches(const HeaderRuleParameter &header) const;

private:
    friend class RuleIndex;

    // What the part of a definition before the expression says.
    struct Selection {
        StringPattern pattern;
        HeaderForm form = HeaderForm::Value;
        bool positive = true;
        bool exists = false;
        // The text of an [if-unset: ...] clause. Rules are tried on headers that are present only, so it has no use.
        std::string ifUnset;
    };

    static std::string select(Selection &selection, const std::string &definition);
    static void selectName(Selection &selection, const std::string &name);
    static void cutIfUnset(Selection &selection, std::string &expression);
    void parse(const std::string &definition);
    bool test(const HeaderRuleParameter &header) const;
    Selection selection_;
    Regex::Expression expression_;
};

class CORVANE_HEURISTIC_API HeaderCheck : public RuleCheck {
public:
    // The name of the header that the envelope sender is tried as.
    static constexpr const char *kSenderName = "EnvelopeFrom";

    // Works on the caller's list: rules that have matched are erased from it. The list must hold header rules only.
    // Copies of a check share list and match set.
    HeaderCheck(RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff, bool verbose);
    HeaderCheck(const HeaderCheck &);
    HeaderCheck &operator=(const HeaderCheck &);
    virtual ~HeaderCheck();

    // Tries every rule left on one header and answers whether the match set is tripped then; ends early where an
    // addition trips it. Throws as HeaderRule::matches and RefMatches::add.
    bool operator()(const Header &header);

    // Tries the rules on a header made from the envelope sender; does nothing for a null address. Throws as operator().
    void check(const EmailAddress &envelopeFrom);

    // Try the rules on each header in order, up to the one that trips the match set. Throw code 4, with the cause
    // attached; what was added before stays.
    void check(const RefHeaderList &headers);
    void check(const std::list<Header> &headers);

    // As check(sender) and then check(headers), but with the headers' values repaired to UTF-8 and cut to 2047 bytes each.
    void checkInUtf8(const EmailAddress &sender, const RefHeaderList &headers);

private:
    friend class StageRules;

    HeaderCheck(FilteredList &filtered, RefMatches &matches);

    template <class Headers>
    void checkAll(const Headers &headers);
    template <class Iterator>
    void checkFiltered(HeaderPass &pass, Iterator next, Iterator end, HeaderValues values);
    void checkFilteredInUtf8(const EmailAddress &sender, const HeaderList &headers);
    bool walk(const Header &header);
    RefRuleList rules_;
};

} // namespace Corvane::Heuristic

#endif
