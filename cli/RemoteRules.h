#ifndef CORVANE_CLI_REMOTERULES_H
#define CORVANE_CLI_REMOTERULES_H

// The rules of a running daemon, as if they were loaded here:
//
//     const RemoteRules rules("/run/corvane/control.sock", options);
//     const Reporting::ScanReply reply = rules.scan(message);
//
// Threads: any number may scan at once.

#include <string>

#include "corvane/ScanOptions.h"
#include "report/ScanReply.h"

namespace Corvane::Cli {

class RemoteRules {
public:
    // Of the options threshold, stop, percent and sender count.
    RemoteRules(std::string socket, const corvane::ScanOptions &options);

    // The rules that are in place now. Throws code 4, with the remedy, where no daemon answers.
    Reporting::ShownRuleSet ruleSet() const;

    // Throws std::runtime_error with the reason where there is no verdict.
    Reporting::ScanReply scan(const std::string &message) const;

private:
    std::string socket_;
    std::string query_;
};

} // namespace Corvane::Cli

#endif
