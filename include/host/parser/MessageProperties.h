#ifndef CORVANE_HOST_PARSER_MESSAGEPROPERTIES_H
#define CORVANE_HOST_PARSER_MESSAGEPROPERTIES_H

// What a scan wants to know of one message: its headers and its main part.
//
//     const RefMessageProperties message = RefMessageProperties::create(headers, part);
//     message->headers().find("Subject");
//     const MimePart *main = message->part().operator->();   // null: a message without a main part
//
// Threads: immutable, so any number may read at once.

#include "host/include2/TesselRefcounted.h"
#include "host/parser/Export.h"
#include "host/parser/Header.h"
#include "host/parser/MimePart.h"

namespace Corvane {

class CORVANE_PARSER_API MessageProperties : public RefImpl {
public:
    // Shares the list and the part. A part whose handle holds null stands for a message without a
    // main part; an empty handle throws code 1 when a scan asks for it.
    MessageProperties(const RefHeaderList &headers, const Ref<MimePart> &part);
    ~MessageProperties() override;

    // Owned by this object.
    const RefHeaderList &headers() const { return headers_; }
    const Ref<MimePart> &part() const { return part_; }

private:
    RefHeaderList headers_;
    Ref<MimePart> part_;
};

// The handle on a message's properties; copies share them.
class CORVANE_PARSER_API RefMessageProperties : public Ref<MessageProperties> {
public:
    // An empty handle.
    RefMessageProperties();

    // New properties over the list and the part, as the constructor of MessageProperties takes
    // them.
    static RefMessageProperties create(const RefHeaderList &headers, const Ref<MimePart> &part);

private:
    explicit RefMessageProperties(MessageProperties *fresh);
};

} // namespace Corvane

#endif
