#ifndef CORVANE_HOST_PARSER_MIMEPART_H
#define CORVANE_HOST_PARSER_MIMEPART_H

// The main part of a message, as a bag of attributes that are told apart by type and dynamic class:
//
//     Ref<MimePart> part(new MimePart);
//     part->attr(MPartAttribute::Text, Ref<MPartAttribute>(new MPartText("utf-8", text, 0)));
//     const auto *found = dynamic_cast<const MPartText *>(part->findAttr(MPartAttribute::Text));
//
// Threads: any number may read at once; building is for one thread at a time.

#include <map>
#include <string>

#include "host/include2/TesselRefcounted.h"
#include "host/parser/Buffer.h"
#include "host/parser/Export.h"

namespace Corvane {

// Base of every attribute. The base is virtual: reach the class of an attribute by dynamic_cast.
class CORVANE_PARSER_API MPartAttribute : public virtual RefImpl {
public:
    enum Type : unsigned int {
        Text = 1,    // MPartText: the decoded text in UTF-8, with the charset that was declared
        RawText = 6, // MPartText: the body as received
        Uris = 7,    // UriContainer
        AltText = 8  // MPartText: a second rendering of the text, to check where kDiffers is set
    };

    MPartAttribute();
    MPartAttribute(const MPartAttribute &);
    MPartAttribute &operator=(const MPartAttribute &);
    ~MPartAttribute() override;
};

// A text with the name of its charset and a word of flags; immutable.
class CORVANE_PARSER_API MPartText : public MPartAttribute {
public:
    // Bit 0 of the flags: this rendering differs from the decoded text and should be checked too.
    static constexpr unsigned int kDiffers = 1;

    // text is kept as given: a view stays a view.
    MPartText(const std::string &charset, const Buffer &text, unsigned int flags);
    ~MPartText() override;

    // Owned by this object.
    const std::string &charset() const { return charset_; }
    const Buffer &text() const { return text_; }
    unsigned int flags() const { return flags_; }

private:
    std::string charset_;
    Buffer text_;
    unsigned int flags_;
};

class CORVANE_PARSER_API MimePart : public RefImpl {
public:
    MimePart();
    MimePart(const MimePart &);
    MimePart &operator=(const MimePart &);
    ~MimePart() override;

    // Sets the attribute of that type, replacing an earlier one; an empty handle takes it away.
    void attr(MPartAttribute::Type type, const Ref<MPartAttribute> &attribute);

    // The attribute of that type, or null; owned by this part.
    const MPartAttribute *findAttr(MPartAttribute::Type type) const;

private:
    std::map<MPartAttribute::Type, Ref<MPartAttribute>> attributes_;
};

} // namespace Corvane

#endif
