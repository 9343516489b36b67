#include "host/parser/html/Tokenizer.h"

#include <algorithm>

#include "host/parser/Text.h"
#include "host/parser/Utf8.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/ReplacementText.h"

namespace Corvane::Html {

namespace {

constexpr ByteSearch kTagNameStop = findFirst<'\t', '\n', '\f', ' ', '/', '>', '\0'>;
constexpr ByteSearch kAttributeNameStop = findFirst<'\t', '\n', '\f', ' ', '/', '>', '=', '\0'>;
constexpr ByteSearch kDoubleQuotedStop = findFirst<'"', '&', '\0'>;
constexpr ByteSearch kSingleQuotedStop = findFirst<'\'', '&', '\0'>;
constexpr ByteSearch kUnquotedStop = findFirst<'\t', '\n', '\f', ' ', '>', '&', '\0'>;

void s_appendLower(std::string &name, const char *from, const char *end) {
    const std::size_t room = kMaxNameBytes - std::min(name.size(), kMaxNameBytes);
    const std::size_t length = std::min(static_cast<std::size_t>(end - from), room);
    const std::size_t before = name.size();
    name.resize(before + length);
    std::transform(from, from + length, name.data() + before, toLowerAscii);
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
    takeUntil(kTagNameStop);
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

// Takes an attribute of the usual form, name="value", if it stands whole in what was fed and holds
// nothing that needs a closer look; all others are read state by state.
bool Tokenizer::takePlainAttribute() {
    while (!atEnd() && isBlank(*next_)) {
        ++next_;
    }
    const std::string_view rest(next_, static_cast<std::size_t>(end_ - next_));
    const std::size_t nameLength = kAttributeNameStop(rest.substr(0, kMaxNameBytes), 0);
    constexpr std::string_view kBegin = "=\"";
    const std::size_t start = nameLength + kBegin.size();
    if (nameLength == 0 || rest.substr(nameLength, kBegin.size()) != kBegin) {
        return false;
    }
    const std::size_t end = kDoubleQuotedStop(rest, start);
    if (end == rest.size() || rest[end] != '"') {
        return false;
    }
    beginAttribute();
    s_appendLower(attributeName_, next_, next_ + nameLength);
    endAttributeName();
    appendValue(rest.substr(start, end - start));
    next_ += end + 1;
    return true;
}

void Tokenizer::beforeAttributeName() {
    while (takePlainAttribute()) {
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
    takeUntil(kAttributeNameStop);
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
void Tokenizer::value(ByteSearch stop) {
    const char *const from = next_;
    const std::size_t length = takeUntil(stop);
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
    value(kDoubleQuotedStop);
    if (!atEnd() && state_ == State::ValueDoubleQuoted && *next_ == '"') {
        ++next_;
        to(State::AfterValueQuoted);
    }
}

void Tokenizer::valueSingleQuoted() {
    value(kSingleQuotedStop);
    if (!atEnd() && state_ == State::ValueSingleQuoted && *next_ == '\'') {
        ++next_;
        to(State::AfterValueQuoted);
    }
}

void Tokenizer::valueUnquoted() {
    value(kUnquotedStop);
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
        std::string_view value(bytes_.data() + one.start, one.length);
        if (one.isCut) {
            value = value.substr(0, utf8WholeLength(value.data(), value.size()));
        }
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
