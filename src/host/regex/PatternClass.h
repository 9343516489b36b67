#ifndef CORVANE_SRC_HOST_REGEX_PATTERNCLASS_H
#define CORVANE_SRC_HOST_REGEX_PATTERNCLASS_H

// Sets of characters in patterns: escapes such as \d, POSIX names, and the sum of a class in
// brackets. Characters above 127 count as bytes, or, in UTF-8, only as "wide" ones.

#include "host/regex/PatternParser.h"
#include "host/regex/PatternReader.h"

namespace Corvane::Regex {

// What a part of a class may match at most, and what it matches for certain. The complement of the
// class is taken of the latter.
struct CharacterSet {
    ByteSet atMost;
    ByteSet atLeast;
    bool wide = false;

    void add(const CharacterSet &other);
    void addRange(unsigned int first, unsigned int last, bool utf);
};

// How the characters of a set are compared.
struct CharacterMode {
    bool ignoreCase = false;
    bool utf = false;
};

CharacterSet exactSet(const ByteSet &bytes, bool wide);

// The set of \d \s \w \h \v and their complements in upper case.
bool isSetEscape(char letter);
CharacterSet setOfEscape(char letter, bool utf);

// Any one character: for what is not told apart further.
CharacterSet anyCharacter(bool utf);

// The set that matches one character of the class, or where negated one that is not in it, with
// the case ignored where the mode says so. Never narrower than what the pattern matches.
PatternNode nodeOfClass(CharacterSet set, bool negated, const CharacterMode &mode);

// Reads what follows \p or \P.
CharacterSet parseProperty(PatternReader &reader);

// Reads a class whose opening bracket has been read. Sets exact to false where the node matches more
// than the class does.
PatternNode parseClass(PatternReader &reader, const CharacterMode &mode, bool &exact);

} // namespace Corvane::Regex

#endif
