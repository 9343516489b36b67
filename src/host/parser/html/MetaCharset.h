#ifndef CORVANE_SRC_HOST_PARSER_HTML_METACHARSET_H
#define CORVANE_SRC_HOST_PARSER_HTML_METACHARSET_H

// The charset that HTML declares for itself.
//
// Threads: a free function; any number of threads at once.

#include <string>
#include <string_view>

namespace Corvane::Html {

// The charset that HTML names in a <meta> near its start, in lower case; empty where there is none.
std::string metaCharset(std::string_view html);

} // namespace Corvane::Html

#endif
