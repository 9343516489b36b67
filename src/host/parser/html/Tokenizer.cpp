#include "host/parser/html/Tokenizer.h"

#include <algorithm>

#include "host/parser/Text.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/ReplacementText.h"

namespace Corvane::Html {

namespace {

constexpr ByteSearch kDataStop = findFirst<'<', '&'>;
constexpr ByteSearch kRcdataStop = findFirst<'<', '&', '\0'>;
constexpr ByteSearch kRawtextStop = findFirst<'<', '\0'>;
constexpr ByteSearch kPlaintextStop = findFirst<'\0'>;
constexpr ByteSearch kEscapedStop = findFirst<'-', '<', '\0'>;
constexpr ByteSearch kCdataStop = findFirst<']'>;

} // namespace

// In the order of the states.
const std::array<Tokenizer::Handler, Tokenizer::kStates> Tokenizer::m_handlers{
    &Tokenizer::data,
    &Tokenizer::rcdata,
    &Tokenizer::rawtext,
    &Tokenizer::script,
    &Tokenizer::plaintext,
    &Tokenizer::cdata,
    &Tokenizer::tagOpen,
    &Tokenizer::endTagOpen,
    &Tokenizer::tagName,
    &Tokenizer::textLessThan,
    &Tokenizer::textEndTagOpen,
    &Tokenizer::textEndTagName,
    &Tokenizer::escapeStart,
    &Tokenizer::escapeStartDash,
    &Tokenizer::escaped,
    &Tokenizer::escapedDash,
    &Tokenizer::escapedDashDash,
    &Tokenizer::escapedLessThan,
    &Tokenizer::doubleEscapeStart,
    &Tokenizer::doubleEscaped,
    &Tokenizer::doubleEscapedDash,
    &Tokenizer::doubleEscapedDashDash,
    &Tokenizer::doubleEscapedLessThan,
    &Tokenizer::doubleEscapeEnd,
    &Tokenizer::beforeAttributeName,
    &Tokenizer::attributeName,
    &Tokenizer::afterAttributeName,
    &Tokenizer::beforeAttributeValue,
    &Tokenizer::valueDoubleQuoted,
    &Tokenizer::valueSingleQuoted,
    &Tokenizer::valueUnquoted,
    &Tokenizer::afterValueQuoted,
    &Tokenizer::selfClosing,
    &Tokenizer::bogusComment,
    &Tokenizer::markupDeclaration,
    &Tokenizer::commentStart,
    &Tokenizer::commentStartDash,
    &Tokenizer::comment,
    &Tokenizer::commentEndDash,
    &Tokenizer::commentEnd,
    &Tokenizer::commentEndBang,
    &Tokenizer::cdataBracket,
    &Tokenizer::cdataEnd,
    &Tokenizer::doctypeStart,
    &Tokenizer::beforeDoctypeName,
    &Tokenizer::doctypeName,
    &Tokenizer::afterDoctypeName,
    &Tokenizer::afterPublicKeyword,
    &Tokenizer::beforePublicId,
    &Tokenizer::publicIdDoubleQuoted,
    &Tokenizer::publicIdSingleQuoted,
    &Tokenizer::afterPublicId,
    &Tokenizer::betweenIds,
    &Tokenizer::afterSystemKeyword,
    &Tokenizer::beforeSystemId,
    &Tokenizer::systemIdDoubleQuoted,
    &Tokenizer::systemIdSingleQuoted,
    &Tokenizer::afterSystemId,
    &Tokenizer::bogusDoctype,
    &Tokenizer::reference,
    &Tokenizer::namedReference,
    &Tokenizer::numericReference,
    &Tokenizer::hexStart,
    &Tokenizer::hexDigits,
    &Tokenizer::digits};

Tokenizer::Tokenizer(TokenSink &sink, std::size_t maxValueBytes)
    : sink_(sink), maxValueBytes_(maxValueBytes) {}

// Line ends become LF here, so that no state knows CR; only a reference can still bring one.
void Tokenizer::feed(std::string_view html) {
    if (!afterReturn_ && html.find('\r') == std::string_view::npos) {
        run(html);
        return;
    }
    unified_.clear();
    while (!html.empty()) {
        if (afterReturn_) {
            afterReturn_ = false;
            // The LF of the pair stands for both.
            unified_.append(html.front() != '\n' ? 1 : 0, '\n');
        }
        const std::size_t end = std::min(html.find('\r'), html.size());
        unified_.append(html.substr(0, end));
        afterReturn_ = end < html.size();
        html.remove_prefix(end + (afterReturn_ ? 1 : 0));
    }
    run(unified_);
}

void Tokenizer::run(std::string_view html) {
    next_ = html.data();
    end_ = next_ + html.size();
    while (!atEnd()) {
        (this->*m_handlers[static_cast<std::size_t>(state_)])();
    }
}

void Tokenizer::readAs(TextKind kind) {
    constexpr std::array<State, 6> kStateOf{State::Data,   State::Rcdata,    State::Rawtext,
                                            State::Script, State::Plaintext, State::Cdata};
    to(kStateOf[static_cast<std::size_t>(kind)]);
}

void Tokenizer::emit(const char *from, const char *end) {
    if (from != end) {
        sink_.characters({from, static_cast<std::size_t>(end - from)});
    }
}

// Passes over the characters before the next that the search finds; how many they were.
std::size_t Tokenizer::takeUntil(ByteSearch stop) {
    const std::size_t length = stop({next_, static_cast<std::size_t>(end_ - next_)}, 0);
    next_ += length;
    return length;
}

// Text up to a '<', a reference or a NUL, which all but data and CDATA replace.
void Tokenizer::textUntilTag(State self, ByteSearch stop) {
    const char *const from = next_;
    takeUntil(stop);
    emit(from, next_);
    if (atEnd()) {
        return;
    }
    switch (*next_++) {
    case '<':
        text_ = self;
        to(self == State::Data ? State::TagOpen : State::TextLessThan);
        break;
    case '&':
        startReference(self);
        break;
    default:
        emit(kReplacementText);
        break;
    }
}

void Tokenizer::data() {
    textUntilTag(State::Data, kDataStop);
}

void Tokenizer::rcdata() {
    textUntilTag(State::Rcdata, kRcdataStop);
}

void Tokenizer::rawtext() {
    textUntilTag(State::Rawtext, kRawtextStop);
}

void Tokenizer::script() {
    textUntilTag(State::Script, kRawtextStop);
}

void Tokenizer::plaintext() {
    textUntilTag(State::Plaintext, kPlaintextStop);
}

void Tokenizer::textLessThan() {
    if (*next_ == '/') {
        ++next_;
        to(State::TextEndTagOpen);
        return;
    }
    if (*next_ == '!' && text_ == State::Script) {
        ++next_;
        emit("<!");
        to(State::EscapeStart);
        return;
    }
    emit("<");
    to(text_);
}

void Tokenizer::textEndTagOpen() {
    pending_.clear();
    if (isLetter(*next_)) {
        to(State::TextEndTagName);
        return;
    }
    emit("</");
    to(text_);
}

// Letters are taken only as long as they can still become the name that ends the text: any other
// end tag is text, which has no other meaning for letters.
void Tokenizer::textEndTagName() {
    for (; !atEnd(); ++next_) {
        const bool goesOn = pending_.size() < lastStartTag_.size() &&
                            toLowerAscii(*next_) == lastStartTag_[pending_.size()];
        if (!goesOn) {
            break;
        }
        pending_ += *next_;
    }
    if (atEnd()) {
        return;
    }
    const bool ends = isBlank(*next_) || *next_ == '/' || *next_ == '>';
    if (!ends || pending_.empty() || pending_.size() != lastStartTag_.size()) {
        emit("</");
        emit(pending_);
        to(text_);
        return;
    }
    beginTag(true);
    name_ = lastStartTag_;
    to(State::BeforeAttributeName);
}

void Tokenizer::escapeStart() {
    if (*next_ != '-') {
        to(State::Script);
        return;
    }
    ++next_;
    emit("-");
    to(State::EscapeStartDash);
}

void Tokenizer::escapeStartDash() {
    if (*next_ != '-') {
        to(State::Script);
        return;
    }
    ++next_;
    emit("-");
    to(State::EscapedDashDash);
}

void Tokenizer::escapedText(State self, State dash, State lessThan) {
    const char *const from = next_;
    takeUntil(kEscapedStop);
    emit(from, next_);
    if (atEnd()) {
        return;
    }
    if (*next_ == '-') {
        ++next_;
        emit("-");
        to(dash);
        return;
    }
    escapedCharacter(self, lessThan);
}

// A character of escaped script that is no dash; whether it was '<', which is not passed on yet
// where it may begin an end tag.
bool Tokenizer::escapedCharacter(State text, State lessThan) {
    if (*next_ == '<') {
        ++next_;
        if (lessThan == State::DoubleEscapedLessThan) {
            emit("<");
        }
        to(lessThan);
        return true;
    }
    if (*next_ == '\0') {
        ++next_;
        emit(kReplacementText);
    }
    to(text);
    return false;
}

void Tokenizer::escaped() {
    escapedText(State::Escaped, State::EscapedDash, State::EscapedLessThan);
}

void Tokenizer::escapedDash() {
    if (*next_ == '-') {
        ++next_;
        emit("-");
        to(State::EscapedDashDash);
        return;
    }
    escapedCharacter(State::Escaped, State::EscapedLessThan);
}

void Tokenizer::escapedDashDash() {
    if (*next_ == '-') {
        ++next_;
        emit("-");
        return;
    }
    if (*next_ == '>') {
        to(State::Script);
        return;
    }
    escapedCharacter(State::Escaped, State::EscapedLessThan);
}

void Tokenizer::escapedLessThan() {
    text_ = State::Escaped;
    if (*next_ == '/') {
        ++next_;
        to(State::TextEndTagOpen);
        return;
    }
    emit("<");
    pending_.clear();
    to(isLetter(*next_) ? State::DoubleEscapeStart : State::Escaped);
}

// Reads a word; whether it is "script" decides whether escaped script becomes doubly escaped, or
// ends to be.
void Tokenizer::doubleEscapeSwitch(State whenScript, State otherwise) {
    constexpr std::string_view kScript = "script";
    const char *const from = next_;
    for (; !atEnd() && isLetter(*next_); ++next_) {
        // One letter too many is all that needs to be known of a longer word.
        if (pending_.size() <= kScript.size()) {
            pending_ += toLowerAscii(*next_);
        }
    }
    emit(from, next_);
    if (atEnd()) {
        return;
    }
    if (!isBlank(*next_) && *next_ != '/' && *next_ != '>') {
        to(whenScript == State::DoubleEscaped ? State::Escaped : State::DoubleEscaped);
        return;
    }
    emit(next_, next_ + 1);
    ++next_;
    to(pending_ == kScript ? whenScript : otherwise);
}

void Tokenizer::doubleEscapeStart() {
    doubleEscapeSwitch(State::DoubleEscaped, State::Escaped);
}

void Tokenizer::doubleEscaped() {
    escapedText(State::DoubleEscaped, State::DoubleEscapedDash, State::DoubleEscapedLessThan);
}

void Tokenizer::doubleEscapedDash() {
    if (*next_ == '-') {
        ++next_;
        emit("-");
        to(State::DoubleEscapedDashDash);
        return;
    }
    escapedCharacter(State::DoubleEscaped, State::DoubleEscapedLessThan);
}

void Tokenizer::doubleEscapedDashDash() {
    if (*next_ == '-') {
        ++next_;
        emit("-");
        return;
    }
    if (*next_ == '>') {
        to(State::Script);
        return;
    }
    escapedCharacter(State::DoubleEscaped, State::DoubleEscapedLessThan);
}

void Tokenizer::doubleEscapedLessThan() {
    pending_.clear();
    if (*next_ != '/') {
        to(State::DoubleEscaped);
        return;
    }
    ++next_;
    emit("/");
    to(State::DoubleEscapeEnd);
}

void Tokenizer::doubleEscapeEnd() {
    doubleEscapeSwitch(State::Escaped, State::DoubleEscaped);
}

void Tokenizer::cdata() {
    const char *const from = next_;
    takeUntil(kCdataStop);
    emit(from, next_);
    if (!atEnd()) {
        ++next_;
        to(State::CdataBracket);
    }
}

void Tokenizer::cdataBracket() {
    if (*next_ == ']') {
        ++next_;
        to(State::CdataEnd);
        return;
    }
    emit("]");
    to(State::Cdata);
}

void Tokenizer::cdataEnd() {
    if (*next_ == ']') {
        ++next_;
        emit("]");
        return;
    }
    if (*next_ == '>') {
        ++next_;
        to(State::Data);
        return;
    }
    emit("]]");
    to(State::Cdata);
}

void Tokenizer::finish() {
    if (afterReturn_) {
        afterReturn_ = false;
        run("\n");
    }
    finishReference();
    finishText();
    finishDoctype();
    if (state_ == State::MarkupDeclaration) {
        sink_.comment(pending_);
    }
    if (state_ >= State::BogusComment && state_ <= State::CommentEndBang) {
        emitComment();
    }
}

// What was held back to see whether it begins a tag or ends CDATA.
void Tokenizer::finishText() {
    switch (state_) {
    case State::TagOpen:
    case State::TextLessThan:
    case State::EscapedLessThan:
        emit("<");
        break;
    case State::EndTagOpen:
    case State::TextEndTagOpen:
        emit("</");
        break;
    case State::TextEndTagName:
        emit("</");
        emit(pending_);
        break;
    case State::CdataBracket:
        emit("]");
        break;
    case State::CdataEnd:
        emit("]]");
        break;
    default:
        break;
    }
}

} // namespace Corvane::Html
