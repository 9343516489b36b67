#ifndef CORVANE_SRC_HOST_PARSER_HTML_LINKS_H
#define CORVANE_SRC_HOST_PARSER_HTML_LINKS_H

// Where the links of a document lead.
//
// Each link is listed as it stands and, where that is not the same, as a browser follows it: with
// slashes for backslashes, and on from <base href>, which counts for the links before it as well.
//
// Threads: one thread at a time.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/parser/UriScan.h"

namespace Corvane::Html {

// What links without a host go on from.
class Base {
public:
    // A base that leads nowhere, or what followedUri() made of a link.
    Base() = default;
    explicit Base(std::string_view uri);

    // The link on from here; itself where it needs no base, or this one is none.
    std::string resolved(std::string_view uri) const;

private:
    std::string scheme_; // with its colon; empty where there is no base
    std::string origin_; // up to the end of the host
    std::string path_;   // without "." and ".."
    std::string directory_;
};

class Links {
public:
    // The collector is borrowed and must outlive this object.
    explicit Links(UriCollector &uris) : uris_(uris) {}

    // An attribute that holds one URI.
    void add(std::string_view uri, UriSight sight);

    // The candidates of srcset.
    void addSet(std::string_view candidates, UriSight sight);

    // The content of <meta http-equiv=refresh>.
    void addRefresh(std::string_view content);

    // The first <base href> is the document's base.
    void base(std::string_view uri);

    // The URIs in a line of text.
    void scan(std::string_view line);

private:
    UriCollector &uris_;
    Base base_;
    // Links before the base that need one, as the collector holds them.
    std::vector<std::pair<std::string_view, UriSight>> relative_;
    bool hasBase_ = false;
};

// What a browser makes of the text of a link: without the blanks around it and the line ends and
// tabs in it, with slashes for backslashes, two of them behind a scheme that wants them.
std::string followedUri(std::string_view uri);

} // namespace Corvane::Html

#endif
