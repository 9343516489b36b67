#ifndef CORVANE_SRC_CORVANE_MESSAGEREADING_H
#define CORVANE_SRC_CORVANE_MESSAGEREADING_H

// How a message is read for a scan.
//
// Threads: free functions without state.

#include "corvane/ScanOptions.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/MailLimits.h"
#include "host/parser/MailReader.h"

namespace corvane {

Corvane::MailLimits mailLimits(const Limits &limits);

// The sender of the envelope: the one that the options give, or the message's own; may be null.
Corvane::EmailAddress senderOf(const ScanOptions &options, const Corvane::Mail &mail);

} // namespace corvane

#endif
