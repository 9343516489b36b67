#ifndef CORVANE_SRC_HOST_PARSER_INVISIBLETEXT_H
#define CORVANE_SRC_HOST_PARSER_INVISIBLETEXT_H

// Characters that nobody sees: put inside a word they hide it from a pattern, while the reader of
// the mail sees the word.
//
// Threads: free functions; any number of threads at once.

#include <cstddef>
#include <string>
#include <string_view>

namespace Corvane {

// Whether dropInvisible() may find something to drop; never wrong where it says no.
bool mayHoldInvisible(std::string_view text);

// Takes characters without width out of a UTF-8 text: zero-width blanks and joiners, soft hyphens,
// variation selectors, direction marks, and those of the tags block. A joiner stays between two
// letters of a script that is written with it, such as the Arabic or the Indic ones: there it
// changes what is seen. Blanks of whatever width stay too.
//
// Answers how many characters were taken out. Takes time linear in the text, and no memory.
std::size_t dropInvisible(std::string &text);

} // namespace Corvane

#endif
