#include "host/parser/html/Tokenizer.h"

#include <algorithm>

#include "host/parser/Text.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/ReplacementText.h"

namespace Corvane::Html {

namespace {

constexpr ByteSet kTagNameStops = byteSet(std::string_view("\t\n\f />\0", 7));
constexpr ByteSet kAttributeNameStops = byteSet(std::string_view("\t\n\f />=\0", 8));
constexpr ByteSet kDoubleQuotedStops = byteSet(std::string_view("\"&\0", 3));
constexpr ByteSet kSingleQuotedStops = byteSet(std::string_view("'&\0", 3));
constexpr ByteSet kUnquotedStops = byteSet(std::string_view("\t\n\f >&\0", 7));

void s_appendLower(std::string &name, const char *from, const char *end) {
    const std::size_t room = kMaxNameBytes - std::min(name.size(), kMaxNameBytes);
    const std::size_t length = std::min(static_cast<std::size_t>(end - from), room);
    std::transform(from, from + length, std::back_inserter(name), toLowerAscii);
}

} // namespace

void Tokenizer::tagOpen() {
    if (isLetter(*next_)) {
        beginTag(false);
        to(State::TagName);
        return;
    }
    switch (*next_) {
    case '!':
        ++next_;
        pending_.clear();
        to(State::MarkupDeclaration);
        break;
    case '/':
        ++next_;
        to(State::EndTagOpen);
        break;
    case '?':
        to(State::BogusComment);
        break;
    default:
        emit("<");
        to(State::Data);
        break;
    }
}

void Tokenizer::endTagOpen() {
    if (isLetter(*next_)) {
        beginTag(true);
        to(State::TagName);
    } else if (*next_ == '>') {
        ++next_;
        to(State::Data);
    } else {
        to(State::BogusComment);
    }
}

void Tokenizer::beginTag(bool isEnd) {
    isEndTag_ = isEnd;
    selfClosing_ = false;
    name_.clear();
    bytes_.clear();
    kept_.clear();
}

void Tokenizer::tagName() {
    const char *const from = next_;
    takeUntil(kTagNameStops);
    s_appendLower(name_, from, next_);
    if (atEnd()) {
        return;
    }
    if (*next_ == '\0') {
        ++next_;
        name_ += kReplacementText;
        return;
    }
    // Blank, '/' and '>' mean the same here as before the name of an attribute.
    to(State::BeforeAttributeName);
}

void Tokenizer::beforeAttributeName() {
    while (!atEnd() && isBlank(*next_)) {
        ++next_;
    }
    if (atEnd()) {
        return;
    }
    if (*next_ == '/') {
        ++next_;
        to(State::SelfClosing);
        return;
    }
    if (*next_ == '>') {
        ++next_;
        emitTag();
        return;
    }
    beginAttribute();
    if (*next_ == '=') {
        ++next_;
        attributeName_ += '=';
    }
    to(State::AttributeName);
}

void Tokenizer::beginAttribute() {
    attributeName_.clear();
    keepsValue_ = false;
}

void Tokenizer::attributeName() {
    const char *const from = next_;
    takeUntil(kAttributeNameStops);
    s_appendLower(attributeName_, from, next_);
    if (atEnd()) {
        return;
    }
    if (*next_ == '\0') {
        ++next_;
        attributeName_ += kReplacementText;
        return;
    }
    endAttributeName();
    if (*next_ == '=') {
        ++next_;
        to(State::BeforeAttributeValue);
        return;
    }
    to(State::AfterAttributeName);
}

void Tokenizer::endAttributeName() {
    const int id = attributeName_.size() < kMaxNameBytes ? sink_.attributeId(attributeName_) : -1;
    keepsValue_ = id != kUnwanted && std::none_of(kept_.begin(), kept_.end(),
                                                  [id](const Kept &one) { return one.id == id; });
    if (keepsValue_) {
        kept_.push_back({id, bytes_.size(), 0, false});
    }
}

void Tokenizer::afterAttributeName() {
    while (!atEnd() && isBlank(*next_)) {
        ++next_;
    }
    if (atEnd()) {
        return;
    }
    if (*next_ == '=') {
        ++next_;
        to(State::BeforeAttributeValue);
        return;
    }
    if (*next_ != '/' && *next_ != '>') {
        beginAttribute();
        to(State::AttributeName);
        return;
    }
    to(State::BeforeAttributeName);
}

void Tokenizer::beforeAttributeValue() {
    while (!atEnd() && isBlank(*next_)) {
        ++next_;
    }
    if (atEnd()) {
        return;
    }
    switch (*next_) {
    case '"':
        ++next_;
        to(State::ValueDoubleQuoted);
        break;
    case '\'':
        ++next_;
        to(State::ValueSingleQuoted);
        break;
    case '>':
        ++next_;
        emitTag();
        break;
    default:
        to(State::ValueUnquoted);
        break;
    }
}

// The characters of a value up to one that the caller has to look at.
void Tokenizer::value(const ByteSet &stops) {
    const char *const from = next_;
    const std::size_t length = takeUntil(stops);
    appendValue({from, length});
    if (atEnd()) {
        return;
    }
    if (*next_ == '\0') {
        ++next_;
        appendValue(kReplacementText);
    } else if (*next_ == '&') {
        ++next_;
        startReference(state_);
    }
}

void Tokenizer::appendValue(std::string_view text) {
    if (!keepsValue_) {
        return;
    }
    Kept &attribute = kept_.back();
    const std::size_t room = maxValueBytes_ - attribute.length;
    if (text.size() > room) {
        attribute.isCut = true;
        text = text.substr(0, room);
    }
    bytes_.append(text);
    attribute.length += text.size();
}

void Tokenizer::valueDoubleQuoted() {
    value(kDoubleQuotedStops);
    if (!atEnd() && state_ == State::ValueDoubleQuoted && *next_ == '"') {
        ++next_;
        to(State::AfterValueQuoted);
    }
}

void Tokenizer::valueSingleQuoted() {
    value(kSingleQuotedStops);
    if (!atEnd() && state_ == State::ValueSingleQuoted && *next_ == '\'') {
        ++next_;
        to(State::AfterValueQuoted);
    }
}

void Tokenizer::valueUnquoted() {
    value(kUnquotedStops);
    if (!atEnd() && state_ == State::ValueUnquoted && (isBlank(*next_) || *next_ == '>')) {
        to(State::BeforeAttributeName);
        // A '/' in front of '>' belongs to the value; nothing else stands between them.
    }
}

void Tokenizer::afterValueQuoted() {
    to(State::BeforeAttributeName);
}

void Tokenizer::selfClosing() {
    if (*next_ == '>') {
        ++next_;
        selfClosing_ = true;
        emitTag();
        return;
    }
    to(State::BeforeAttributeName);
}

void Tokenizer::emitTag() {
    to(State::Data);
    tag_.name = name_;
    tag_.selfClosing = selfClosing_;
    tag_.attributes.clear();
    for (const Kept &one : kept_) {
        const std::string_view value(bytes_.data() + one.start, one.length);
        tag_.attributes.push_back({one.id, value, one.isCut});
    }
    if (isEndTag_) {
        sink_.endTag(tag_);
        return;
    }
    lastStartTag_ = name_;
    sink_.startTag(tag_);
}

} // namespace Corvane::Html
