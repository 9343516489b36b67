#ifndef CORVANE_CLI_REPORT_H
#define CORVANE_CLI_REPORT_H

// How the results of a scan are shown.
//
// Threads: one thread.

#include <cstddef>
#include <memory>
#include <ostream>

#include "ScanMessage.h"

namespace Corvane::Cli {

struct Totals {
    std::size_t scanned = 0;
    std::size_t over = 0;
    std::size_t failed = 0;

    std::size_t all() const { return scanned + failed; }
};

class Report {
public:
    Report() = default;
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;
    virtual ~Report() = default;

    // Called for each message in turn, for those that failed too; the caller tells the user of the
    // failure itself.
    virtual void message(const Verdict &verdict) = 0;

    // Called once, at the end.
    virtual void summary(const Totals &totals) = 0;
};

enum class Colours { Off, On };

// For people: a line for each message, one for each rule below it, and a summary unless there was
// exactly one message. out must outlive the report, as below.
std::unique_ptr<Report> makeTextReport(std::ostream &out, float threshold, Colours colours);

// For programs: one JSON object a line for each message, no summary. Bytes that are not UTF-8 are
// replaced; what they were is told in hexadecimal beside the name.
std::unique_ptr<Report> makeJsonReport(std::ostream &out);

} // namespace Corvane::Cli

#endif
