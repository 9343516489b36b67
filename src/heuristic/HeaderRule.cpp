#include "heuristic/HeaderRule.h"

#include <algorithm>
#include <functional>

#include "heuristic/Definition.h"
#include "heuristic/Failure.h"
#include "heuristic/HeaderPass.h"
#include "host/parser/HeaderText.h"

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "HeaderRule";
constexpr unsigned int kValueLine = 258;
constexpr unsigned int kMatchesLine = 308;
constexpr unsigned int kCheckStdListLine = 334;
constexpr unsigned int kCheckHeaderListLine = 345;
constexpr const char *kExistsPrefix = "exists:";
constexpr const char *kIfUnset = "[if-unset:";

Buffer s_view(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), true};
}

Buffer s_copy(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

} // namespace

Buffer headerValueDecode(const std::string &text) {
    if (holdsEncodedWord(text)) {
        try {
            return stringDecodeRfc2047(text);
        } catch (const Exception &) {
            // What cannot be decoded is tried as it stands.
            return s_view(text);
        }
    }
    return s_view(text);
}

HeaderRuleParameter::HeaderRuleParameter(const Header &header)
    : Header(header), value_(headerValueDecode(Header::value())) {}

HeaderRuleParameter::~HeaderRuleParameter() = default;

const Buffer &HeaderRuleParameter::raw() const {
    if (raw_.isEmpty()) {
        raw_ = s_view(Header::value());
    }
    return raw_;
}

const Buffer &HeaderRuleParameter::addr() const {
    if (addr_.isEmpty()) {
        const EmailAddress parsed = EmailAddress::rfc5322Parse(Header::value(), true);
        addr_ = parsed.isNull() ? Buffer(nullptr, 0, true) : s_copy(parsed.address());
    }
    return addr_;
}

const Buffer &HeaderRuleParameter::name() const {
    if (name_.isEmpty()) {
        const EmailAddress parsed = EmailAddress::rfc5322Parse(Header::value(), true);
        name_ = parsed.isNull() ? Buffer(nullptr, 0, true) : s_copy(parsed.displayName());
    }
    return name_;
}

const Buffer &HeaderRuleParameter::all() const {
    if (all_.isEmpty()) {
        wholeText_ = asString();
        all_ = headerValueDecode(wholeText_);
    }
    return all_;
}

const Buffer &HeaderRuleParameter::form(HeaderForm form) const {
    switch (form) {
    case HeaderForm::All:
        return all();
    case HeaderForm::Raw:
        return raw();
    case HeaderForm::Addr:
        return addr();
    case HeaderForm::Name:
        return name();
    default:
        return value();
    }
}

HeaderRule::HeaderRule() : HeaderRule(std::string()) {}

HeaderRule::HeaderRule(const std::string &name) : Rule(Header, name) {}

HeaderRule::~HeaderRule() = default;

void HeaderRule::value(const std::string &definition) {
    try {
        parse(definition);
        Rule::value(definition);
    } catch (const Exception &failure) {
        wrap(failure, "HeaderRule::Value", kFile, kValueLine, name());
    }
}

// Replaces all that a former definition said, but only once the expression has compiled.
void HeaderRule::parse(const std::string &definition) {
    Selection selection;
    Regex::Expression expression;
    if (definition.rfind(kExistsPrefix, 0) == 0) {
        selection.exists = true;
        selection.pattern =
            StringPattern(definition.substr(std::string(kExistsPrefix).size()), true, false);
    } else if (!isEval(definition)) {
        expression = Regex::Expression(select(selection, definition), Regex::kDotMatchesAll, true);
    }
    selection_ = selection;
    expression_ = expression;
}

std::string HeaderRule::expression() const {
    Selection ignored;
    return expression_.isNull() ? std::string() : select(ignored, value());
}

// Reads name, operator and expression, as far as they are there; answers the text of the expression.
std::string HeaderRule::select(Selection &selection, const std::string &definition) {
    const std::size_t nameEnd = stringFindWhiteSpace(definition, 0);
    if (nameEnd == std::string::npos) {
        return {};
    }
    selectName(selection, definition.substr(0, nameEnd));
    std::size_t at = stringFindNonWhiteSpace(definition, nameEnd);
    if (at == std::string::npos || at + 1 == definition.size()) {
        // A single character behind the name is no expression, whatever it is.
        return {};
    }
    if ((definition[at] == '=' || definition[at] == '!') && definition[at + 1] == '~') {
        selection.positive = definition[at] == '=';
        at = stringFindNonWhiteSpace(definition, at + 2);
    }
    if (at == std::string::npos) {
        return {};
    }
    std::string text = definition.substr(at);
    cutIfUnset(selection, text);
    return text;
}

void HeaderRule::selectName(Selection &selection, const std::string &name) {
    if (name == "MESSAGEID") {
        selection.pattern = StringPattern("Message-Id", true, true);
        return;
    }
    if (name == "ToCc") {
        selection.pattern = StringPattern("^to|^cc", true, true);
        return;
    }
    if (name == "ALL") {
        selection.form = HeaderForm::All;
        selection.pattern = StringPattern("*", true, false);
        return;
    }
    std::string plain = name;
    constexpr struct {
        const char *text;
        HeaderForm form;
    } kSuffixes[] = {
        {":addr", HeaderForm::Addr}, {":name", HeaderForm::Name}, {":raw", HeaderForm::Raw}};
    for (const auto &suffix : kSuffixes) {
        const std::size_t start = plain.find(suffix.text);
        if (start != std::string::npos) {
            selection.form = suffix.form;
            plain.erase(start);
            break;
        }
    }
    selection.pattern = StringPattern(plain, true, false);
}

void HeaderRule::cutIfUnset(Selection &selection, std::string &expression) {
    const std::size_t start = expression.find(kIfUnset);
    if (start == std::string::npos) {
        return;
    }
    const std::size_t colon = expression.find(':', start);
    const std::size_t bracket = expression.rfind(']');
    if (bracket != std::string::npos && bracket > colon) {
        selection.ifUnset = expression.substr(colon + 1, bracket - colon - 1);
        stringLeftTrim(selection.ifUnset);
        stringRightTrim(selection.ifUnset);
    }
    expression.erase(start);
}

bool HeaderRule::matches(const HeaderRuleParameter &header) const {
    try {
        return test(header);
    } catch (const Exception &failure) {
        wrap(failure, "HeaderRule::Value", kFile, kMatchesLine);
    }
}

bool HeaderRule::test(const HeaderRuleParameter &header) const {
    if (!active() || header.isNull() || selection_.pattern.isNull() ||
        !selection_.pattern.matches(header.type())) {
        return false;
    }
    if (selection_.exists) {
        return true;
    }
    const Buffer &text = header.form(selection_.form);
    if (expression_.isNull()) {
        return false;
    }
    bool failed = false;
    const bool matched = expression_(text, &failed);
    return !failed && matched == selection_.positive;
}

HeaderCheck::HeaderCheck(RefRuleList &rules, RefMatches &matches, unsigned int ordinalCutoff,
                         bool verbose)
    : RuleCheck(matches, ordinalCutoff, verbose), rules_(rules, false) {}

HeaderCheck::HeaderCheck(FilteredList &filtered, RefMatches &matches)
    : RuleCheck(filtered, matches) {}

HeaderCheck::HeaderCheck(const HeaderCheck &) = default;
HeaderCheck &HeaderCheck::operator=(const HeaderCheck &) = default;
HeaderCheck::~HeaderCheck() = default;

bool HeaderCheck::operator()(const Header &header) {
    if (filtered_ != nullptr && HeaderPass::isTooLong(header, HeaderValues::AsTheyAre)) {
        return walk(header);
    }
    if (filtered_ != nullptr) {
        HeaderPass pass(*filtered_, matches_);
        pass.add(header, HeaderValues::AsTheyAre);
        return pass.run();
    }
    const HeaderRuleParameter parameter(header);
    const std::list<RefRule> matched = tryRules(rules_, [&parameter](const Rule &rule) {
        return static_cast<const HeaderRule &>(rule).matches(parameter);
    });
    eraseAll(rules_, matched);
    return matches_->tripped();
}

// The same for a header that is too long to be copied, rule by rule.
bool HeaderCheck::walk(const Header &header) {
    const HeaderRuleParameter parameter(header);
    filtered_->walk(matches_, [&parameter](const Rule &rule) {
        return static_cast<const HeaderRule &>(rule).matches(parameter);
    });
    return matches_->tripped();
}

// Each header in order, up to the one that trips the match set.
template <class Headers>
void HeaderCheck::checkAll(const Headers &headers) {
    if (filtered_ != nullptr) {
        HeaderPass pass(*filtered_, matches_);
        checkFiltered(pass, headers.begin(), headers.end(), HeaderValues::AsTheyAre);
    } else {
        (void)std::find_if(headers.begin(), headers.end(), [this](const Header &header) {
            return Budget::isOver() || (*this)(header);
        });
    }
}

// Tries the headers from next on, and those that the pass has taken already.
template <class Iterator>
void HeaderCheck::checkFiltered(HeaderPass &pass, Iterator next, Iterator end,
                                HeaderValues values) {
    for (; next != end && !Budget::isOver(); ++next) {
        if (HeaderPass::isTooLong(*next, values)) {
            if (pass.run() || walk(headerFor(*next, values))) {
                return;
            }
            continue;
        }
        pass.add(*next, values);
        if (pass.isFull() && pass.run()) {
            return;
        }
    }
    pass.run();
}

void HeaderCheck::checkInUtf8(const EmailAddress &sender, const RefHeaderList &headers) {
    if (filtered_ != nullptr && !headers.isNull()) {
        checkFilteredInUtf8(sender, *headers);
        return;
    }
    check(sender);
    RefHeaderList converted(true);
    for (const Header &header : *headers) {
        if (Budget::spend(header.value().size())) {
            return;
        }
        converted->append(headerFor(header, HeaderValues::InUtf8));
    }
    check(converted);
}

// All in one pass. What fails or trips at the sender is not of the headers.
void HeaderCheck::checkFilteredInUtf8(const EmailAddress &sender, const HeaderList &headers) {
    HeaderPass pass(*filtered_, matches_);
    const bool hasSender = !sender.isNull();
    if (hasSender) {
        pass.add(Header(kSenderName, sender.asString()), HeaderValues::AsTheyAre);
    }
    auto next = headers.begin();
    for (; next != headers.end() && !pass.isFull() && !Budget::isOver() &&
           !HeaderPass::isTooLong(*next, HeaderValues::InUtf8);
         ++next) {
        pass.add(*next, HeaderValues::InUtf8);
    }
    pass.select();
    if (hasSender) {
        pass.firstTurn();
    }
    try {
        if (hasSender && matches_->tripped()) {
            // Rules that match the sender, but were not added, have their turn with the first header again.
            pass.clear();
            checkFiltered(pass, headers.begin(), headers.end(), HeaderValues::InUtf8);
        } else if (!pass.turns(hasSender ? 1 : 0)) {
            checkFiltered(pass, next, headers.end(), HeaderValues::InUtf8);
        }
    } catch (const Exception &failure) {
        wrap(failure, "HeaderCheck::check", kFile, kCheckHeaderListLine);
    }
}

void HeaderCheck::check(const EmailAddress &envelopeFrom) {
    if (!envelopeFrom.isNull()) {
        (*this)(Header(kSenderName, envelopeFrom.asString()));
    }
}

void HeaderCheck::check(const RefHeaderList &headers) {
    try {
        checkAll(*headers);
    } catch (const Exception &failure) {
        wrap(failure, "HeaderCheck::check", kFile, kCheckHeaderListLine);
    }
}

void HeaderCheck::check(const std::list<Header> &headers) {
    try {
        checkAll(headers);
    } catch (const Exception &failure) {
        wrap(failure, "HeaderCheck::check", kFile, kCheckStdListLine);
    }
}

} // namespace Corvane::Heuristic
