#ifndef CORVANE_HOST_PARSER_MAILREADER_H
#define CORVANE_HOST_PARSER_MAILREADER_H

// Reads a message as received into the objects that a scan wants:
//
//     const Mail mail = MailReader().read(File::Path("/var/mail/new/1"));
//     scanner.process(matches, mail.properties(), mail.sender(), 0, false);
//
// It takes whatever arrives: any bytes are a message, damaged ones too. What it believes of a
// message is bounded (MailLimits.h). Where the thread uses a budget (Budget.h) that has ended, no further
// part is looked for and no further text decoded; headers and raw body are there.
//
// Threads: one reader may be used by any number of threads at once.

#include <cstddef>
#include <string_view>

#include "host/parser/Buffer.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/Export.h"
#include "host/parser/File.h"
#include "host/parser/MailLimits.h"
#include "host/parser/MessageProperties.h"

namespace Corvane {

// What a message does so that its reader sees something else than what was sent; of all its parts.
struct MailDisguise {
    std::size_t hiddenTextBytes = 0;     // text of HTML that nobody sees
    std::size_t invisibleCharacters = 0; // that were taken out of its texts
};

// A message that was read; owns everything it gives out, nothing refers to the bytes it was read
// from.
class CORVANE_PARSER_API Mail {
public:
    // Shares the properties; a Mail is usually made by a MailReader.
    Mail(const RefMessageProperties &properties, const EmailAddress &sender,
         const MailLimitSet &limitsHit);
    Mail(const Mail &);
    Mail(Mail &&) noexcept;
    Mail &operator=(const Mail &);
    Mail &operator=(Mail &&) noexcept;
    ~Mail();

    // Never an empty handle. headers() holds the message's headers as received, but unfolded. An
    // empty message has no header and no main part (part() holds null). Every other message has a
    // main part with these attributes:
    //   Text     the first inline text/plain part, or lacking one the first text/html rendered to
    //            text, then the other inline text parts, each on a new line, but for HTML that is
    //            the alternative of a text; with the charset declared for the first of them ("" if
    //            none was). Missing where the message has no inline text. Of a text of another type
    //            that is one of several alternatives only the last is there. A message that is
    //            shown inside the message stands as its Subject and its texts. Characters that
    //            nobody sees are dropped.
    //   RawText  the body as received, everything behind the headers.
    //   Uris     of headers, text and HTML.
    //   AltText  the HTML alternatives rendered to text, with kDiffers set. Without one the text as
    //            it was sent, with everything in it, where that is not the same; else missing.
    // A text that is not empty ends in a line end. Attachments are not looked into.
    const RefMessageProperties &properties() const { return properties_; }

    // The address in Return-Path; null where there is none.
    const EmailAddress &sender() const { return sender_; }

    // The limits that cut something off.
    const MailLimitSet &limitsHit() const { return limitsHit_; }

    // What is hidden in it; nothing unless the reader has noted something.
    const MailDisguise &disguise() const { return disguise_; }
    void disguise(const MailDisguise &disguise) { disguise_ = disguise; }

private:
    RefMessageProperties properties_;
    EmailAddress sender_;
    MailLimitSet limitsHit_;
    MailDisguise disguise_;
};

class CORVANE_PARSER_API MailReader {
public:
    // Copies the limits.
    explicit MailReader(const MailLimits &limits = MailLimits());

    // Reads length bytes, which may be dropped afterwards. Never throws for what they hold.
    Mail read(const void *data, std::size_t length) const;
    Mail read(std::string_view message) const;
    Mail read(const Buffer &message) const;

    // Reads a file, a pipe or a device to its end or to the limit on a message. Throws code 4, with
    // the path and the system's words, where it cannot be read.
    Mail read(const File::Path &path) const;

private:
    MailLimits limits_;
};

} // namespace Corvane

#endif
