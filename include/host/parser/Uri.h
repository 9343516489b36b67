#ifndef CORVANE_HOST_PARSER_URI_H
#define CORVANE_HOST_PARSER_URI_H

// The URIs of a message, grouped by where they were found.
//
//     UriContainer uris;
//     uris.add(UriContainer::kText, Uri("http://example.com/"));
//
// Threads: any number may read at once; building is for one thread at a time.

#include <list>
#include <map>
#include <string>

#include "host/parser/Export.h"
#include "host/parser/MimePart.h"

namespace Corvane {

// One URI, as a text that nothing is assumed of; immutable.
class CORVANE_PARSER_API Uri {
public:
    // A null URI, which stands for an absent one.
    Uri() : null_(true) {}
    explicit Uri(const std::string &text) : text_(text), null_(false) {}

    bool isNull() const { return null_; }

    // The whole text, empty for a null URI; owned by this object.
    const std::string &asString() const { return text_; }

private:
    std::string text_;
    bool null_;
};

class CORVANE_PARSER_API UriContainer : public MPartAttribute {
public:
    // Sources in use; callers with a parser of their own may add others above.
    static constexpr unsigned int kHeader = 0;
    static constexpr unsigned int kText = 1;
    static constexpr unsigned int kHtml = 2;

    using Sources = std::map<unsigned int, std::list<Uri>>;

    UriContainer();
    UriContainer(const UriContainer &);
    UriContainer &operator=(const UriContainer &);
    ~UriContainer() override;

    // Appends to the URIs of a source; repeats are kept.
    void add(unsigned int source, const Uri &uri);

    // The URIs by source, each list in the order of adding; owned by this object. May throw
    // Exception where a derived container cannot answer.
    virtual const Sources &sourced() const;

private:
    Sources sources_;
};

} // namespace Corvane

#endif
