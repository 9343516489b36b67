#ifndef CORVANE_HOST_PARSER_UTF2LANG_H
#define CORVANE_HOST_PARSER_UTF2LANG_H

// Guesses the language of UTF-8 text by the scripts of its letters:
//
//     Utf2lang guess;
//     guess.proc(text.data(), text.size());
//     if (guess.japanese) ...
//
// A Han, kana or Hangul character weighs as much as three letters of another script, because it
// says as much. A language is flagged where its script has at least a quarter of the weight. Of
// Chinese, Japanese and Korean at most one is flagged: Japanese text is full of Han, Korean may
// hold some, and both like to lend a character as an ornament.
//
// Threads: one object is for one thread at a time.

#include "host/parser/Export.h"

namespace Corvane {

class CORVANE_PARSER_API Utf2lang {
public:
    // All flags false.
    Utf2lang();

    // Sets the flags anew by length bytes of UTF-8; bytes that are not UTF-8 are skipped. Takes
    // time linear in the length and never throws.
    void proc(const char *text, unsigned long length);

    bool chinese;
    bool japanese;
    bool korean;
    bool russian;
};

} // namespace Corvane

#endif
