#include "host/parser/MessageHeaders.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "host/parser/ByteSet.h"
#include "host/parser/Text.h"
#include "host/parser/Uri.h"

namespace Corvane {

namespace {

// In lower case.
constexpr std::string_view kMattering[] = {
    "bcc",
    "cc",
    "content-disposition",
    "content-transfer-encoding",
    "content-type",
    "date",
    "from",
    "list-archive",
    "list-help",
    "list-id",
    "list-owner",
    "list-post",
    "list-subscribe",
    "list-unsubscribe",
    "list-unsubscribe-post",
    "message-id",
    "mime-version",
    "reply-to",
    "return-path",
    "sender",
    "subject",
    "to",
};

static_assert(std::size(kMattering) == MessageHeaders::kMostBesides);

// The place of a name among those that matter, their number for any other.
std::size_t s_placeOf(std::string_view name) {
    static constexpr ByteSet kFirst = byteSet("bcdflmrstBCDFLMRST");
    if (!isIn(kFirst, name.front())) {
        return std::size(kMattering);
    }
    const auto *const found =
        std::find_if(std::begin(kMattering), std::end(kMattering), [name](std::string_view lower) {
            return lower.size() == name.size() && lower.front() == toLowerAscii(name.front()) &&
                   std::equal(lower.begin(), lower.end(), name.begin(),
                              [](char expected, char c) { return expected == toLowerAscii(c); });
        });
    return static_cast<std::size_t>(found - std::begin(kMattering));
}

} // namespace

MessageHeaders::MessageHeaders(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris)
    : limits_(limits), hits_(hits), uris_(uris), list_(true),
      headersLeft_(limits.value(MailLimit::Headers)),
      bytesLeft_(limits.value(MailLimit::HeaderBytes)) {}

bool MessageHeaders::isFirstThatMatters(const ReceivedHeader &header) {
    const std::size_t place = s_placeOf(header.name);
    if (place == kMostBesides || met_[place]) {
        return false;
    }
    met_[place] = true;
    return true;
}

// Once a header is too much, no later one is kept that does not matter: what stands behind it would
// else seem to stand in its place.
bool MessageHeaders::isKept(const ReceivedHeader &header) {
    // A colon and a line end.
    constexpr std::size_t kBesides = 3;
    const std::size_t value = std::min<std::size_t>(header.value.bytes().size(),
                                                    limits_.value(MailLimit::HeaderValueBytes));
    const std::size_t bytes = header.name.size() + value + kBesides;
    const bool isFull = bytes > bytesLeft_;
    if (isFull) {
        hits_.insert(MailLimit::HeaderBytes);
    }
    if (headersLeft_ == 0) {
        hits_.insert(MailLimit::Headers);
    }
    const bool fits = !isFull && headersLeft_ > 0;
    bytesLeft_ -= isFull ? bytesLeft_ : bytes;
    headersLeft_ -= headersLeft_ > 0 ? 1 : 0;
    return fits;
}

void MessageHeaders::take(const ReceivedHeader &header) {
    content_.take(header);
    uris_.scan(UriContainer::kHeader, header.value.bytes(), TextEnd::Whole);
    if (!isFirstThatMatters(header) && !isKept(header)) {
        return;
    }
    const std::size_t maxBytes = limits_.value(MailLimit::HeaderValueBytes);
    std::string value = header.unfolded(maxBytes);
    if (value.size() > maxBytes) {
        hits_.insert(MailLimit::HeaderValueBytes);
        value.resize(maxBytes);
    }
    list_->append(Header(std::string(header.name), std::move(value)));
}

} // namespace Corvane
