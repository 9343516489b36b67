#include "host/parser/html/Links.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kMaxBaseBytes = 4096;
constexpr ByteSet kPathEnds = byteSet("?#");

bool s_isSame(std::string_view left, std::string_view lowerRight) {
    return left.size() == lowerRight.size() && cssLower(left) == lowerRight;
}

// Length of "scheme:", 0 where there is none.
std::size_t s_schemeLength(std::string_view uri) {
    if (uri.empty() || !isLetter(uri.front())) {
        return 0;
    }
    const auto *const end = std::find_if(uri.begin(), uri.end(), [](char c) {
        return !isAlphanumeric(c) && c != '+' && c != '-' && c != '.';
    });
    const bool isScheme = end != uri.end() && *end == ':';
    return isScheme ? static_cast<std::size_t>(end - uri.begin()) + 1 : 0;
}

// Whether slashes part the scheme, with its colon, from a host.
bool s_hasHost(std::string_view scheme) {
    constexpr std::array<std::string_view, 5> kSchemes{"http:", "https:", "ftp:", "ws:", "wss:"};
    return std::any_of(kSchemes.begin(), kSchemes.end(),
                       [scheme](std::string_view one) { return s_isSame(scheme, one); });
}

// Whether it is followed as it is written: it has a scheme and a host, and nothing that browsers
// drop or change.
bool s_isPlain(std::string_view uri) {
    constexpr std::string_view kSlashes = "//";
    const std::size_t scheme = s_schemeLength(uri);
    return scheme != 0 && s_hasHost(uri.substr(0, scheme)) &&
           uri.substr(scheme, kSlashes.size()) == kSlashes &&
           uri.substr(scheme + kSlashes.size(), 1) != "/" &&
           std::all_of(uri.begin(), uri.end(),
                       [](char c) { return static_cast<unsigned char>(c) > ' ' && c != '\\'; });
}

// The front of a URI up to the end of its host.
std::string_view s_origin(std::string_view uri) {
    const std::size_t scheme = s_schemeLength(uri);
    const std::size_t host = scheme + (uri.substr(scheme, 2) == "//" ? 2 : 0);
    return uri.substr(0, std::min(uri.find_first_of("/?#", host), uri.size()));
}

// A path without "." and "..", as far as they lead somewhere.
std::string s_withoutDots(std::string_view path) {
    std::vector<std::string_view> parts;
    bool isDirectory = true;
    while (!path.empty()) {
        path.remove_prefix(path.front() == '/' ? 1 : 0);
        const std::string_view part = path.substr(0, path.find('/'));
        path.remove_prefix(part.size());
        isDirectory = part == "." || part == "..";
        if (part == ".." && !parts.empty()) {
            parts.pop_back();
        } else if (!isDirectory) {
            parts.push_back(part);
        }
    }
    std::string plain;
    for (const std::string_view part : parts) {
        plain.append("/").append(part);
    }
    return isDirectory ? plain + "/" : plain;
}

// Length of what stands up to the next comma outside of brackets.
std::size_t s_descriptionLength(std::string_view text) {
    unsigned int depth = 0;
    std::size_t length = 0;
    for (; length < text.size() && (text[length] != ',' || depth > 0); ++length) {
        depth += text[length] == '(' ? 1U : 0U;
        depth -= text[length] == ')' ? std::min(depth, 1U) : 0U;
    }
    return length;
}

} // namespace

std::string followedUri(std::string_view uri) {
    while (!uri.empty() && static_cast<unsigned char>(uri.front()) <= ' ') {
        uri.remove_prefix(1);
    }
    while (!uri.empty() && static_cast<unsigned char>(uri.back()) <= ' ') {
        uri.remove_suffix(1);
    }
    std::string followed(uri);
    followed.erase(std::remove_if(followed.begin(), followed.end(),
                                  [](char c) { return c == '\t' || c == '\n' || c == '\r'; }),
                   followed.end());
    const std::size_t scheme = s_schemeLength(followed);
    if (scheme != 0 && !s_hasHost(std::string_view(followed).substr(0, scheme))) {
        return followed;
    }
    const std::size_t path = findIn(kPathEnds, followed);
    std::replace(followed.begin(), followed.begin() + static_cast<std::ptrdiff_t>(path), '\\', '/');
    if (scheme != 0) {
        const std::size_t host = std::min(followed.find_first_not_of('/', scheme), followed.size());
        followed.replace(scheme, host - scheme, "//");
    } else if (followed.substr(0, 2) == "//") {
        followed.erase(0, followed.find_first_not_of('/') - 2);
    }
    return followed;
}

Base::Base(std::string_view uri) {
    const std::size_t scheme = s_schemeLength(uri);
    if (scheme == 0 || !s_hasHost(uri.substr(0, scheme))) {
        return;
    }
    scheme_ = uri.substr(0, scheme);
    origin_ = s_origin(uri);
    const std::string_view rest = uri.substr(origin_.size());
    const std::string_view path = rest.substr(0, rest.find_first_of("?#"));
    path_ = path.empty() ? "/" : s_withoutDots(path);
    directory_ = path_.substr(0, path_.rfind('/') + 1);
}

std::string Base::resolved(std::string_view uri) const {
    if (scheme_.empty() || uri.empty() || s_schemeLength(uri) != 0) {
        return std::string(uri);
    }
    if (uri.substr(0, 2) == "//") {
        return scheme_ + std::string(uri);
    }
    if (uri.front() == '?' || uri.front() == '#') {
        return origin_ + path_ + std::string(uri);
    }
    const std::size_t end = std::min(uri.find_first_of("?#"), uri.size());
    const std::string_view own = uri.substr(0, end);
    std::string path = own.front() == '/' ? "" : directory_;
    path.append(own);
    if (own.find('.') != kNone) {
        path = s_withoutDots(path);
    }
    return origin_ + path.append(uri.substr(end));
}

void Links::add(std::string_view uri, UriSight sight) {
    const auto asWritten = uris_.addAttribute(UriContainer::kHtml, uri, sight);
    if (asWritten.outcome != UriCollector::Outcome::Added || s_isPlain(uri)) {
        // So it was with where it leads, or that is the same.
        return;
    }
    const std::string followed = followedUri(uri);
    if (followed.empty() || followed.front() == '#') {
        return;
    }
    if (s_schemeLength(followed) != 0 || hasBase_) {
        uris_.addAttribute(UriContainer::kHtml, base_.resolved(followed), sight);
        return;
    }
    const auto held = uris_.addAttribute(UriContainer::kHtml, followed, sight);
    if (held.outcome == UriCollector::Outcome::Added || asWritten.text == followed) {
        relative_.emplace_back(held.text, sight);
    }
}

void Links::base(std::string_view uri) {
    const std::string followed = followedUri(uri);
    if (hasBase_ || followed.size() > kMaxBaseBytes ||
        !s_hasHost(std::string_view(followed).substr(0, s_schemeLength(followed)))) {
        add(uri, UriSight::Shown);
        return;
    }
    uris_.addAttribute(UriContainer::kHtml, uri, UriSight::Shown);
    hasBase_ = true;
    uris_.addAttribute(UriContainer::kHtml, followed, UriSight::Shown);
    base_ = Base(followed);
    std::array<bool, 2> isFull{}; // of shown and of hidden ones
    for (const auto &[link, sight] : relative_) {
        bool &isItsFull = isFull[sight == UriSight::Hidden ? 1 : 0];
        if (!isItsFull) {
            const auto added = uris_.addAttribute(UriContainer::kHtml, base_.resolved(link), sight);
            isItsFull = added.outcome == UriCollector::Outcome::Dropped;
        }
    }
    relative_.clear();
}

// Each is a URI up to a blank, and perhaps a description up to a comma.
void Links::addSet(std::string_view candidates, UriSight sight) {
    constexpr std::string_view kBetween = " \t\n\f\r,";
    while (true) {
        const std::size_t start = candidates.find_first_not_of(kBetween);
        if (start == kNone) {
            return;
        }
        candidates.remove_prefix(start);
        std::string_view uri = candidates.substr(0, candidates.find_first_of(" \t\n\f\r"));
        candidates.remove_prefix(uri.size());
        const bool isAlone = uri.back() == ',';
        uri = uri.substr(0, uri.find_last_not_of(',') + 1);
        add(uri, sight);
        if (!isAlone) {
            candidates.remove_prefix(s_descriptionLength(candidates));
        }
    }
}

// "5; url=http://..." as browsers read it, which get by without most of it.
void Links::addRefresh(std::string_view content) {
    constexpr std::string_view kUrl = "url";
    const std::size_t time = content.find_first_not_of(" \t\n\f\r0123456789.");
    if (time == kNone) {
        return;
    }
    content.remove_prefix(time);
    content.remove_prefix(content.front() == ';' || content.front() == ',' ? 1 : 0);
    content = cssTrimmed(content);
    if (s_isSame(content.substr(0, kUrl.size()), kUrl)) {
        const std::string_view behind = cssTrimmed(content.substr(kUrl.size()));
        content = behind.substr(0, 1) == "=" ? cssTrimmed(behind.substr(1)) : content;
    }
    if (!content.empty() && (content.front() == '"' || content.front() == '\'')) {
        content = content.substr(1, content.find(content.front(), 1) - 1);
    }
    add(content, UriSight::Shown);
}

void Links::scan(std::string_view line) {
    uris_.scan(UriContainer::kHtml, line, TextEnd::Whole);
}

} // namespace Corvane::Html
