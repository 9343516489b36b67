#include "host/parser/HtmlText.h"

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <memory>
#include <unordered_set>

#include <libxml/HTMLparser.h>
#include <libxml/parser.h>

#include "host/parser/Exception.h"
#include "host/parser/Text.h"
#include "host/parser/Uri.h"

namespace Corvane {

namespace {

// Most bytes given to the parser at a time: it must be stopped inside a long tag.
constexpr std::size_t kChunkBytes = 4096;

// Open elements that the parser remembers. It searches them for each end tag, so that a pile of
// elements that are never closed would make it quadratic; what lies deeper has no effect on text.
constexpr int kMaxOpenElements = 256;

// The parser compares each attribute of a tag with all others. This many comparisons are more than
// any real mail needs; after them a tag may only be as long as kHostileTagBytes.
constexpr std::size_t kMaxAttributeWork = 10U << 20U;
constexpr std::size_t kHostileTagBytes = 1024;

// How far from the start a <meta> is looked for.
constexpr std::size_t kMetaSearchBytes = 4096;

bool s_isBlock(std::string_view name) {
    static const std::unordered_set<std::string_view> s_blocks{
        "address", "article",  "aside",  "blockquote", "body",   "br",       "caption",    "center",
        "dd",      "dir",      "div",    "dl",         "dt",     "fieldset", "figcaption", "figure",
        "footer",  "form",     "h1",     "h2",         "h3",     "h4",       "h5",         "h6",
        "head",    "header",   "hr",     "html",       "legend", "li",       "main",       "menu",
        "nav",     "ol",       "option", "p",          "pre",    "section",  "select",     "table",
        "tbody",   "textarea", "tfoot",  "thead",      "title",  "tr",       "ul"};
    return s_blocks.count(name) != 0;
}

// Text under construction. White space is held back until something follows it on its line.
class TextBuilder {
public:
    explicit TextBuilder(std::size_t expectedBytes) { text_.reserve(expectedBytes); }

    void append(std::string_view characters);
    void blank() { blank_ = true; }
    void breakLine();
    void preformatted(int change) { preformatted_ = std::max(0, preformatted_ + change); }
    std::string take() {
        breakLine();
        return std::move(text_);
    }

private:
    static std::size_t blankLength(std::string_view text);

    std::string text_;
    bool blank_ = false;
    int preformatted_ = 0;
};

// Length of the white-space character at the front, 0 where there is none; a no-break space is one.
std::size_t TextBuilder::blankLength(std::string_view text) {
    constexpr std::string_view kNoBreakSpace = "\xC2\xA0";
    if (isWhiteSpace(static_cast<unsigned char>(text.front()))) {
        return 1;
    }
    return text.substr(0, kNoBreakSpace.size()) == kNoBreakSpace ? kNoBreakSpace.size() : 0;
}

void TextBuilder::breakLine() {
    blank_ = false;
    if (!text_.empty() && text_.back() != '\n') {
        text_ += '\n';
    }
}

void TextBuilder::append(std::string_view characters) {
    while (!characters.empty()) {
        const std::size_t blanks = blankLength(characters);
        if (blanks != 0) {
            if (characters.front() == '\n' && preformatted_ > 0) {
                breakLine();
            }
            blank_ = true;
            characters.remove_prefix(blanks);
            continue;
        }
        std::size_t length = 1;
        while (length < characters.size() && blankLength(characters.substr(length)) == 0) {
            ++length;
        }
        if (blank_ && !text_.empty() && text_.back() != '\n') {
            text_ += ' ';
        }
        blank_ = false;
        text_.append(characters.substr(0, length));
        characters.remove_prefix(length);
    }
}

std::string_view s_view(const xmlChar *text) {
    return reinterpret_cast<const char *>(text);
}

constexpr std::string_view kCommentStart = "<!--";

bool s_isLetter(char c) {
    const char lower = toLowerAscii(c);
    return lower >= 'a' && lower <= 'z';
}

// Whether the '<' in front starts what the parser must not see: a comment, a declaration, an
// instruction, an end tag without a name, or the end of the body or the document.
bool s_isSpecial(std::string_view html) {
    constexpr std::size_t kEndTagBytes = 6;
    if (html.size() < 3 || html[1] != '/') {
        return html.size() > 1 && (html[1] == '!' || html[1] == '?');
    }
    if (!s_isLetter(html[2]) || html.size() < kEndTagBytes) {
        return !s_isLetter(html[2]);
    }
    std::string name;
    copyStringToLower(html.data(), name, 2, kEndTagBytes - 2);
    const char after = html.size() > kEndTagBytes ? html[kEndTagBytes] : ' ';
    return (name == "html" || name == "body") && !s_isLetter(after);
}

std::size_t s_findSpecial(std::string_view html) {
    std::size_t found = html.find('<');
    while (found != std::string_view::npos && !s_isSpecial(html.substr(found))) {
        found = html.find('<', found + 1);
    }
    return std::min(found, html.size());
}

// Length of the special construct in front. A comment ends at "-->" or "--!>", which may overlap
// its start; one that does not end takes the rest.
std::size_t s_specialLength(std::string_view html) {
    if (html.substr(0, kCommentStart.size()) != kCommentStart) {
        const std::size_t end = html.find('>');
        return end == std::string_view::npos ? html.size() : end + 1;
    }
    for (std::size_t dashes = html.find("--", 2); dashes != std::string_view::npos;
         dashes = html.find("--", dashes + 1)) {
        for (const std::string_view end : {std::string_view("-->"), std::string_view("--!>")}) {
            if (html.substr(dashes, end.size()) == end) {
                return dashes + end.size();
            }
        }
    }
    return html.size();
}

// One run of the parser. Its callbacks are called from C: what they throw is kept and thrown again
// by render().
class Renderer {
public:
    Renderer(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris, std::size_t bytes);

    std::string render(std::string_view html);

private:
    struct FreeParser {
        void operator()(htmlParserCtxtPtr parser) const { htmlFreeParserCtxt(parser); }
    };

    static void onStart(void *self, const xmlChar *name, const xmlChar **attributes) noexcept;
    static void onEnd(void *self, const xmlChar *name) noexcept;
    static void onCharacters(void *self, const xmlChar *text, int length) noexcept;
    static void onScript(void *self, const xmlChar *text, int length) noexcept;
    template <class Action>
    void guarded(Action action) noexcept;

    void start(std::string_view name, const xmlChar **attributes);
    void end(std::string_view name);
    void forgetDeepElement(std::string_view name);
    void feed(std::string_view bytes);
    std::size_t pendingTagBytes() const;
    std::size_t longestTag() const;
    bool inText() const;
    void closeTag();
    void feedBounded(std::string_view html);

    MailLimitSet &hits_;
    UriCollector &uris_;
    std::size_t maxTagBytes_;
    std::size_t attributeWork_ = 0;
    TextBuilder text_;
    std::exception_ptr failure_;
    std::unique_ptr<htmlParserCtxt, FreeParser> parser_;
};

Renderer::Renderer(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris,
                   std::size_t bytes)
    : hits_(hits), uris_(uris), maxTagBytes_(limits.value(MailLimit::HtmlTagBytes)), text_(bytes) {
    [[maybe_unused]] static const bool s_initialised = [] {
        xmlInitParser();
        return true;
    }();
    htmlSAXHandler handler{};
    handler.startElement = onStart;
    handler.endElement = onEnd;
    handler.characters = onCharacters;
    handler.ignorableWhitespace = onCharacters;
    handler.cdataBlock = onScript;
    parser_.reset(
        htmlCreatePushParserCtxt(&handler, this, nullptr, 0, nullptr, XML_CHAR_ENCODING_UTF8));
    if (parser_ == nullptr) {
        throw Exception("htmlToText", Exception::kGeneral, "HtmlText", __LINE__);
    }
    htmlCtxtUseOptions(parser_.get(), HTML_PARSE_RECOVER | HTML_PARSE_NOERROR |
                                          HTML_PARSE_NOWARNING | HTML_PARSE_NONET |
                                          HTML_PARSE_IGNORE_ENC);
}

template <class Action>
void Renderer::guarded(Action action) noexcept {
    if (failure_ != nullptr) {
        return;
    }
    try {
        action();
    } catch (...) {
        failure_ = std::current_exception();
    }
}

void Renderer::onStart(void *self, const xmlChar *name, const xmlChar **attributes) noexcept {
    auto *const renderer = static_cast<Renderer *>(self);
    renderer->guarded([=] { renderer->start(s_view(name), attributes); });
}

void Renderer::onEnd(void *self, const xmlChar *name) noexcept {
    auto *const renderer = static_cast<Renderer *>(self);
    renderer->guarded([=] { renderer->end(s_view(name)); });
}

void Renderer::onCharacters(void *self, const xmlChar *text, int length) noexcept {
    auto *const renderer = static_cast<Renderer *>(self);
    renderer->guarded([=] {
        renderer->text_.append(
            {reinterpret_cast<const char *>(text), static_cast<std::size_t>(length)});
    });
}

// Scripts and styles come here; nobody reads them.
void Renderer::onScript(void * /*self*/, const xmlChar * /*text*/, int /*length*/) noexcept {}

void Renderer::start(std::string_view name, const xmlChar **attributes) {
    forgetDeepElement(name);
    if (s_isBlock(name)) {
        text_.breakLine();
        text_.preformatted(name == "pre" ? 1 : 0);
    } else if (name == "td" || name == "th") {
        text_.blank();
    }
    if (attributes == nullptr) {
        return;
    }
    std::size_t count = 0;
    for (; attributes[2 * count] != nullptr; ++count) {
        const std::string_view attribute = s_view(attributes[2 * count]);
        const xmlChar *value = attributes[2 * count + 1];
        const bool leads = attribute == "href" || attribute == "src" || attribute == "action";
        if (leads && value != nullptr && name != "base") {
            uris_.addAttribute(UriContainer::kHtml, s_view(value));
        }
    }
    attributeWork_ += count * count / 2;
}

void Renderer::end(std::string_view name) {
    if (s_isBlock(name)) {
        text_.breakLine();
        text_.preformatted(name == "pre" ? -1 : 0);
    } else if (name == "td" || name == "th") {
        text_.blank();
    }
}

// Takes the element that was just opened off the parser's stack again where the stack is too deep.
// The parser needs to know of scripts and styles, which hold no further elements.
void Renderer::forgetDeepElement(std::string_view name) {
    htmlParserCtxt &parser = *parser_;
    if (parser.nameNr > kMaxOpenElements && name != "script" && name != "style") {
        --parser.nameNr;
        parser.name = parser.nameTab[parser.nameNr - 1];
    }
}

// The parser looks for the end of an incomplete tag from where it stopped, but has forgotten which
// quote it was in, and would not find it: it is made to look at the (short) tag again.
void Renderer::feed(std::string_view bytes) {
    if (pendingTagBytes() != 0) {
        parser_->checkIndex = 0;
    }
    htmlParseChunk(parser_.get(), bytes.data(), static_cast<int>(bytes.size()), 0);
    if (failure_ != nullptr) {
        std::rethrow_exception(failure_);
    }
}

// The parser takes a tag only when it has all of it: the bytes of an incomplete one, or 0.
std::size_t Renderer::pendingTagBytes() const {
    const xmlParserInput *input = parser_->input;
    const bool inTag =
        parser_->instate == XML_PARSER_START_TAG || parser_->instate == XML_PARSER_END_TAG;
    return inTag ? static_cast<std::size_t>(input->end - input->cur) : 0;
}

std::size_t Renderer::longestTag() const {
    return attributeWork_ > kMaxAttributeWork ? std::min(maxTagBytes_, kHostileTagBytes)
                                              : maxTagBytes_;
}

// Ends the incomplete tag, whichever quote it is in.
void Renderer::closeTag() {
    for (const char *end : {">", "\">", "'>"}) {
        if (pendingTagBytes() != 0) {
            feed(end);
        }
    }
}

// Whether the parser stands in running text, not in a tag, script or style.
bool Renderer::inText() const {
    const std::string_view name = parser_->name != nullptr ? s_view(parser_->name) : "";
    const xmlParserInput *input = parser_->input;
    return parser_->instate == XML_PARSER_CONTENT && name != "script" && name != "style" &&
           (input->cur == input->end || *input->cur != '<');
}

void Renderer::feedBounded(std::string_view html) {
    while (!html.empty()) {
        const std::size_t longest = longestTag();
        const std::size_t pending = pendingTagBytes();
        if (pending < longest) {
            const auto chunk =
                html.substr(0, std::min({kChunkBytes, longest - pending, html.size()}));
            feed(chunk);
            html.remove_prefix(chunk.size());
            continue;
        }
        hits_.insert(MailLimit::HtmlTagBytes);
        closeTag();
        const std::size_t rest = std::min(html.find_first_of("<>"), html.size());
        html.remove_prefix(rest < html.size() && html[rest] == '>' ? rest + 1 : rest);
    }
}

// The parser starts inside the body and is not told where it ends: it would stop at the end of the
// document, where mail clients go on. For the same reason it gets no comments and declarations: it
// takes some of them for text, and text for comments.
std::string Renderer::render(std::string_view html) {
    feed("<html><body>");
    while (!html.empty()) {
        const std::size_t special = s_findSpecial(html);
        feedBounded(html.substr(0, special));
        html.remove_prefix(special);
        if (html.empty()) {
            break;
        }
        if (!inText()) {
            feedBounded(html.substr(0, 1));
            html.remove_prefix(1);
            continue;
        }
        if (html[1] == '/' && s_isLetter(html[2])) {
            feed("<br>");
        }
        html.remove_prefix(s_specialLength(html));
    }
    htmlParseChunk(parser_.get(), nullptr, 0, 1);
    if (failure_ != nullptr) {
        std::rethrow_exception(failure_);
    }
    return text_.take();
}

} // namespace

std::string htmlToText(std::string_view html, const MailLimits &limits, MailLimitSet &hits,
                       UriCollector &uris) {
    // The parser takes a NUL for the end of the text.
    std::string withoutNul;
    if (html.find('\0') != std::string_view::npos) {
        withoutNul.reserve(html.size());
        std::copy_if(html.begin(), html.end(), std::back_inserter(withoutNul),
                     [](char c) { return c != '\0'; });
        html = withoutNul;
    }
    return Renderer(limits, hits, uris, html.size() / 2).render(html);
}

std::string htmlMetaCharset(std::string_view html) {
    std::string head;
    copyStringToLower(html.data(), head, 0, std::min(html.size(), kMetaSearchBytes));
    constexpr std::string_view kKey = "charset";
    constexpr const char *kBlanksAndQuotes = " \t\r\n\"'";
    std::size_t meta = head.find("<meta");
    for (; meta != std::string::npos; meta = head.find("<meta", meta + 1)) {
        const std::string tag = head.substr(meta, head.find('>', meta) - meta);
        const std::size_t key = tag.find(kKey);
        if (key == std::string::npos) {
            continue;
        }
        const std::size_t equals = tag.find_first_not_of(kBlanksAndQuotes, key + kKey.size());
        if (equals == std::string::npos || tag[equals] != '=') {
            continue;
        }
        const std::size_t name = tag.find_first_not_of(kBlanksAndQuotes, equals + 1);
        if (name != std::string::npos) {
            return tag.substr(name, tag.find_first_of(" \t\r\n\"';/>", name) - name);
        }
    }
    return {};
}

} // namespace Corvane
