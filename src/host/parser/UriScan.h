#ifndef CORVANE_SRC_HOST_PARSER_URISCAN_H
#define CORVANE_SRC_HOST_PARSER_URISCAN_H

// Collects the URIs of one message: from running text and from attributes of HTML tags. Repeats
// inside a source are dropped, order is kept, and the number and length of URIs are bounded.
//
// Threads: one thread at a time.

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "host/parser/MailLimits.h"
#include "host/parser/Uri.h"

namespace Corvane {

// Whether a text ends where its author ended it, or where it was cut.
enum class TextEnd { Whole, Cut };

class UriCollector {
public:
    // Notes the limits it runs into in hits. Both must outlive the collector.
    UriCollector(const MailLimits &limits, MailLimitSet &hits);

    // Adds the URIs in a text: http, https and ftp with "//", mailto, and bare "www." names, which
    // get the "http://" that they leave out. Closing punctuation, and brackets opened before the
    // URI, do not belong to it. One that reaches the end of a text that was cut there may be a false
    // one and is left out. Takes time linear in the text.
    void scan(unsigned int source, std::string_view text, TextEnd textEnd);

    // Adds an attribute's value as it stands, except white space around it and line ends and tabs
    // in it, which no client minds. Values that lead nowhere outside the message are dropped: empty
    // ones, fragments, cid: and embedded images.
    void addAttribute(unsigned int source, std::string_view value);

    // The collected URIs: a handle on the container that later calls still add to.
    const Ref<MPartAttribute> &attribute() const { return attribute_; }

private:
    void add(unsigned int source, std::string uri);

    const MailLimits &limits_;
    MailLimitSet &hits_;
    Ref<MPartAttribute> attribute_;
    // The object of attribute_.
    UriContainer *container_;
    // By source; the texts are those in the container, whose lists never move them.
    std::vector<std::unordered_set<std::string_view>> seen_;
    unsigned int count_;
};

} // namespace Corvane

#endif
