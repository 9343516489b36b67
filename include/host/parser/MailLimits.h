#ifndef CORVANE_HOST_PARSER_MAILLIMITS_H
#define CORVANE_HOST_PARSER_MAILLIMITS_H

// How much of a message the mail reader believes. What lies beyond a limit is cut off, the rest is
// read, and the limit is reported with the message. Limits bound what is read, never where it
// stands: what nobody sees, such as empty parts or headers that nobody shows, uses up none, and
// what decides how the rest is read is found wherever it stands.
//
//
//     MailLimits limits;
//     limits.value(MailLimit::MessageBytes, 8U << 20);
//     for (const MailLimit limit : MailReader(limits).read(bytes, length).limitsHit()) {
//         std::cerr << mailLimitName(limit) << " over " << limits.value(limit) << '\n';
//     }
//
// Threads: a plain value; one thread at a time.

#include <array>
#include <cstddef>
#include <set>

#include "host/parser/Export.h"

namespace Corvane {

enum class MailLimit : unsigned int {
    MessageBytes, // the message as received; the rest is not looked at
    NestingDepth, // multiparts inside each other: the parts of deeper ones are read as though
                  // they stood in the last that counts; messages inside each other: deeper ones
                  // are not opened
    Parts,        // parts that hold text or a message; later ones are read, but not known as
                  // alternatives of what stands before
    Headers,      // headers of the message, beside the first of each name that matters (Subject,
                  // From, Content-Type and the like); later ones are dropped
    HeaderBytes,  // the same headers, as far as they are kept, all together
    HeaderValueBytes, // one unfolded header value
    Uris,             // URIs of all sources
    UriBytes,         // one URI
    DecodedBytes,     // decoded plain text, all parts together; URIs are looked for in this much
    TextBytes,        // each decoded text, its last line end included
    RawBodyBytes,     // the body as received, the same way
    HtmlBytes,        // text in HTML, all parts together; markup, scripts and sheets don't count
    HtmlTagBytes,     // the value of one attribute; the rest of it is dropped
    StyleRules        // selectors of the style sheets of one part, and the work that they cause;
                      // beyond it nothing counts as hidden
};

// The usual values. Bytes where the name says so, else counts.
constexpr unsigned int kMaxMessageBytes = 32U << 20U;
constexpr unsigned int kMaxNestingDepth = 32;
constexpr unsigned int kMaxParts = 1000;
constexpr unsigned int kMaxHeaders = 1000;
constexpr unsigned int kMaxHeaderBytes = 256U << 10U;
constexpr unsigned int kMaxHeaderValueBytes = 8U << 10U;
constexpr unsigned int kMaxUris = 10000;
constexpr unsigned int kMaxUriBytes = 4U << 10U;
constexpr unsigned int kMaxDecodedBytes = 2U << 20U;
constexpr unsigned int kMaxTextBytes = 64U << 10U;
constexpr unsigned int kMaxRawBodyBytes = 128U << 10U;
constexpr unsigned int kMaxHtmlBytes = 2U << 20U;
constexpr unsigned int kMaxHtmlTagBytes = 16U << 10U;
constexpr unsigned int kMaxStyleRules = 16384;

// The limits that one message ran into, in the order of the enumeration.
using MailLimitSet = std::set<MailLimit>;

// A short printable name such as "header-value-bytes"; never changes, lives for ever.
CORVANE_PARSER_API const char *mailLimitName(MailLimit limit);

// Starts with the usual values; a value of 0 is taken as 1.
class CORVANE_PARSER_API MailLimits {
public:
    MailLimits();

    unsigned int value(MailLimit limit) const { return values_[static_cast<std::size_t>(limit)]; }
    void value(MailLimit limit, unsigned int value);

private:
    static constexpr std::size_t kCount = static_cast<std::size_t>(MailLimit::StyleRules) + 1;

    std::array<unsigned int, kCount> values_;
};

} // namespace Corvane

#endif
