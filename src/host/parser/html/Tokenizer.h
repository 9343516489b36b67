#ifndef CORVANE_SRC_HOST_PARSER_HTML_TOKENIZER_H
#define CORVANE_SRC_HOST_PARSER_HTML_TOKENIZER_H

// HTML to tokens, state by state as the WHATWG HTML standard words it, without its parse errors,
// which change no token.
//
//     Tokenizer tokenizer(sink);
//     tokenizer.feed("<p>one");
//     tokenizer.feed(" and two");
//     tokenizer.finish();
//
// It takes time linear in the HTML, whatever that holds, and remembers no more than the tag, the
// reference or the declaration that it is in. Bytes are passed on as they are: the HTML should be
// UTF-8, and characters reach the sink whole if the pieces that are fed end between characters.
//
// Threads: one thread at a time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/parser/ByteScan.h"
#include "host/parser/html/NamedReferences.h"

namespace Corvane::Html {

// Longest name of a tag or attribute, longest value of an attribute, and longest text of a
// declaration, in bytes; the rest of it is dropped.
constexpr std::size_t kMaxNameBytes = 1024;
constexpr std::size_t kMaxValueBytes = 16U << 10U;

// How text is read until an end tag changes it.
enum class TextKind { Data, Rcdata, Rawtext, Script, Plaintext, Cdata };

constexpr int kUnwanted = -1;

struct Attribute {
    int id; // as the sink answered
    std::string_view value;
    bool isCut; // the value was longer than allowed
};

// Everything in it lasts until the call that it was given to returns.
struct Tag {
    std::string_view name;             // in lower case
    std::vector<Attribute> attributes; // those that were wanted, in their order
    bool selfClosing;
};

struct Doctype {
    std::string name;
    std::string publicId;
    std::string systemId;
    bool hasName = false;
    bool hasPublicId = false;
    bool hasSystemId = false;
    bool forceQuirks = false;
};

// Takes the tokens in their order. Text and comments arrive in pieces of any length.
class TokenSink {
public:
    TokenSink() = default;
    TokenSink(const TokenSink &) = delete;
    TokenSink &operator=(const TokenSink &) = delete;
    virtual ~TokenSink() = default;

    virtual void characters(std::string_view text) = 0;

    // Asked once for each attribute, when its name is complete: a number that stands for the name,
    // or kUnwanted. Of equal numbers in one tag the first counts and the others are dropped.
    virtual int attributeId(std::string_view name) = 0;

    // May call Tokenizer::readAs().
    virtual void startTag(const Tag &tag) = 0;
    virtual void endTag(const Tag &tag) = 0;

    virtual void comment(std::string_view piece) = 0;
    virtual void commentEnd() = 0;
    virtual void doctype(const Doctype &doctype) = 0;
};

class Tokenizer {
public:
    // The sink is borrowed and must outlive the tokenizer. Values of attributes are cut to
    // maxValueBytes.
    explicit Tokenizer(TokenSink &sink, std::size_t maxValueBytes = kMaxValueBytes);

    // Takes a further piece of the HTML.
    void feed(std::string_view html);

    // The HTML has ended: passes on what was held back. Nothing may be fed afterwards.
    void finish();

    // Reads what follows as text of that kind, until the end tag of the last start tag.
    void readAs(TextKind kind);

    // Whether the open element is SVG or MathML, in which <![CDATA[ is no comment.
    void inForeignContent(bool isForeign) { inForeignContent_ = isForeign; }

    // For tests: as if a start tag of that name had been read.
    void lastStartTagForTest(std::string_view name) { lastStartTag_ = name; }

private:
    enum class State : std::uint8_t {
        Data,
        Rcdata,
        Rawtext,
        Script,
        Plaintext,
        Cdata,
        TagOpen,
        EndTagOpen,
        TagName,
        TextLessThan,
        TextEndTagOpen,
        TextEndTagName,
        EscapeStart,
        EscapeStartDash,
        Escaped,
        EscapedDash,
        EscapedDashDash,
        EscapedLessThan,
        DoubleEscapeStart,
        DoubleEscaped,
        DoubleEscapedDash,
        DoubleEscapedDashDash,
        DoubleEscapedLessThan,
        DoubleEscapeEnd,
        BeforeAttributeName,
        AttributeName,
        AfterAttributeName,
        BeforeAttributeValue,
        ValueDoubleQuoted,
        ValueSingleQuoted,
        ValueUnquoted,
        AfterValueQuoted,
        SelfClosing,
        BogusComment,
        MarkupDeclaration,
        CommentStart,
        CommentStartDash,
        Comment,
        CommentEndDash,
        CommentEnd,
        CommentEndBang,
        CdataBracket,
        CdataEnd,
        DoctypeStart,
        BeforeDoctypeName,
        DoctypeName,
        AfterDoctypeName,
        AfterPublicKeyword,
        BeforePublicId,
        PublicIdDoubleQuoted,
        PublicIdSingleQuoted,
        AfterPublicId,
        BetweenIds,
        AfterSystemKeyword,
        BeforeSystemId,
        SystemIdDoubleQuoted,
        SystemIdSingleQuoted,
        AfterSystemId,
        BogusDoctype,
        Reference,
        NamedReference,
        NumericReference,
        HexStart,
        HexDigits,
        Digits,
        Count
    };
    static constexpr std::size_t kStates = static_cast<std::size_t>(State::Count);
    using Handler = void (Tokenizer::*)();

    // An attribute as places in bytes_.
    struct Kept {
        int id;
        std::size_t start;
        std::size_t length;
        bool isCut;
    };

    static const std::array<Handler, kStates> m_handlers;

    void run(std::string_view html);
    void to(State state) { state_ = state; }
    bool atEnd() const { return next_ == end_; }
    void emit(const char *from, const char *end);
    void emit(std::string_view text) { emit(text.data(), text.data() + text.size()); }
    std::size_t takeUntil(ByteSearch stop);

    // Each reads on in the state of its name, and leaves a character where it is for the state that
    // follows to take it.
    void data();
    void rcdata();
    void rawtext();
    void script();
    void plaintext();
    void cdata();
    void tagOpen();
    void endTagOpen();
    void tagName();
    void textLessThan();
    void textEndTagOpen();
    void textEndTagName();
    void escapeStart();
    void escapeStartDash();
    void escaped();
    void escapedDash();
    void escapedDashDash();
    void escapedLessThan();
    void doubleEscapeStart();
    void doubleEscaped();
    void doubleEscapedDash();
    void doubleEscapedDashDash();
    void doubleEscapedLessThan();
    void doubleEscapeEnd();
    void beforeAttributeName();
    void attributeName();
    void afterAttributeName();
    void beforeAttributeValue();
    void valueDoubleQuoted();
    void valueSingleQuoted();
    void valueUnquoted();
    void afterValueQuoted();
    void selfClosing();
    void bogusComment();
    void markupDeclaration();
    void commentStart();
    void commentStartDash();
    void comment();
    void commentEndDash();
    void commentEnd();
    void commentEndBang();
    void cdataBracket();
    void cdataEnd();
    void doctypeStart();
    void beforeDoctypeName();
    void doctypeName();
    void afterDoctypeName();
    void afterPublicKeyword();
    void beforePublicId();
    void publicIdDoubleQuoted();
    void publicIdSingleQuoted();
    void afterPublicId();
    void betweenIds();
    void afterSystemKeyword();
    void beforeSystemId();
    void systemIdDoubleQuoted();
    void systemIdSingleQuoted();
    void afterSystemId();
    void bogusDoctype();
    void reference();
    void namedReference();
    void numericReference();
    void hexStart();
    void hexDigits();
    void digits();

    void textUntilTag(State self, ByteSearch stop);
    void escapedText(State self, State dash, State lessThan);
    bool escapedCharacter(State text, State lessThan);
    void doubleEscapeSwitch(State whenScript, State otherwise);
    void beginTag(bool isEnd);
    void emitTag();
    bool takePlainAttribute();
    void beginAttribute();
    void endAttributeName();
    void value(ByteSearch stop);
    void appendName(const char *from, const char *end);
    void appendValue(std::string_view text);
    void emitComment();
    void quotedId(std::string &id, char quote, State after);
    bool beginId(State doubleQuoted, State singleQuoted);
    void emitDoctype();
    void endDoctypeInQuirks();
    void startReference(State from);
    void flushReference(std::string_view text);
    void endNamedReference(char next);
    void endNumericReference();
    void finishText();
    void finishDoctype();
    void finishReference();

    TokenSink &sink_;
    std::size_t maxValueBytes_;
    const char *next_ = nullptr; // the piece being read, from its next character
    const char *end_ = nullptr;
    State state_ = State::Data;
    State text_ = State::Data;     // the text that a possible end tag interrupts
    State returnTo_ = State::Data; // the state that a reference stands in
    bool afterReturn_ = false;     // the last character was CR: a LF after it is no other line end
    bool inForeignContent_ = false;
    bool isEndTag_ = false;
    bool keepsValue_ = false; // of the current attribute
    bool selfClosing_ = false;
    std::string unified_;       // the piece being read, with LF as its only line end
    std::string name_;          // of the tag
    std::string attributeName_; // of the current attribute
    std::string bytes_;         // values of the attributes
    std::vector<Kept> kept_;    // attributes of the tag
    Tag tag_;                   // as passed on; kept for its memory
    std::string lastStartTag_;
    std::string pending_; // characters that decide how they are to be read
    Doctype doctype_;
    ReferenceSearch search_;
    std::uint32_t code_ = 0; // of a numeric reference
};

} // namespace Corvane::Html

#endif
