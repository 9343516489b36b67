#ifndef CORVANE_TESTS_SUPPORT_READMAIL_H
#define CORVANE_TESTS_SUPPORT_READMAIL_H

// A message that was read, in the words of the tests.

#include <string>
#include <utility>

#include "host/parser/MailReader.h"
#include "host/parser/Uri.h"

namespace Corvane {

inline std::string repeated(const std::string &piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

class Reading {
public:
    explicit Reading(const std::string &message, const MailLimits &limits = MailLimits())
        : mail_(MailReader(limits).read(message.data(), message.size())) {}
    explicit Reading(Mail mail) : mail_(std::move(mail)) {}

    const Mail &mail() const { return mail_; }
    bool hit(MailLimit limit) const { return mail_.limitsHit().count(limit) != 0; }

    std::string header(const std::string &name) const {
        return mail_.properties()->headers().find(name).value();
    }
    const MPartText *attribute(MPartAttribute::Type type) const {
        const MimePart *part = mail_.properties()->part().operator->();
        return dynamic_cast<const MPartText *>(part->findAttr(type));
    }
    std::string textOf(MPartAttribute::Type type) const {
        const MPartText *found = attribute(type);
        return found != nullptr ? found->text().asString() : "none";
    }
    std::string text() const { return textOf(MPartAttribute::Text); }
    std::string raw() const { return textOf(MPartAttribute::RawText); }
    std::string alternative() const { return textOf(MPartAttribute::AltText); }
    std::string uris() const {
        const MimePart *part = mail_.properties()->part().operator->();
        const auto *found =
            dynamic_cast<const UriContainer *>(part->findAttr(MPartAttribute::Uris));
        std::string all;
        for (const auto &[source, list] : found->sourced()) {
            for (const Uri &uri : list) {
                all += std::to_string(source) + uri.asString() + ' ';
            }
        }
        return all;
    }

private:
    Mail mail_;
};

// Test rows of a message and the texts that it has; "none" where there is no such text.
struct TextRow {
    const char *name;
    std::string message;
    std::string text;
    std::string alternative;
};

inline void PrintTo(const TextRow &row, std::ostream *out) {
    *out << row.name;
}

} // namespace Corvane

#endif
