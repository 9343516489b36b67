#ifndef CORVANE_SRC_HOST_PARSER_MESSAGEHEADERS_H
#define CORVANE_SRC_HOST_PARSER_MESSAGEHEADERS_H

// The headers of a message as rules see them.
//
// Threads: one thread at a time.

#include <bitset>
#include <cstddef>

#include "host/parser/Header.h"
#include "host/parser/HeaderBlock.h"
#include "host/parser/MailLimits.h"
#include "host/parser/MimeContent.h"
#include "host/parser/UriScan.h"

namespace Corvane {

// Keeps headers within the limits, and the first of each name that a mail program shows, or that
// decides how the message is read, wherever it stands. URIs are taken from all of them.
class MessageHeaders {
public:
    // How many headers are kept beside those that the limit allows.
    static constexpr std::size_t kMostBesides = 22;

    // Notes the limits it runs into in hits. Everything is borrowed.
    MessageHeaders(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris);

    // Takes the next header of the message.
    void take(const ReceivedHeader &header);

    const RefHeaderList &list() const { return list_; }
    // What the headers say about the content; to be asked once.
    MimeContent content() { return content_.content(); }

private:
    bool isKept(const ReceivedHeader &header);
    bool isFirstThatMatters(const ReceivedHeader &header);

    const MailLimits &limits_;
    MailLimitSet &hits_;
    UriCollector &uris_;
    RefHeaderList list_;
    MimeContentReader content_;
    std::bitset<kMostBesides> met_; // of those that matter
    std::size_t headersLeft_;
    std::size_t bytesLeft_;
};

} // namespace Corvane

#endif
