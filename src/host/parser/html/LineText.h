#ifndef CORVANE_SRC_HOST_PARSER_HTML_LINETEXT_H
#define CORVANE_SRC_HOST_PARSER_HTML_LINETEXT_H

// Puts the text of a document together, line by line: what is seen, behind it what is hidden, and
// beside both the text as it was sent where that is not the same.
//
// White space is collapsed as browsers do it, and lines that hold nothing are left out. Keeps at
// most a given number of bytes of each text, but looks at all of it.
//
// Threads: one thread at a time.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace Corvane::Html {

// Longest line that is held until its end is known, in bytes. A longer one is passed on in pieces.
constexpr std::size_t kMaxHeldLineBytes = 8U << 10U;

enum class Sight { Seen, Hidden };

struct SentAndSeen {
    std::string seen; // what is hidden stands in lines behind it
    std::string sent; // empty where it is the same
    bool differs = false;
    std::size_t hiddenBytes = 0;
    std::size_t invisibleCharacters = 0;
};

class LineText {
public:
    // onLine is called with the text of each line, seen or hidden, in pieces that end at blanks;
    // invisible characters are taken out. Of each text maxBytes are kept, and a byte more where
    // there is more.
    LineText(std::size_t maxBytes, std::function<void(std::string_view)> onLine);

    // Appends valid UTF-8. Line ends count as such where keepLines is set.
    void append(Sight sight, std::string_view text, bool keepLines);
    void blank(Sight sight);
    void breakLine();

    // A line of its own that is read behind the text, such as the text of a tool tip.
    void aside(std::string_view text);

    SentAndSeen take();

private:
    // One text while it grows.
    struct Lines {
        std::string line;
        std::string text;
        bool blank = false;   // before what comes next
        bool midLine = false; // text ends inside a line
    };

    void appendWords(Lines &lines, std::string_view text) const;
    void holdBack(Lines &lines, bool isSent);
    void flush(Lines &lines, bool isSent, bool endsLine);
    void keep(Lines &lines, std::string_view line, bool endsLine) const;
    void differ();

    std::size_t maxBytes_;
    std::function<void(std::string_view)> onLine_;
    Lines seen_;
    Lines hidden_;
    Lines sent_; // followed only once it differs from what is seen
    std::string asides_;
    bool differs_ = false;
    std::size_t hiddenBytes_ = 0;
    std::size_t invisibleCharacters_ = 0;
};

} // namespace Corvane::Html

#endif
