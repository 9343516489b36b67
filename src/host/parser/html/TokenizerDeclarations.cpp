#include "host/parser/html/Tokenizer.h"

#include <algorithm>
#include <iterator>

#include "host/parser/Text.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/ReplacementText.h"

namespace Corvane::Html {

namespace {

constexpr ByteSearch kBogusCommentStop = findFirst<'>', '\0'>;
constexpr ByteSearch kCommentStop = findFirst<'-', '\0'>;

// Whether text may still become word, letter by letter, whatever their case.
bool s_mayBecome(std::string_view text, std::string_view lowerWord) {
    return text.size() <= lowerWord.size() &&
           std::equal(text.begin(), text.end(), lowerWord.begin(),
                      [](char c, char lower) { return toLowerAscii(c) == lower; });
}

void s_append(std::string &text, std::string_view more) {
    text.append(more.substr(0, kMaxNameBytes - std::min(text.size(), kMaxNameBytes)));
}

} // namespace

// What follows "<!", until it is clear what it begins.
void Tokenizer::markupDeclaration() {
    constexpr std::string_view kDashes = "--";
    constexpr std::string_view kDoctype = "doctype";
    constexpr std::string_view kCdata = "[CDATA[";
    pending_ += *next_;
    if (pending_ == kDashes) {
        ++next_;
        to(State::CommentStart);
    } else if (pending_.size() == kDoctype.size() && s_mayBecome(pending_, kDoctype)) {
        ++next_;
        doctype_ = Doctype();
        to(State::DoctypeStart);
    } else if (pending_ == kCdata) {
        ++next_;
        if (!inForeignContent_) {
            sink_.comment(pending_);
        }
        to(inForeignContent_ ? State::Cdata : State::BogusComment);
    } else if (s_mayBecome(pending_, kDashes) || s_mayBecome(pending_, kDoctype) ||
               kCdata.substr(0, pending_.size()) == pending_) {
        ++next_;
    } else {
        pending_.pop_back();
        sink_.comment(pending_);
        to(State::BogusComment);
    }
}

void Tokenizer::emitComment() {
    sink_.commentEnd();
    to(State::Data);
}

void Tokenizer::bogusComment() {
    const char *const from = next_;
    const std::size_t length = takeUntil(kBogusCommentStop);
    sink_.comment({from, length});
    if (atEnd()) {
        return;
    }
    if (*next_++ == '>') {
        emitComment();
    } else {
        sink_.comment(kReplacementText);
    }
}

void Tokenizer::commentStart() {
    if (*next_ == '-') {
        ++next_;
        to(State::CommentStartDash);
    } else if (*next_ == '>') {
        ++next_;
        emitComment();
    } else {
        to(State::Comment);
    }
}

void Tokenizer::commentStartDash() {
    if (*next_ == '-') {
        ++next_;
        to(State::CommentEnd);
    } else if (*next_ == '>') {
        ++next_;
        emitComment();
    } else {
        sink_.comment("-");
        to(State::Comment);
    }
}

// "<!--" inside a comment is an error and nothing else, so '<' needs no state of its own.
void Tokenizer::comment() {
    const char *const from = next_;
    const std::size_t length = takeUntil(kCommentStop);
    if (length != 0) {
        sink_.comment({from, length});
    }
    if (atEnd()) {
        return;
    }
    if (*next_++ == '-') {
        to(State::CommentEndDash);
    } else {
        sink_.comment(kReplacementText);
    }
}

void Tokenizer::commentEndDash() {
    if (*next_ == '-') {
        ++next_;
        to(State::CommentEnd);
        return;
    }
    sink_.comment("-");
    to(State::Comment);
}

void Tokenizer::commentEnd() {
    switch (*next_) {
    case '>':
        ++next_;
        emitComment();
        break;
    case '!':
        ++next_;
        to(State::CommentEndBang);
        break;
    case '-':
        ++next_;
        sink_.comment("-");
        break;
    default:
        sink_.comment("--");
        to(State::Comment);
        break;
    }
}

void Tokenizer::commentEndBang() {
    if (*next_ == '>') {
        ++next_;
        emitComment();
        return;
    }
    sink_.comment("--!");
    to(State::Comment);
    if (*next_ == '-') {
        ++next_;
        to(State::CommentEndDash);
    }
}

void Tokenizer::emitDoctype() {
    to(State::Data);
    sink_.doctype(doctype_);
}

// At a '>' that comes too early.
void Tokenizer::endDoctypeInQuirks() {
    ++next_;
    doctype_.forceQuirks = true;
    emitDoctype();
}

void Tokenizer::doctypeStart() {
    to(State::BeforeDoctypeName);
}

void Tokenizer::beforeDoctypeName() {
    if (isBlank(*next_)) {
        ++next_;
    } else if (*next_ == '>') {
        endDoctypeInQuirks();
    } else {
        doctype_.hasName = true;
        to(State::DoctypeName);
    }
}

void Tokenizer::doctypeName() {
    const char c = *next_++;
    if (isBlank(c)) {
        pending_.clear();
        to(State::AfterDoctypeName);
    } else if (c == '>') {
        emitDoctype();
    } else if (c == '\0') {
        s_append(doctype_.name, kReplacementText);
    } else {
        const char lower = toLowerAscii(c);
        s_append(doctype_.name, {&lower, 1});
    }
}

void Tokenizer::afterDoctypeName() {
    constexpr std::string_view kPublic = "public";
    constexpr std::string_view kSystem = "system";
    if (pending_.empty() && isBlank(*next_)) {
        ++next_;
        return;
    }
    if (pending_.empty() && *next_ == '>') {
        ++next_;
        emitDoctype();
        return;
    }
    pending_ += *next_;
    if (!s_mayBecome(pending_, kPublic) && !s_mayBecome(pending_, kSystem)) {
        doctype_.forceQuirks = true;
        to(State::BogusDoctype);
        return;
    }
    ++next_;
    if (pending_.size() == kPublic.size()) {
        to(toLowerAscii(pending_.front()) == 'p' ? State::AfterPublicKeyword
                                                 : State::AfterSystemKeyword);
    }
}

// Whether an identifier begins here; where none can, what follows is passed over.
bool Tokenizer::beginId(State doubleQuoted, State singleQuoted) {
    if (*next_ == '"' || *next_ == '\'') {
        to(*next_++ == '"' ? doubleQuoted : singleQuoted);
        return true;
    }
    if (*next_ == '>') {
        endDoctypeInQuirks();
        return false;
    }
    doctype_.forceQuirks = true;
    to(State::BogusDoctype);
    return false;
}

void Tokenizer::afterPublicKeyword() {
    to(State::BeforePublicId);
}

void Tokenizer::beforePublicId() {
    if (isBlank(*next_)) {
        ++next_;
        return;
    }
    doctype_.hasPublicId = beginId(State::PublicIdDoubleQuoted, State::PublicIdSingleQuoted);
}

void Tokenizer::quotedId(std::string &id, char quote, State after) {
    const char c = *next_;
    if (c == '>') {
        endDoctypeInQuirks();
        return;
    }
    ++next_;
    if (c == quote) {
        to(after);
    } else {
        s_append(id, c == '\0' ? kReplacementText : std::string_view(&c, 1));
    }
}

void Tokenizer::publicIdDoubleQuoted() {
    quotedId(doctype_.publicId, '"', State::AfterPublicId);
}

void Tokenizer::publicIdSingleQuoted() {
    quotedId(doctype_.publicId, '\'', State::AfterPublicId);
}

void Tokenizer::afterPublicId() {
    to(State::BetweenIds);
}

void Tokenizer::betweenIds() {
    if (isBlank(*next_)) {
        ++next_;
        return;
    }
    if (*next_ == '>') {
        ++next_;
        emitDoctype();
        return;
    }
    doctype_.hasSystemId = beginId(State::SystemIdDoubleQuoted, State::SystemIdSingleQuoted);
}

void Tokenizer::afterSystemKeyword() {
    to(State::BeforeSystemId);
}

void Tokenizer::beforeSystemId() {
    if (isBlank(*next_)) {
        ++next_;
        return;
    }
    doctype_.hasSystemId = beginId(State::SystemIdDoubleQuoted, State::SystemIdSingleQuoted);
}

void Tokenizer::systemIdDoubleQuoted() {
    quotedId(doctype_.systemId, '"', State::AfterSystemId);
}

void Tokenizer::systemIdSingleQuoted() {
    quotedId(doctype_.systemId, '\'', State::AfterSystemId);
}

void Tokenizer::afterSystemId() {
    if (isBlank(*next_)) {
        ++next_;
        return;
    }
    to(State::BogusDoctype);
}

void Tokenizer::bogusDoctype() {
    if (*next_++ == '>') {
        emitDoctype();
    }
}

// A declaration that the end of the HTML cuts short asks for quirks, unless it was complete but for
// what is passed over.
void Tokenizer::finishDoctype() {
    if (state_ < State::DoctypeStart || state_ > State::BogusDoctype) {
        return;
    }
    doctype_.forceQuirks |= state_ != State::BogusDoctype;
    emitDoctype();
}

} // namespace Corvane::Html
