#ifndef CORVANE_SRC_HOST_PARSER_HTMLTEXT_H
#define CORVANE_SRC_HOST_PARSER_HTMLTEXT_H

// HTML as the reader of a mail sees it: text only.
//
// Threads: free functions; any number of threads at once.

#include <string>
#include <string_view>

#include "host/parser/MailLimits.h"
#include "host/parser/UriScan.h"

namespace Corvane {

// The text of valid UTF-8 HTML: without scripts, styles and comments, entities decoded, each block
// on lines of its own, white space collapsed except inside <pre>, each line ended by LF. URIs of
// href, src and action attributes go to uris.
//
// Builds no tree, and takes time linear in the HTML and memory of a few times its size whatever the
// HTML holds. A tag longer than the limit loses what is beyond it, which is noted in hits. Throws
// Exception when memory runs out.
std::string htmlToText(std::string_view html, const MailLimits &limits, MailLimitSet &hits,
                       UriCollector &uris);

// The charset that HTML names in a <meta> near its start; empty where there is none.
std::string htmlMetaCharset(std::string_view html);

} // namespace Corvane

#endif
