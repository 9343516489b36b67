#ifndef CORVANE_SRC_HOST_PARSER_MIMECONTENT_H
#define CORVANE_SRC_HOST_PARSER_MIMECONTENT_H

// What the headers of a part say about its content.
//
// Threads: one object is for one thread at a time.

#include <string>
#include <utility>
#include <vector>

#include "host/parser/HeaderBlock.h"
#include "host/parser/TransferDecoder.h"

namespace Corvane {

struct MimeContent {
    std::string type = "text"; // both in lower case
    std::string subtype = "plain";
    std::string charset; // as declared, without quotes and surrounding white space
    // What may stand behind the dashes of a delimiter: mail programs differ in how they read a
    // boundary that is written against the rules. None where there is no boundary; one may be
    // empty.
    std::vector<std::string> boundaries;
    TransferEncoding encoding = TransferEncoding::None;
    bool isAttachment = false;
    bool isTyped = false; // has a Content-Type
    // The Content-Type is none: what there is is plain text, or what the bytes look like.
    bool isGuessed = false;
    // A parameter was too long and was cut.
    bool isCut = false;
};

// Reads Content-Type, Content-Transfer-Encoding and Content-Disposition, of which the first of each
// name counts. Values are read whole, however long they are, in linear time; NUL bytes in them
// count as nothing.
class MimeContentReader {
public:
    // Takes the next header of a block, whatever its name.
    void take(const ReceivedHeader &header);

    // What was read; gives it away.
    MimeContent content() { return std::move(content_); }

private:
    MimeContent content_;
    bool isEncoded_ = false;
    bool isDisposed_ = false;
};

} // namespace Corvane

#endif
