#ifndef CORVANE_SRC_HOST_PARSER_HTMLTEXT_H
#define CORVANE_SRC_HOST_PARSER_HTMLTEXT_H

// HTML as the reader of a mail sees it: the way into the folder html.
//
// Threads: free functions; any number of threads at once.

#include <cstddef>
#include <string>
#include <string_view>

#include "host/parser/MailLimits.h"
#include "host/parser/UriScan.h"

namespace Corvane {

struct HtmlText {
    std::string seen; // what is seen, and in lines behind it what is hidden
    std::string sent; // all of it in the order of the HTML, where that is not the same
    bool differs = false;
    std::size_t hiddenBytes = 0;
    std::size_t invisibleCharacters = 0; // that were taken out of what is seen
};

// The text of valid UTF-8 HTML as docs/rule-format.md describes it: each block on lines of its own,
// white space collapsed, each line ended by LF. Links, and URIs in the text, go to uris. Of both
// texts a byte more than the limit on texts is kept at most.
//
// Builds no tree, and takes time linear in the HTML whatever that holds. textBytesLeft bounds the
// text that is looked at, and goes down by it; markup, scripts and style sheets do not count.
HtmlText htmlToText(std::string_view html, const MailLimits &limits, MailLimitSet &hits,
                    UriCollector &uris, std::size_t &textBytesLeft);

// The charset that HTML names in a <meta> near its start; empty where there is none.
std::string htmlMetaCharset(std::string_view html);

} // namespace Corvane

#endif
