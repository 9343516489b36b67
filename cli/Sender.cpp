#include "Sender.h"

#include "Failure.h"
#include "host/parser/EmailAddress.h"

namespace Corvane::Cli {

std::optional<std::string> givenSender(const std::vector<std::string> &values) {
    if (values.empty()) {
        return {};
    }
    const std::string &text = values.back();
    const bool isAddress = !EmailAddress::rfc5322Parse(text, true).isNull();
    if (!isAddress && !text.empty() && text != "<>") {
        refuse("'" + text + "' is no address; --sender takes one such as joe@example.org, or <>");
    }
    return text;
}

} // namespace Corvane::Cli
