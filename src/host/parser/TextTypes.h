#ifndef CORVANE_SRC_HOST_PARSER_TEXTTYPES_H
#define CORVANE_SRC_HOST_PARSER_TEXTTYPES_H

// Texts with a markup that is neither plain nor HTML, as the reader of a mail sees them. All take
// valid UTF-8, give it, and take time linear in the text.
//
// Threads: free functions; any number of threads at once.

#include <string>
#include <string_view>

namespace Corvane {

// text/enriched (RFC 1896): commands and their parameters dropped, a single line end read as a
// blank, of several one less.
std::string enrichedText(std::string_view text);

// text/richtext (RFC 1341): commands dropped but for those that stand for a character, line ends
// read as blanks, comments dropped.
std::string richText(std::string_view text);

// text/calendar (RFC 5545) with each of its lines whole, and what such lines have for summary,
// location and description, each on lines of its own.
std::string unfoldedCalendar(std::string_view text);
std::string calendarText(std::string_view unfolded);

// Whether bytes are plainly meant as HTML: a common tag stands in them.
bool looksLikeHtml(std::string_view bytes);

} // namespace Corvane

#endif
