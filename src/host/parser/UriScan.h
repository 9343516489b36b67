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

#include "host/parser/KeyedHash.h"
#include "host/parser/MailLimits.h"
#include "host/parser/Uri.h"

namespace Corvane {

// Whether a text ends where its author ended it, or where it was cut.
enum class TextEnd { Whole, Cut };

// Whether the reader of a mail can come upon a link. Hidden ones use up no more than half of the
// limit on URIs, in number and bytes, so that they cannot push out what is shown.
enum class UriSight { Shown, Hidden };

// What the texts of all URIs may come to together, in bytes; further ones count as beyond the limit
// on URIs.
constexpr std::size_t kMaxUriBytesOfAll = 4U << 20U;

class UriCollector {
public:
    // What became of a URI.
    enum class Outcome {
        Added,  // also where it was cut
        Known,  // is there already
        Dropped // leads nowhere, or is beyond the limit
    };
    struct Added {
        Outcome outcome;
        std::string_view text; // the one that is kept, which lasts as long as the container
    };

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
    Added addAttribute(unsigned int source, std::string_view value,
                       UriSight sight = UriSight::Shown);

    // The collected URIs: a handle on the container that later calls still add to.
    const Ref<MPartAttribute> &attribute() const { return attribute_; }

private:
    bool hasRoom(std::size_t length, UriSight sight);
    Added add(unsigned int source, std::string uri, UriSight sight);

    const MailLimits &limits_;
    MailLimitSet &hits_;
    Ref<MPartAttribute> attribute_;
    // The object of attribute_.
    UriContainer *container_;
    // By source; the texts are those in the container, whose lists never move them.
    std::vector<std::unordered_set<std::string_view, KeyedHash>> seen_;
    unsigned int count_ = 0;
    unsigned int hiddenCount_ = 0;
    std::size_t bytes_ = 0;
    std::size_t hiddenBytes_ = 0;
    bool isFull_ = false;
};

} // namespace Corvane

#endif
