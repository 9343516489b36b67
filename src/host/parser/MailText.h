#ifndef CORVANE_SRC_HOST_PARSER_MAILTEXT_H
#define CORVANE_SRC_HOST_PARSER_MAILTEXT_H

// The readable text of a message, put together from its parts.
//
// Threads: one thread at a time.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/parser/MailLimits.h"
#include "host/parser/MimePart.h"
#include "host/parser/MimeStructure.h"
#include "host/parser/UriScan.h"

namespace Corvane {

class MailText {
public:
    // Everything is borrowed, and must outlive this object. URIs of the texts go to uris, limits to
    // hits.
    MailText(const std::vector<MimeEntity> &entities, const MailLimits &limits, MailLimitSet &hits,
             UriCollector &uris);

    // Decodes the parts and sets the attributes Text and AltText, each where there is one.
    void addTo(MimePart &part);

private:
    // What a part is to the reader of the message.
    enum class Role { None, Plain, Html, Alternative, Other };

    void assignRoles();
    bool isAlternativeHtml(std::size_t place) const;
    std::size_t firstText() const;
    void append(std::string &text, std::size_t place);
    std::string plainText(const MimeEntity &entity);
    std::string renderedHtml(const MimeEntity &entity);
    DecodedContent decoded(const MimeEntity &entity, MailLimit limit, std::string &storage);

    const std::vector<MimeEntity> &entities_;
    const MailLimits &limits_;
    MailLimitSet &hits_;
    UriCollector &uris_;
    std::vector<Role> roles_;
    // By multipart/alternative: its part that holds the first plain text, or kNoBranch.
    std::vector<std::size_t> plainBranch_;
    std::size_t plainBytesLeft_;
    std::size_t htmlBytesLeft_;
};

// Ends a text that is not empty with a line end, and cuts it, line end included, to the limit: at a
// line end, or inside a line where that would cost more than half of the text.
void boundText(std::string &text, const MailLimits &limits, MailLimit limit, MailLimitSet &hits);

} // namespace Corvane

#endif
