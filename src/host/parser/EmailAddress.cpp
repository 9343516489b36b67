#include "host/parser/EmailAddress.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include <gmime/gmime.h>

#include "host/parser/Charset.h"
#include "host/parser/EncodedWord.h"
#include "host/parser/Exception.h"
#include "host/parser/GMimeInit.h"
#include "host/parser/HeaderText.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

// GMime's own decoding of encoded words loses characters that are split over two words and lets the
// message choose any charset of iconv. So each "=?" is hidden from it behind a noncharacter, and
// what it gives back is decoded here.
constexpr std::string_view kWordBegin = "=?";
constexpr std::string_view kHiddenWordBegin = "=\uFDD0?";

struct ReleaseObject {
    void operator()(InternetAddressList *list) const { g_object_unref(list); }
};
using AddressList = std::unique_ptr<InternetAddressList, ReleaseObject>;

struct FreeOptions {
    void operator()(GMimeParserOptions *options) const { g_mime_parser_options_free(options); }
};
using ParserOptions = std::unique_ptr<GMimeParserOptions, FreeOptions>;

void s_replaceAll(std::string &text, std::string_view from, std::string_view to) {
    std::string replaced;
    std::size_t done = 0;
    for (std::size_t at = text.find(from); at != text.npos; at = text.find(from, done)) {
        replaced.append(text, done, at - done).append(to);
        done = at + from.size();
    }
    text = replaced.append(text, done);
}

enum class Tolerance { Strict, Lenient };

// Where in an address list a byte stands, as far as it decides how an encoded word or a bracket
// must be written there.
class Place {
public:
    void pass(char byte) {
        if (escaped_) {
            escaped_ = false;
        } else if (byte == '\\') {
            escaped_ = true;
        } else if (quoted_ || (byte == '"' && comments_ == 0)) {
            quoted_ = quoted_ != (byte == '"');
        } else if (byte == '(' && !literal_) {
            ++comments_;
        } else if (byte == ')' && !literal_) {
            strayEnd_ = strayEnd_ || comments_ == 0;
            comments_ -= comments_ > 0 ? 1 : 0;
        } else if (comments_ == 0) {
            passBare(byte);
        }
    }

    bool inPhrase() const {
        return !quoted_ && comments_ == 0 && !angle_ && !afterAt_ && !literal_;
    }
    bool inAngle() const { return !quoted_ && comments_ == 0 && angle_; }

    // Whether each quote, comment and angle bracket that began has ended, and none ended without.
    bool balanced() const {
        return !escaped_ && !quoted_ && comments_ == 0 && !angle_ && !strayEnd_;
    }

    // What ends the comments that are open.
    std::string closing() const {
        std::string end;
        if (comments_ > 0) {
            end.append(escaped_ ? 1 : 0, ' ').append(comments_, ')');
        }
        return end;
    }

private:
    void passBare(char byte) {
        if (byte == '<' || byte == '>') {
            strayEnd_ = strayEnd_ || (byte == '>' && !angle_);
            angle_ = byte == '<';
        }
        literal_ = byte == '[' ? afterAt_ : literal_ && byte != ']';
        afterAt_ = byte == '@';
    }

    bool escaped_ = false;
    bool quoted_ = false;
    bool angle_ = false;
    bool strayEnd_ = false;
    bool afterAt_ = false;
    // In a domain in brackets, as in "joe@[192.0.2.1]".
    bool literal_ = false;
    unsigned int comments_ = 0;
};

void s_appendEscaped(std::string &out, std::string_view text) {
    constexpr std::string_view kEscaped = "\"\\()";
    for (const char byte : text) {
        if (kEscaped.find(byte) != kEscaped.npos) {
            out += '\\';
        }
        out += byte;
    }
}

// A byte outside of encoded words. If tolerated, brackets in a name ("Joe [work] <a@b>") are
// quoted: GMime would find no address at all.
void s_appendByte(std::string &out, char byte, const Place &place, Tolerance tolerance) {
    const bool bracket = (byte == '[' || byte == ']') && place.inPhrase();
    if (bracket && tolerance == Tolerance::Lenient) {
        out += {'"', byte, '"'};
    } else {
        out += byte;
    }
}

// Cut behind the last colon allowed, not before the next, so that the name of a group is not taken
// for an address.
std::string s_withFewColons(const std::string &text) {
    std::size_t kept = 0;
    unsigned int colons = 0;
    for (std::size_t at = text.find(':'); at != text.npos; at = text.find(':', at + 1)) {
        if (++colons > EmailAddress::kMaxColons) {
            return text.substr(0, kept);
        }
        kept = at + 1;
    }
    return text;
}

// Encoded words become quoted strings, so that blanks and specials in them are not taken for
// syntax; inside quotes and comments, where they can't be, their specials are escaped.
std::string s_quoteWords(const std::string &text, Tolerance tolerance) {
    std::string out;
    Place place;
    std::optional<EncodedWord> word = findEncodedWord(text, 0);
    for (std::size_t at = 0; at < text.size();) {
        if (!word || at < word->begin || place.inAngle()) {
            s_appendByte(out, text[at], place, tolerance);
            place.pass(text[at++]);
        } else {
            const char *quote = place.inPhrase() ? "\"" : "";
            out += quote;
            s_appendEscaped(out, std::string_view(text).substr(at, word->end - at));
            out += quote;
            at = word->end;
        }
        if (word && at >= word->end) {
            word = findEncodedWord(text, at);
        }
    }
    if (tolerance == Tolerance::Strict && !place.balanced()) {
        return {};
    }
    // GMime leaks memory on some comments that stay open.
    return out + place.closing();
}

std::string s_prepare(const std::string &text, Tolerance tolerance) {
    const std::size_t length = std::min<std::size_t>(text.size(), EmailAddress::kMaxTextBytes);
    std::string prepared = repairUtf8(text.data(), length);
    // GMime takes its text up to a NUL; what stands behind one must not vanish.
    std::replace(prepared.begin(), prepared.end(), '\0', ' ');
    prepared = s_quoteWords(s_withFewColons(prepared), tolerance);
    s_replaceAll(prepared, kWordBegin, kHiddenWordBegin);
    return prepared;
}

// GMime's strict mode leaks memory on many malformed texts, so it is never asked for.
AddressList s_parseList(const std::string &text) {
    initialiseGMime();
    const ParserOptions options(g_mime_parser_options_new());
    g_mime_parser_options_set_address_compliance_mode(options.get(), GMIME_RFC_COMPLIANCE_LOOSE);
    return AddressList(internet_address_list_parse(options.get(), text.c_str()));
}

// Borrowed from the list; null where it holds none.
InternetAddressMailbox *s_firstMailbox(InternetAddressList *list) {
    const int count = list != nullptr ? internet_address_list_length(list) : 0;
    InternetAddressMailbox *mailbox = nullptr;
    for (int at = 0; at < count && mailbox == nullptr; ++at) {
        InternetAddress *address = internet_address_list_get_address(list, at);
        if (INTERNET_ADDRESS_IS_GROUP(address)) {
            mailbox =
                s_firstMailbox(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address)));
        } else {
            mailbox = INTERNET_ADDRESS_MAILBOX(address);
        }
    }
    return mailbox;
}

// A text that GMime gave, with encoded words as they were.
std::string s_shown(const char *text) {
    std::string shown = text != nullptr ? text : "";
    s_replaceAll(shown, kHiddenWordBegin, kWordBegin);
    return shown;
}

std::string s_decoded(const std::string &text) {
    try {
        return stringDecodeRfc2047(text).asString();
    } catch (const Exception &) {
        return text;
    }
}

EmailAddress s_parse(const std::string &text, Tolerance tolerance) {
    const AddressList list = s_parseList(s_prepare(text, tolerance));
    InternetAddressMailbox *mailbox = s_firstMailbox(list.get());
    if (mailbox == nullptr) {
        return {};
    }
    std::string name = s_decoded(s_shown(internet_address_get_name(INTERNET_ADDRESS(mailbox))));
    stringLeftTrim(name);
    stringRightTrim(name);
    return EmailAddress(name, s_shown(internet_address_mailbox_get_addr(mailbox)));
}

// Longer addresses are rare, and left to those who know what becomes of them.
constexpr std::size_t kMaxPlainBytes = 256;

// Whether the text is one bare address of the plainest kind, words with single dots between them.
bool s_isPlainAddress(std::string_view text) {
    constexpr std::string_view kInWord = "+-=_";
    char before = '.';
    std::size_t ats = 0;
    for (const char c : text) {
        const bool isWord = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                            (c >= '0' && c <= '9') ||
                            (kInWord.find(c) != kInWord.npos && (ats == 0 || c == '-'));
        const bool isEnd = before == '.' || before == '@';
        if (!isWord && ((c != '.' && c != '@') || isEnd)) {
            return false;
        }
        ats += c == '@' ? 1 : 0;
        before = c;
    }
    return ats == 1 && before != '.' && before != '@';
}

bool s_holdsWord(const std::string &text) {
    return findEncodedWord(text, 0).has_value();
}

bool s_isAtomByte(char byte) {
    constexpr std::string_view kSpecials = "()<>[]:;@\\,.\"";
    const auto value = static_cast<unsigned char>(byte);
    constexpr unsigned char kDelete = 0x7F;
    return value > ' ' && value != kDelete && kSpecials.find(byte) == kSpecials.npos;
}

bool s_needsQuotes(const std::string &name) {
    return name.front() == ' ' || name.back() == ' ' ||
           !std::all_of(name.begin(), name.end(),
                        [](char byte) { return byte == ' ' || s_isAtomByte(byte); });
}

std::string s_quoted(const std::string &name) {
    std::string quoted = "\"";
    for (const char byte : name) {
        if (byte == '"' || byte == '\\') {
            quoted += '\\';
        }
        quoted += byte;
    }
    return quoted + '"';
}

} // namespace

EmailAddress::EmailAddress() = default;

EmailAddress::EmailAddress(const std::string &displayName, const std::string &address)
    : displayName_(address.empty() ? std::string() : displayName), address_(address) {}

EmailAddress EmailAddress::rfc5322Parse(const std::string &text, bool lenient) {
    const bool isBracketed = text.size() > 2 && text.front() == '<' && text.back() == '>';
    const std::string_view inside =
        isBracketed ? std::string_view(text).substr(1, text.size() - 2) : text;
    if (inside.size() <= kMaxPlainBytes && s_isPlainAddress(inside)) {
        return EmailAddress(std::string(), std::string(inside));
    }
    const Tolerance tolerance = lenient ? Tolerance::Lenient : Tolerance::Strict;
    EmailAddress parsed = s_parse(text, tolerance);
    if (!s_holdsWord(parsed.address())) {
        return parsed;
    }
    // Some mailers encode the whole of "name <address>". An address can't be encoded any deeper.
    parsed = s_parse(s_decoded(text), tolerance);
    return s_holdsWord(parsed.address()) ? EmailAddress() : parsed;
}

std::string EmailAddress::asString() const {
    if (displayName_.empty()) {
        return address_;
    }
    const std::string name = s_needsQuotes(displayName_) ? s_quoted(displayName_) : displayName_;
    return name + " <" + address_ + '>';
}

} // namespace Corvane
