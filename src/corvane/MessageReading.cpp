#include "corvane/MessageReading.h"

#include <utility>

namespace corvane {

namespace {

using Corvane::EmailAddress;
using Corvane::Mail;
using Corvane::MailLimit;
using Corvane::MailLimits;

constexpr std::pair<MailLimit, unsigned int Limits::*> kLimits[] = {
    {MailLimit::MessageBytes, &Limits::messageBytes},
    {MailLimit::NestingDepth, &Limits::nestingDepth},
    {MailLimit::Parts, &Limits::parts},
    {MailLimit::Headers, &Limits::headers},
    {MailLimit::HeaderBytes, &Limits::headerBytes},
    {MailLimit::HeaderValueBytes, &Limits::headerValueBytes},
    {MailLimit::Uris, &Limits::uris},
    {MailLimit::UriBytes, &Limits::uriBytes},
    {MailLimit::DecodedBytes, &Limits::decodedBytes},
    {MailLimit::TextBytes, &Limits::textBytes},
    {MailLimit::RawBodyBytes, &Limits::rawBodyBytes},
    {MailLimit::HtmlBytes, &Limits::htmlBytes},
    {MailLimit::HtmlTagBytes, &Limits::htmlTagBytes},
    {MailLimit::StyleRules, &Limits::styleRules}};

} // namespace

MailLimits mailLimits(const Limits &limits) {
    MailLimits result;
    for (const auto &[limit, field] : kLimits) {
        result.value(limit, limits.*field);
    }
    return result;
}

EmailAddress senderOf(const ScanOptions &options, const Mail &mail) {
    if (!options.sender.has_value()) {
        return mail.sender();
    }
    const std::string &text = *options.sender;
    EmailAddress sender = EmailAddress::rfc5322Parse(text, true);
    return sender.isNull() && text != "<>" ? EmailAddress(std::string(), text) : sender;
}

} // namespace corvane
