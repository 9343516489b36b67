#ifndef CORVANE_HOST_PARSER_HEADER_H
#define CORVANE_HOST_PARSER_HEADER_H

// Message headers and ordered lists of them.
//
//     RefHeaderList headers(true);
//     headers->append(Header("Subject", "Hello"));
//     const Header subject = headers.find("subject");   // isNull() where there is none
//
// Names and values are bytes as the message has them; who builds a header gives its value unfolded.
//
// Threads: any number may read at once; building is for one thread at a time.

#include <cstddef>
#include <list>
#include <string>

#include "host/include2/TesselRefcounted.h"
#include "host/parser/Export.h"

namespace Corvane {

// A pair of texts, or null, which stands for an absent one. ("", "") is not null.
class CORVANE_PARSER_API TypeAndValue {
public:
    TypeAndValue();
    TypeAndValue(const std::string &type, const std::string &value);
    TypeAndValue(std::string &&type, std::string &&value) noexcept;
    TypeAndValue(const TypeAndValue &);
    TypeAndValue(TypeAndValue &&) noexcept;
    TypeAndValue &operator=(const TypeAndValue &);
    TypeAndValue &operator=(TypeAndValue &&) noexcept;
    virtual ~TypeAndValue();

    bool isNull() const { return null_; }

    // Both are owned by this object and empty for a null one.
    const std::string &type() const { return typeText(); }
    const std::string &value() const { return valueText(); }

protected:
    // What type() and value() answer, and the pair as one text.
    virtual const std::string &typeText() const;
    virtual const std::string &valueText() const;
    virtual std::string wholeText() const;

private:
    std::string type_;
    std::string value_;
    bool null_;
};

// A header: its name as type(), its body as value().
class CORVANE_PARSER_API Header : public TypeAndValue {
public:
    // A null header.
    Header();
    Header(const std::string &name, const std::string &value);
    Header(std::string &&name, std::string &&value) noexcept;

    // "Name: value", without a line end; empty for a null header.
    std::string asString() const { return wholeText(); }

protected:
    std::string wholeText() const override;
};

// Headers in message order. Names may repeat.
class CORVANE_PARSER_API HeaderContainer {
public:
    HeaderContainer();
    HeaderContainer(const HeaderContainer &);
    HeaderContainer(HeaderContainer &&) noexcept;
    HeaderContainer &operator=(const HeaderContainer &);
    HeaderContainer &operator=(HeaderContainer &&) noexcept;
    virtual ~HeaderContainer();

    // Append to the end; null headers too.
    void append(const Header &header);
    void append(Header &&header);

    // Owned by this container.
    const std::list<Header> &headers() const { return headers_; }

    // A copy of the first header of that name, a null one where there is none. The case of ASCII
    // letters does not matter.
    Header find(const std::string &name) const;

private:
    std::list<Header> headers_;
};

// A shared list of headers; iterate over it, or append to it, through a RefHeaderList.
class CORVANE_PARSER_API HeaderList : public RefImpl, public HeaderContainer {
public:
    using const_iterator = std::list<Header>::const_iterator;

    const_iterator begin() const { return headers().begin(); }
    const_iterator end() const { return headers().end(); }
    std::size_t size() const { return headers().size(); }
};

// The handle on a header list; copies share the list.
class CORVANE_PARSER_API RefHeaderList : public Ref<HeaderList> {
public:
    // An empty handle.
    RefHeaderList();

    // true: a new empty list. false: an empty handle.
    explicit RefHeaderList(bool create);

    // HeaderContainer::find on the list; throws code 1 for an empty handle.
    Header find(const std::string &name) const;
};

} // namespace Corvane

#endif
