#include "host/parser/MailLimits.h"

#include <algorithm>

namespace Corvane {

MailLimits::MailLimits()
    : values_{kMaxMessageBytes, kMaxNestingDepth,     kMaxParts,        kMaxHeaders,
              kMaxHeaderBytes,  kMaxHeaderValueBytes, kMaxUris,         kMaxUriBytes,
              kMaxDecodedBytes, kMaxTextBytes,        kMaxRawBodyBytes, kMaxHtmlBytes,
              kMaxHtmlTagBytes, kMaxStyleRules} {}

void MailLimits::value(MailLimit limit, unsigned int value) {
    values_[static_cast<std::size_t>(limit)] = std::max(value, 1U);
}

const char *mailLimitName(MailLimit limit) {
    switch (limit) {
    case MailLimit::MessageBytes:
        return "message-bytes";
    case MailLimit::NestingDepth:
        return "nesting-depth";
    case MailLimit::Parts:
        return "parts";
    case MailLimit::Headers:
        return "headers";
    case MailLimit::HeaderBytes:
        return "header-bytes";
    case MailLimit::HeaderValueBytes:
        return "header-value-bytes";
    case MailLimit::Uris:
        return "uris";
    case MailLimit::UriBytes:
        return "uri-bytes";
    case MailLimit::DecodedBytes:
        return "decoded-bytes";
    case MailLimit::TextBytes:
        return "text-bytes";
    case MailLimit::RawBodyBytes:
        return "raw-body-bytes";
    case MailLimit::HtmlBytes:
        return "html-bytes";
    case MailLimit::HtmlTagBytes:
        return "html-tag-bytes";
    case MailLimit::StyleRules:
        return "style-rules";
    }
    return "";
}

} // namespace Corvane
