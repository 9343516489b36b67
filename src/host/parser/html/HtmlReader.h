#ifndef CORVANE_SRC_HOST_PARSER_HTML_HTMLREADER_H
#define CORVANE_SRC_HOST_PARSER_HTML_HTMLREADER_H

// HTML as the reader of a mail sees it: its text in lines, and where its links lead.
//
//     HtmlReader reader(limits, hits, uris, textBytesLeft);
//     reader.feed("<p>Dear <span style=display:none>xyzzy</span>friend");
//     reader.take().seen;   // "Dear friend\nxyzzy\n"
//
// Takes time linear in the HTML, and memory for no more than the texts that are kept, one tag, the
// open elements and the style rules that matter.
//
// Threads: one thread at a time.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/parser/MailLimits.h"
#include "host/parser/UriScan.h"
#include "host/parser/html/Attributes.h"
#include "host/parser/html/InlineStyles.h"
#include "host/parser/html/LineText.h"
#include "host/parser/html/Links.h"
#include "host/parser/html/OpenElements.h"
#include "host/parser/html/StyleSheet.h"
#include "host/parser/html/Tokenizer.h"

namespace Corvane::Html {

class HtmlReader : private TokenSink {
public:
    // All are borrowed and must outlive the reader. textBytesLeft is what may still be taken as text
    // of the limit HtmlBytes; it goes down as text is taken.
    HtmlReader(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris,
               std::size_t &textBytesLeft);

    // Takes a further piece of valid UTF-8 HTML, which ends between characters. Where the thread's
    // budget is over nothing is read.
    void feed(std::string_view html);

    // What was read. To be called once, at the end.
    SentAndSeen take();

private:
    // What the text at hand is.
    enum class Content { Text, Script, Style, Title };

    // What the comment at hand is: those that begin with a condition hold HTML for some programs.
    enum class CommentKind { Undecided, Plain, Conditional };

    void characters(std::string_view text) override;
    int attributeId(std::string_view name) override { return attributeIdOf(name); }
    void startTag(const Tag &tag) override;
    void endTag(const Tag &tag) override;
    void comment(std::string_view piece) override;
    void commentEnd() override;
    void doctype(const Doctype &doctype) override;

    bool beginContent(const Element &element, const Attributes &attributes);
    void endContent();
    void takeTitle(std::string_view text);
    std::string_view withinLimit(std::string_view text);
    void takeText(Sight sight, std::string_view text, bool keepLines);
    void startElement(const Tag &tag, std::uint32_t name, const Element &element,
                      const Attributes &attributes);
    void describe(std::uint32_t name, const Element &element, const Attributes &attributes);
    void takeClasses(std::string_view names);
    void declareAttributes(const Element &element, const Attributes &attributes);
    void declareInline(std::string_view style);
    Look lookNow(const Element &element) const;
    void takeLinks(const Element &element, const Attributes &attributes, Sight sight);
    void takeHref(const Element &element, const Attributes &attributes, Sight sight);
    void takeWords(const Element &element, const Attributes &attributes, Sight sight);
    void noteCuts(const Tag &tag);
    void settleLink(UriSight sight);
    void beginConditional(std::string_view condition);
    void feedConditional(std::string_view html);
    Sight sightOf(const Look &look) const;
    Tokenizer &tokenizer() { return conditional_ ? *conditional_ : main_; }

    const MailLimits &limits_;
    MailLimitSet &hits_;
    std::size_t &textBytesLeft_;
    Links links_;
    LineText text_;
    StyleSheet sheet_;
    OpenElements open_;
    Tokenizer main_;
    std::optional<Tokenizer> conditional_; // reads a conditional comment
    OpenElement element_;                  // the one that starts
    Content content_ = Content::Text;
    CommentKind commentKind_ = CommentKind::Undecided;
    std::string commentStart_;
    std::string title_;
    std::string pendingLink_; // of an anchor in which nothing has been shown yet
    bool hasPendingLink_ = false;
    bool conditionalIsHidden_ = false;
    bool readsConditional_ = false; // tokens come from conditional_
    bool inData_ = false;           // inside <xml> of a conditional comment, which no program shows
    bool sawTag_ = false;
    InlineStyles styles_;
};

} // namespace Corvane::Html

#endif
