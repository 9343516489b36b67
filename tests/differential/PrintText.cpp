// Prints what the mail reader makes of messages, for comparison with other readers:
//
//     print-text MESSAGE...
//
// One line of JSON for each, with the texts whole: "file", "text" and "alternative" ("" without
// one), "links" of HTML, "limits", and "hiddenTextBytes".

#include <iostream>
#include <string>

#include <nlohmann/json.hpp>

#include "host/parser/Exception.h"
#include "host/parser/MailReader.h"
#include "host/parser/MimePart.h"
#include "host/parser/Uri.h"

namespace {

using namespace Corvane;

std::string s_textOf(const Mail &mail, MPartAttribute::Type type) {
    const MimePart *part = mail.properties()->part().operator->();
    const auto *text =
        part == nullptr ? nullptr : dynamic_cast<const MPartText *>(part->findAttr(type));
    return text == nullptr ? std::string() : text->text().asString();
}

nlohmann::json s_linksOf(const Mail &mail) {
    nlohmann::json links = nlohmann::json::array();
    const MimePart *part = mail.properties()->part().operator->();
    const auto *uris =
        part == nullptr ? nullptr
                        : dynamic_cast<const UriContainer *>(part->findAttr(MPartAttribute::Uris));
    const auto found = uris == nullptr ? UriContainer::Sources() : uris->sourced();
    if (const auto ofHtml = found.find(UriContainer::kHtml); ofHtml != found.end()) {
        for (const Uri &uri : ofHtml->second) {
            links.push_back(uri.asString());
        }
    }
    return links;
}

void s_print(const MailReader &reader, const std::string &path) {
    const Mail mail = reader.read(File::Path(path));
    nlohmann::json line{{"file", path},
                        {"text", s_textOf(mail, MPartAttribute::Text)},
                        {"alternative", s_textOf(mail, MPartAttribute::AltText)},
                        {"links", s_linksOf(mail)},
                        {"hiddenTextBytes", mail.disguise().hiddenTextBytes},
                        {"limits", nlohmann::json::array()}};
    for (const MailLimit limit : mail.limitsHit()) {
        line["limits"].push_back(mailLimitName(limit));
    }
    // A link may be cut inside a character.
    std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

} // namespace

int main(int argc, char **argv) {
    constexpr unsigned int kWholeText = 32U << 20U;
    Corvane::MailLimits limits;
    limits.value(Corvane::MailLimit::TextBytes, kWholeText);
    limits.value(Corvane::MailLimit::DecodedBytes, kWholeText);
    const Corvane::MailReader reader(limits);
    try {
        for (int i = 1; i < argc; ++i) {
            s_print(reader, argv[i]);
        }
    } catch (const Corvane::Exception &failure) {
        std::cerr << failure.asString() << '\n';
        return 1;
    }
    return 0;
}
