#ifndef CORVANE_SRC_HOST_PARSER_MIMEPARAMETERS_H
#define CORVANE_SRC_HOST_PARSER_MIMEPARAMETERS_H

// The grammar of Content-Type: a media type and its parameters (RFC 2045, 5.1; RFC 2231), as mail
// programs read it. Everything takes time linear in the value, which may be folded: line ends in it
// count as blanks, and as nothing inside quotes.
//
// Threads: one object is for one thread at a time.

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Corvane {

// Takes blanks, NUL bytes and comments off the front. A comment that does not end is none.
void skipBlanksAndComments(std::string_view &value);

// Takes "type/subtype" off the front, in lower case and without NUL bytes. False where there is
// none, or where something follows it that neither ends it nor begins a parameter; the value is
// then somewhere in between.
bool readMediaType(std::string_view &value, std::pair<std::string, std::string> &type);

// A text without the blanks and quotes of either kind around it.
std::string trimmedOfQuotes(std::string_view text);

// Walks over the parameters behind a media type. Semicolons between them may be missing.
class MimeParameters {
public:
    explicit MimeParameters(std::string_view value) : rest_(value) {}

    // Moves to the next parameter, false where there is none.
    bool next();

    // The name as it stands, and the value: without the quotes where there were some, escapes in it
    // as they stand. Both lie in the text given.
    std::string_view name() const { return name_; }
    std::string_view value() const { return value_; }
    bool isQuoted() const { return isQuoted_; }

    // Of a value without quotes, all up to the next semicolon, blanks around it taken off.
    std::string_view line() const { return line_; }

private:
    void skipBlanksAndClosedComments();
    void readValue();

    std::string_view rest_;
    std::string_view name_;
    std::string_view value_;
    std::string_view line_;
    bool isQuoted_ = false;
    // Whether a comment was met that does not end: no later one does.
    bool hasOpenComment_ = false;
};

// Collects one parameter in the forms that programs may take it to have: the value alone, or with
// the words behind it, with the apostrophes around it or without, and what RFC 2231 puts together
// from numbered pieces. The first parameter of the name counts.
class MimeParameter {
public:
    // The name in lower case. A value ends at maxBytes.
    MimeParameter(std::string_view lowerName, std::size_t maxBytes)
        : name_(lowerName), maxBytes_(maxBytes) {}

    // Takes the parameter at which parameters stands, where it is this one.
    void take(const MimeParameters &parameters);

    // Each form once, the likeliest first; none where there was no such parameter.
    std::vector<std::string> forms() const;

    bool isCut() const { return isCut_; }

private:
    void takeValue(const MimeParameters &parameters);
    void takePiece(std::string_view marks, const MimeParameters &parameters);
    std::string unescaped(std::string_view text);

    std::string_view name_;
    std::size_t maxBytes_;
    std::vector<std::string> values_;
    std::map<unsigned int, std::string> pieces_;
    bool isCut_ = false;
};

} // namespace Corvane

#endif
