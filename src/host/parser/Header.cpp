#include "host/parser/Header.h"

#include <algorithm>
#include <utility>

#include "host/parser/Text.h"

namespace Corvane {

TypeAndValue::TypeAndValue() : null_(true) {}

TypeAndValue::TypeAndValue(const std::string &type, const std::string &value)
    : type_(type), value_(value), null_(false) {}

TypeAndValue::TypeAndValue(std::string &&type, std::string &&value) noexcept
    : type_(std::move(type)), value_(std::move(value)), null_(false) {}

TypeAndValue::TypeAndValue(const TypeAndValue &) = default;
TypeAndValue::TypeAndValue(TypeAndValue &&) noexcept = default;
TypeAndValue &TypeAndValue::operator=(const TypeAndValue &) = default;
TypeAndValue &TypeAndValue::operator=(TypeAndValue &&) noexcept = default;
TypeAndValue::~TypeAndValue() = default;

const std::string &TypeAndValue::typeText() const {
    return type_;
}

const std::string &TypeAndValue::valueText() const {
    return value_;
}

std::string TypeAndValue::wholeText() const {
    return type() + value();
}

Header::Header() = default;

Header::Header(const std::string &name, const std::string &value) : TypeAndValue(name, value) {}

Header::Header(std::string &&name, std::string &&value) noexcept
    : TypeAndValue(std::move(name), std::move(value)) {}

std::string Header::wholeText() const {
    return isNull() ? std::string() : type() + ": " + value();
}

HeaderContainer::HeaderContainer() = default;
HeaderContainer::HeaderContainer(const HeaderContainer &) = default;
HeaderContainer::HeaderContainer(HeaderContainer &&) noexcept = default;
HeaderContainer &HeaderContainer::operator=(const HeaderContainer &) = default;
HeaderContainer &HeaderContainer::operator=(HeaderContainer &&) noexcept = default;
HeaderContainer::~HeaderContainer() = default;

void HeaderContainer::append(const Header &header) {
    headers_.push_back(header);
}

void HeaderContainer::append(Header &&header) {
    headers_.push_back(std::move(header));
}

Header HeaderContainer::find(const std::string &name) const {
    const auto found =
        std::find_if(headers_.begin(), headers_.end(), [&name](const Header &header) {
            return equalIgnoringCase(header.type(), name);
        });
    return found == headers_.end() ? Header() : *found;
}

RefHeaderList::RefHeaderList() = default;

RefHeaderList::RefHeaderList(bool create)
    : Ref<HeaderList>(create ? Ref<HeaderList>(new HeaderList) : Ref<HeaderList>()) {}

Header RefHeaderList::find(const std::string &name) const {
    return (*this)->find(name);
}

} // namespace Corvane
