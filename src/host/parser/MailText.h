#ifndef CORVANE_SRC_HOST_PARSER_MAILTEXT_H
#define CORVANE_SRC_HOST_PARSER_MAILTEXT_H

// The readable text of a message, put together from its parts and from the messages in them.
//
// Threads: one thread at a time.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/parser/MailLimits.h"
#include "host/parser/MailReader.h"
#include "host/parser/MimePart.h"
#include "host/parser/MimeStructure.h"
#include "host/parser/UriScan.h"

namespace Corvane {

// A text as its reader sees it, and as it was sent where that is not the same.
struct SeenText {
    std::string seen;
    std::string sent;
    bool differs = false;
};

class MailText {
public:
    // Everything is borrowed, and must outlive this object. URIs of the texts go to uris, limits to
    // hits.
    MailText(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris);

    // Decodes the parts of a message, which has been read up to its body.
    void take(MimeStructure &structure);

    // Sets the attributes Text and AltText, each where there is one.
    void addTo(MimePart &part);

    // What the texts hide, also where they were cut.
    const MailDisguise &disguise() const { return disguise_; }

private:
    // One of both texts while it grows.
    struct Growing {
        SeenText text;
        std::string charset; // declared for the first part
        bool hasPart = false;
    };

    void takeTable(const std::vector<MimeEntity> &table, bool isFirst);
    void takePart(const MimeEntity &entity, bool isHtml, Growing &text);
    void takeMessage(const MimeEntity &entity);
    void takeInner(std::string_view message);
    void append(Growing &text, const SeenText &piece);
    SeenText seen(std::string text);
    SeenText plainText(const MimeEntity &entity);
    SeenText renderedHtml(const MimeEntity &entity);
    DecodedContent decoded(const MimeEntity &entity, MailLimit limit, std::size_t &left,
                           std::string &storage);

    const MailLimits &limits_;
    MailLimitSet &hits_;
    UriCollector &uris_;
    Growing text_;
    Growing alternative_;
    MailDisguise disguise_;
    // How many messages around the one at hand are open.
    unsigned int depth_ = 0;
    std::size_t plainBytesLeft_;
    std::size_t htmlBytesLeft_;
    std::size_t messageBytesLeft_;
};

// Ends a text that is not empty with a line end, and cuts it, line end included, to the limit: at a
// line end, or inside a line where that would cost more than half of the text.
void boundText(std::string &text, const MailLimits &limits, MailLimit limit, MailLimitSet &hits);

} // namespace Corvane

#endif
