#ifndef CORVANE_HOST_PARSER_EMAILADDRESS_H
#define CORVANE_HOST_PARSER_EMAILADDRESS_H

// The address of one mailbox, with the name that is shown for it:
//
//     const auto sender = EmailAddress::rfc5322Parse("=?utf-8?Q?Caf=C3=A9?= <a@b.example>", true);
//     sender.address();     // "a@b.example"
//     sender.displayName(); // "Café"
//
// Threads: immutable but for assignment; parsing may run on any thread.

#include <string>

#include "host/parser/Export.h"

namespace Corvane {

class CORVANE_PARSER_API EmailAddress {
public:
    // What parsing looks at, from the front. A header's first mailbox lies well inside both; the
    // second bounds how deep groups nest, which the parser follows by recursion.
    static constexpr unsigned int kMaxTextBytes = 8192;
    static constexpr unsigned int kMaxColons = 32;

    // No address.
    EmailAddress();

    // Both in UTF-8, taken as they are; null where address is empty.
    explicit EmailAddress(const std::string &displayName, const std::string &address);

    // The first mailbox in a list of addresses; groups count as their members. Much of what mail
    // software writes against the rules is understood, such as commas in names. lenient = true also
    // takes brackets in names, and quotes, comments and angle brackets that are not in pairs.
    // Answers a null address where there is no mailbox ("<>", an empty group, words alone); never
    // throws for any text. Bytes that are not UTF-8 are taken as windows-1252, and encoded words in
    // the name are decoded, in quotes and comments too; a NUL counts as a blank.
    static EmailAddress rfc5322Parse(const std::string &text, bool lenient);

    bool isNull() const { return address_.empty(); }

    // The bare address in the letter case it was written in; the decoded name, empty where there is
    // none. Both in UTF-8.
    const std::string &address() const { return address_; }
    const std::string &displayName() const { return displayName_; }

    // "address", or "name <address>" with the name in quotes where it is more than words; empty for
    // a null address.
    std::string asString() const;

private:
    std::string displayName_;
    std::string address_;
};

} // namespace Corvane

#endif
