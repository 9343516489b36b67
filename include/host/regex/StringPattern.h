#ifndef CORVANE_HOST_REGEX_STRINGPATTERN_H
#define CORVANE_HOST_REGEX_STRINGPATTERN_H

// A matcher for names, such as header names.
//
// Threads: immutable once constructed; any number of threads may match at once.

#include <string>

#include "host/regex/Export.h"
#include "host/regex/Expression.h"

namespace Corvane {

class CORVANE_REGEX_API StringPattern {
public:
    // The null pattern, which matches no name.
    StringPattern();

    // isRegex = false: pattern is the whole name; each * in it stands for any run of characters,
    //                  also an empty one, and every other byte for itself. The empty pattern matches
    //                  the empty name only.
    // isRegex = true:  pattern is a regular expression, searched for anywhere in the name. Throws
    //                  code 4 where it does not compile.
    // ignoreCase concerns ASCII letters in the first case, and what the expression does with them
    // in the second.
    StringPattern(const std::string &pattern, bool ignoreCase, bool isRegex);

    // Whether this is the default-constructed pattern.
    bool isNull() const { return kind_ == Kind::Null; }

    // Whether the pattern matches the name.
    bool matches(const std::string &name) const;

    // A text that is the same for two patterns only if they match the same names.
    std::string key() const;

    // The one name that the pattern matches, in lower case and whatever the case of the name's ASCII letters; null where
    // the pattern is of another kind. Owned by this object.
    const std::string *soleName() const;

private:
    enum class Kind { Null, Plain, PlainIgnoringCase, Regex };

    Kind kind_;
    std::string text_; // in lower case for PlainIgnoringCase, behind its options for Regex
    Regex::Expression expression_;
};

} // namespace Corvane

#endif
