#ifndef CORVANE_CLI_REPORT_H
#define CORVANE_CLI_REPORT_H

// How the results of a scan are shown.
//
// Threads: one thread.

#include <cstddef>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "report/ScanReply.h"

namespace Corvane::Cli {

// What became of one message.
struct MessageResult {
    // As in RawMessage. With a failure there is no verdict.
    std::string file;
    std::size_t index = 0;
    std::string failure;

    Reporting::ShownVerdict verdict;
    // Those that gave it, where they may be others than the report's: a daemon may replace its
    // rules between two messages.
    std::optional<Reporting::ShownRuleSet> rules;

    bool isUndecided() const { return failure.empty() && verdict.isUndecided(); }
};

struct Totals {
    std::size_t scanned = 0; // the next two included
    std::size_t over = 0;
    std::size_t undecided = 0;
    std::size_t failed = 0;

    std::size_t all() const { return scanned + failed; }
};

// What a report tells besides the results.
struct ReportContext {
    Reporting::ShownRuleSet rules;
    float threshold = 0.0F;
    // Names the rules whose tries were given up.
    bool verbose = false;
    bool coloured = false;
};

class Report {
public:
    Report() = default;
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;
    virtual ~Report() = default;

    // Called for each message in turn, for those that failed too; the caller tells the user of the
    // failure itself.
    virtual void message(const MessageResult &result) = 0;

    // Called once, at the end.
    virtual void summary(const Totals &totals) = 0;
};

// For people: a line for each message, others below it for what tripped or was cut, and at the end
// how many rules there were and, unless there was exactly one message, a summary. out must outlive
// the report, as below.
std::unique_ptr<Report> makeTextReport(std::ostream &out, ReportContext context);

// For programs: one JSON object a line for each message, no summary. Bytes that are not UTF-8 are
// replaced; what they were is told in hexadecimal beside the name.
std::unique_ptr<Report> makeJsonReport(std::ostream &out, ReportContext context);

} // namespace Corvane::Cli

#endif
