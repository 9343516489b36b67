#ifndef CORVANE_MESSAGECOLLECTOR_H
#define CORVANE_MESSAGECOLLECTOR_H

// Collects a message that comes in pieces, as a mail server hands it to a filter, and scans it as a
// whole:
//
//     corvane::MessageCollector message(options);
//     message.header("Subject", "hello");           // for each header
//     message.body(chunk);                          // for each piece of the body
//     const corvane::Verdict verdict = message.finish(holder.current());
//
// Nothing is tried before the end, since the text of the message decides which rules are: finish()
// is RuleSet::scan over what was collected. That is the message as its file on a mail server would
// have it, with LF at the ends of lines, so that both have the same verdict.
//
// Memory: never more than the limit on a message and one byte, whatever comes; what is beyond is
// dropped, and the verdict then names the limit "message-bytes".
//
// Threads: one at a time for a collector, and any number of collectors.

#include <cstddef>
#include <string>
#include <string_view>

#include "corvane/Export.h"
#include "corvane/RuleSet.h"
#include "corvane/ScanOptions.h"
#include "corvane/Verdict.h"

namespace corvane {

class CORVANE_API MessageCollector {
public:
    // Keeps the options until the end; they bound what is collected.
    explicit MessageCollector(ScanOptions options = ScanOptions());

    // Adds a header: the name, ": ", the value as it is, folds included, and a line end. For all
    // headers, in their order, before the body; those behind its first piece are taken as part of
    // it.
    void header(std::string_view name, std::string_view value);

    // The same for a value that still has what stood behind the colon, blanks included: nothing is
    // put between.
    void rawHeader(std::string_view name, std::string_view behindColon);

    // Adds a piece of the body, with line ends as they are; they may be cut over two pieces. The
    // first call, which may be one without bytes, ends the headers.
    void body(std::string_view bytes);

    // Scans what was collected and begins anew with nothing, so that the collector may take the
    // next message. Throws as RuleSet::scan; what was collected is dropped then too.
    Verdict finish(const RuleSet &rules);

    // The same with a profile, as RuleSet::scan has it.
    Verdict finish(const RuleSet &rules, RuleProfile &profile);

    // Begins anew with nothing: for a message that is given up. With options for the next message,
    // such as its sender, if given.
    void reset() noexcept;
    void reset(ScanOptions options);

    // What was collected so far; good until the next call that is not const. And the bytes that
    // there was no room for.
    std::string_view bytes() const noexcept { return bytes_; }
    std::size_t dropped() const noexcept { return dropped_; }

private:
    void add(std::string_view bytes);
    void append(std::string_view bytes);
    template <class Scan>
    Verdict finishWith(const Scan &scan);

    ScanOptions options_;
    std::string bytes_;
    std::size_t dropped_ = 0;
    bool inBody_ = false;
    bool heldReturn_ = false;
};

} // namespace corvane

#endif
