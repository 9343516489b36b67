#include "host/parser/UriScan.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "host/parser/ByteSet.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr unsigned char kFirstNonAscii = 0x80;

bool s_isNonAscii(char c) {
    return static_cast<unsigned char>(c) >= kFirstNonAscii;
}

bool s_isAlphanumeric(char c) {
    const char lower = toLowerAscii(c);
    return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9');
}

// Blanks, controls and what encloses URIs in text. Quotes inside a URI are rare, quotes around one
// are not.
bool s_endsUri(char c) {
    const auto byte = static_cast<unsigned char>(c);
    constexpr unsigned char kDelete = 0x7F;
    static constexpr ByteSet kEnclosing = byteSet("<>\"`{}|\\^");
    return byte <= ' ' || byte == kDelete || isIn(kEnclosing, c);
}

bool s_startsWith(std::string_view text, std::string_view lowerPrefix) {
    return text.size() >= lowerPrefix.size() &&
           std::equal(lowerPrefix.begin(), lowerPrefix.end(), text.begin(),
                      [](char expected, char c) { return expected == toLowerAscii(c); });
}

// Whether a word may begin at start: not inside a longer word, address or path.
bool s_beginsWord(std::string_view text, std::size_t start) {
    if (start == 0) {
        return true;
    }
    const char before = text[start - 1];
    return !s_isAlphanumeric(before) && std::string_view("@.-_/%+").find(before) == kNone;
}

// A URI that was recognised by a character inside its start.
struct Start {
    std::size_t offset; // kNone: no URI
    std::size_t rest;   // what follows "://", "mailto:" or "www."
};

constexpr Start kNoStart{kNone, kNone};

Start s_schemeAt(std::string_view text, std::size_t colon) {
    constexpr std::array<std::string_view, 4> kSchemes{"https://", "http://", "ftp://", "mailto:"};
    for (const std::string_view scheme : kSchemes) {
        const std::size_t name = scheme.find(':');
        if (colon < name) {
            continue;
        }
        const std::size_t start = colon - name;
        const bool glued = start > 0 && s_isAlphanumeric(text[start - 1]);
        if (!glued && s_startsWith(text.substr(start), scheme)) {
            return {start, start + scheme.size()};
        }
    }
    return kNoStart;
}

Start s_bareNameAt(std::string_view text, std::size_t dot) {
    constexpr std::string_view kPrefix = "www.";
    if (dot < kPrefix.size() - 1) {
        return kNoStart;
    }
    const std::size_t start = dot - (kPrefix.size() - 1);
    if (!s_startsWith(text.substr(start), kPrefix) || !s_beginsWord(text, start)) {
        return kNoStart;
    }
    return {start, dot + 1};
}

// Typographic blanks, quotes and full-width punctuation (U+00A0, U+20xx, U+30xx below kana,
// U+FFxx): they end a host name, other letters may belong to it.
bool s_isForeignPunctuation(std::string_view text) {
    constexpr std::array<std::string_view, 7> kLeads{"\xC2\xA0", "\xE2\x80", "\xE2\x81", "\xE3\x80",
                                                     "\xEF\xBC", "\xEF\xBD", "\xEF\xBF"};
    return std::any_of(kLeads.begin(), kLeads.end(), [text](std::string_view lead) {
        return text.substr(0, lead.size()) == lead;
    });
}

// End of the host name at from. Text in scripts without blanks may follow a name directly:
// letters beyond ASCII end it when its last label began in ASCII.
std::size_t s_hostEnd(std::string_view text, std::size_t from) {
    std::size_t end = from;
    bool asciiLabel = true;
    for (bool labelStart = true; end < text.size(); ++end) {
        const char c = text[end];
        if (s_endsUri(c) || c == '/' || c == '?' || c == '#' || c == ':' ||
            s_isForeignPunctuation(text.substr(end))) {
            break;
        }
        if (labelStart) {
            asciiLabel = !s_isNonAscii(c);
        }
        labelStart = c == '.';
    }
    const std::size_t dot = end == from ? kNone : text.substr(from, end - from).rfind('.');
    const std::size_t label = dot == kNone ? from : from + dot + 1;
    if (!asciiLabel) {
        return end;
    }
    const auto *const last = text.data() + end;
    const auto *const foreign = std::find_if(text.data() + label, last, s_isNonAscii);
    return static_cast<std::size_t>(foreign - text.data());
}

std::size_t s_uriEnd(std::string_view text, std::size_t from) {
    std::size_t end = s_hostEnd(text, from);
    while (end < text.size() && !s_endsUri(text[end]) && !s_isNonAscii(text[end])) {
        ++end;
    }
    return end;
}

std::string_view s_withoutTail(std::string_view uri) {
    constexpr std::string_view kPunctuation = ".,;:!?'*([";
    std::array<std::ptrdiff_t, 2> surplus{
        std::count(uri.begin(), uri.end(), ')') - std::count(uri.begin(), uri.end(), '('),
        std::count(uri.begin(), uri.end(), ']') - std::count(uri.begin(), uri.end(), '[')};
    while (!uri.empty()) {
        const char c = uri.back();
        if (c == ')' || c == ']') {
            std::ptrdiff_t &extra = surplus[c == ')' ? 0 : 1];
            if (extra <= 0) {
                break;
            }
            --extra;
        } else if (kPunctuation.find(c) == kNone) {
            break;
        } else if (c == '(' || c == '[') {
            ++surplus[c == '(' ? 0 : 1];
        }
        uri.remove_suffix(1);
    }
    return uri;
}

// Not 0 where the byte may stand inside the start of a URI, by its neighbours: the colon of "://" or
// "mailto:", or the dot of "www.". Without branches, so that many bytes are looked at in one step.
unsigned char s_mark(const char *at) {
    constexpr char kToLower = 0x20;
    const auto is = [](char c, char wanted) { return static_cast<unsigned char>(c == wanted); };
    const char before = static_cast<char>(at[-1] | kToLower);
    const auto colon =
        static_cast<unsigned char>(is(at[0], ':') & (is(at[1], '/') | is(before, 'o')));
    return static_cast<unsigned char>(colon | (is(at[0], '.') & is(before, 'w')));
}

// The first place from here on at which a URI may be recognised, kNone behind the last. There is
// none at the ends of a text.
std::size_t s_nextMark(std::string_view text, std::size_t from) {
    constexpr std::size_t kStep = 32;
    std::size_t at = std::max<std::size_t>(from, 1);
    for (; at + kStep < text.size(); at += kStep) {
        unsigned char marks = 0;
        for (std::size_t place = 0; place < kStep; ++place) {
            marks |= s_mark(text.data() + at + place);
        }
        if (marks != 0) {
            break;
        }
    }
    while (at + 1 < text.size() &&
           ((text[at] != ':' && text[at] != '.') || s_mark(text.data() + at) == 0)) {
        ++at;
    }
    return at + 1 < text.size() ? at : kNone;
}

// Whether something that can be a host or an address follows the start.
bool s_leadsSomewhere(std::string_view uri, std::size_t start) {
    return uri.size() > start && (s_isAlphanumeric(uri[start]) || s_isNonAscii(uri[start]) ||
                                  uri[start] == '[' || uri[start] == '%' || uri[start] == '_');
}

} // namespace

UriCollector::UriCollector(const MailLimits &limits, MailLimitSet &hits)
    : limits_(limits), hits_(hits), container_(nullptr), seen_(UriContainer::kHtml + 1) {
    auto container = std::make_unique<UriContainer>();
    container_ = container.get();
    attribute_ = Ref<MPartAttribute>(container.release());
}

// Whether the limits leave room for a URI of that length. Once one did not fit, no later one does.
bool UriCollector::hasRoom(std::size_t length, UriSight sight) {
    const unsigned int most = limits_.value(MailLimit::Uris);
    const bool isHiddenFull =
        sight == UriSight::Hidden &&
        (hiddenCount_ >= most / 2 || hiddenBytes_ + length > kMaxUriBytesOfAll / 2);
    isFull_ = isFull_ || (!isHiddenFull && (count_ == most || bytes_ + length > kMaxUriBytesOfAll));
    if (isFull_ || isHiddenFull) {
        hits_.insert(MailLimit::Uris);
        return false;
    }
    return true;
}

UriCollector::Added UriCollector::add(unsigned int source, std::string uri, UriSight sight) {
    const std::size_t longest = limits_.value(MailLimit::UriBytes);
    const bool isCut = uri.size() > longest;
    if (isCut) {
        hits_.insert(MailLimit::UriBytes);
        uri.resize(longest);
    }
    auto &seen = seen_[source];
    if (isFull_) {
        return {Outcome::Dropped, {}};
    }
    if (const auto known = seen.find(uri); known != seen.end()) {
        // Of two that were cut only the fronts are the same.
        return {isCut ? Outcome::Added : Outcome::Known, *known};
    }
    if (!hasRoom(uri.size(), sight)) {
        return {Outcome::Dropped, {}};
    }
    ++count_;
    bytes_ += uri.size();
    if (sight == UriSight::Hidden) {
        ++hiddenCount_;
        hiddenBytes_ += uri.size();
    }
    container_->add(source, Uri(uri));
    const std::string &kept = container_->sourced().at(source).back().asString();
    seen.insert(kept);
    return {Outcome::Added, kept};
}

void UriCollector::scan(unsigned int source, std::string_view text, TextEnd textEnd) {
    std::size_t found = s_nextMark(text, 0);
    while (found != kNone) {
        const bool isScheme = text[found] == ':';
        const Start start = isScheme ? s_schemeAt(text, found) : s_bareNameAt(text, found);
        if (start.offset == kNone) {
            found = s_nextMark(text, found + 1);
            continue;
        }
        const std::size_t end = s_uriEnd(text, start.rest);
        const auto uri = s_withoutTail(text.substr(start.offset, end - start.offset));
        const bool isWhole = textEnd == TextEnd::Whole || end < text.size();
        if (isWhole && s_leadsSomewhere(uri, start.rest - start.offset)) {
            add(source, (isScheme ? "" : "http://") + std::string(uri), UriSight::Shown);
        }
        found = s_nextMark(text, std::max(end, found + 1));
    }
}

UriCollector::Added UriCollector::addAttribute(unsigned int source, std::string_view value,
                                               UriSight sight) {
    std::string uri(value);
    stringRightTrim(uri);
    stringLeftTrim(uri);
    uri.erase(std::remove_if(uri.begin(), uri.end(),
                             [](char c) { return c == '\t' || c == '\n' || c == '\r'; }),
              uri.end());
    if (uri.empty() || uri.front() == '#' || s_startsWith(uri, "cid:") ||
        s_startsWith(uri, "data:image/")) {
        return {Outcome::Dropped, {}};
    }
    return add(source, std::move(uri), sight);
}

} // namespace Corvane
