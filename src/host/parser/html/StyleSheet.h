#ifndef CORVANE_SRC_HOST_PARSER_HTML_STYLESHEET_H
#define CORVANE_SRC_HOST_PARSER_HTML_STYLESHEET_H

// The style sheets that a document brings along.
//
//     StyleSheet sheet(kMaxStyleRules, [](std::string_view uri) { ... });
//     sheet.begin(StyleUse::Applied);
//     sheet.feed(".preheader { display: no");
//     sheet.feed("ne }");
//     sheet.end();
//     sheet.declare(element, declared, around);
//
// Takes time linear in the sheets and in the elements that are matched. Keeps only rules that can
// hide a text or show it.
//
// Threads: one thread at a time.

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/parser/KeyedHash.h"
#include "host/parser/html/Declarations.h"
#include "host/parser/html/OpenElement.h"
#include "host/parser/html/Selector.h"

namespace Corvane::Html {

// Longest piece of a sheet that is looked at as a whole, such as a declaration, in bytes; the rest
// of it is passed over.
constexpr std::size_t kMaxCssPieceBytes = 16U << 10U;

// Comparisons of selectors with elements: so many, and more for each byte of HTML. When they are
// used up, the sheets are given up.
constexpr std::size_t kSelectorWork = 1U << 18U;
constexpr std::size_t kSelectorWorkPerByte = 1;

// Whether a sheet counts, or is for other media and only searched for URIs.
enum class StyleUse { Applied, Ignored };

// Priorities of what declares a value; rules of sheets come between them.
constexpr std::uint64_t kAttributePriority = 1;
constexpr std::uint64_t kInlinePriority = std::uint64_t{1} << 62U;
constexpr std::uint64_t kImportantPriority = std::uint64_t{1} << 63U;

class StyleSheet {
public:
    // Keeps maxSelectors; with more the sheets are given up. onUri is called for each URI in a sheet.
    StyleSheet(std::size_t maxSelectors, std::function<void(std::string_view)> onUri);

    void begin(StyleUse use);
    void feed(std::string_view css);
    void end();

    // Allows the work that so many further bytes of HTML are worth.
    void allow(std::size_t bytes) { work_ += bytes * kSelectorWorkPerByte; }

    bool isEmpty() const { return selectors_.empty(); }

    // Once something was too much that a rule may depend on, nobody can tell any more what is hidden.
    void giveUp() { hasGivenUp_ = true; }
    bool hasGivenUp() const { return hasGivenUp_; }

    // Adds what the rules for an element declare.
    void declare(const ElementFacts &facts, std::span<const OpenPlace> around,
                 Declarations &declared);

private:
    enum class State {
        Text,
        Escape,
        Slash,
        Comment,
        CommentStar,
        String,
        StringEscape,
        UriStart,
        Uri
    };

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    static constexpr std::size_t kFilterBits = 1024;

    struct Rule {
        Selector selector;
        std::size_t block; // in blocks_
        std::size_t next;  // in selectors_, the next of its bucket; kNone: none
    };

    // The selectors that ask the same of the element itself; places in selectors_.
    struct Bucket {
        std::size_t first = kNone;
        std::size_t last = kNone;
    };

    void takeText(std::string_view &css);
    void takeSpecial(char c);
    void takeInComment(char c);
    void takeInString(char c);
    void takeInUri(char c);
    void append(std::string_view css);
    void openBlock();
    void closeBlock();
    void endStatement();
    void endPiece();
    void declareInRule();
    void declareCut();
    void dropOutdone();
    void endRule();
    void apply(std::size_t first, const ElementFacts &facts, std::span<const OpenPlace> around,
               Declarations &declared);

    std::size_t maxSelectors_;
    std::function<void(std::string_view)> onUri_;
    StyleUse use_ = StyleUse::Ignored;
    State state_ = State::Text;
    char quote_ = '\0';
    unsigned int brackets_ = 0; // open round ones
    unsigned int openBlocks_ = 0;
    bool inRule_ = false;
    bool isCut_ = false;
    bool hasBracket_ = false; // piece_ has one that opens
    std::string piece_;
    std::string prelude_; // of the open rule: its selectors
    std::vector<Declaration> declarations_;
    std::vector<std::vector<Declaration>> blocks_;
    std::vector<Rule> selectors_;
    std::unordered_map<std::uint64_t, Bucket, KeyedHash> buckets_;
    std::bitset<kFilterBits> mayKnow_; // by the low bits of the keys: most are of no rule
    std::size_t work_ = kSelectorWork;
    bool hasGivenUp_ = false;
};

} // namespace Corvane::Html

#endif
