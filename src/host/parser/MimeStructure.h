#ifndef CORVANE_SRC_HOST_PARSER_MIMESTRUCTURE_H
#define CORVANE_SRC_HOST_PARSER_MIMESTRUCTURE_H

// The parts of a message as a flat table, found in one pass over its lines.
//
// A tree builder makes objects for as many parts as a hostile message holds before anyone can count
// them. To stop it in time one must find the same boundaries that it finds, and where the two
// disagree a message can hide text. So the boundaries are found here, once, and counted as they are
// found; GMime reads the headers of parts and decodes their content.
//
// Threads: free functions; any number of threads at once.

#include <cstddef>
#include <string_view>
#include <vector>

#include "host/parser/HeaderBlock.h"
#include "host/parser/MailLimits.h"
#include "host/parser/MimeContent.h"

namespace Corvane {

struct MimeEntity {
    // The entity's own place in the table where there is no parent.
    std::size_t parent;
    MimeContent content;
    // The encoded content between the headers and the next boundary, a part of the message's bytes.
    std::string_view bytes;
    // Has parts, which follow in the table.
    bool isMultipart;
};

// The entities of a message whose headers have been read and whose body starts at lines, the
// message itself first. A multipart without a boundary, or without a part, is a text of its own; an
// attached message is not entered; a multipart that is nested too deep is kept closed. Takes time
// linear in the message.
std::vector<MimeEntity> mimeStructureOf(const HeaderContainer &headers, std::string_view message,
                                        LineReader lines, HeaderBlockReader &blocks,
                                        const MailLimits &limits, MailLimitSet &hits);

} // namespace Corvane

#endif
