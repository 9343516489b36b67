#include "host/parser/Uri.h"

namespace Corvane {

UriContainer::UriContainer() = default;
UriContainer::UriContainer(const UriContainer &) = default;
UriContainer &UriContainer::operator=(const UriContainer &) = default;
UriContainer::~UriContainer() = default;

void UriContainer::add(unsigned int source, const Uri &uri) {
    sources_[source].push_back(uri);
}

const UriContainer::Sources &UriContainer::sourced() const {
    return sources_;
}

} // namespace Corvane
