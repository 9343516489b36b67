#ifndef CORVANE_CLI_SCANMESSAGE_H
#define CORVANE_CLI_SCANMESSAGE_H

// Scores one message with a rule set.
//
// Threads: any number of threads may scan at once with the same settings.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "MessageSource.h"
#include "heuristic/Scanner.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/MailLimits.h"

namespace Corvane::Cli {

struct ScanSettings {
    Heuristic::Scanner scanner;
    // Missing: the message's own Return-Path.
    std::optional<EmailAddress> sender;
    // Which part of the rule set is tried, as Scanner::getordinalCutoff says.
    unsigned int percent = 0;
    // The score above which a message counts as over; with stop the checks end there.
    float threshold = 0.0F;
    bool stop = false;
    bool verbose = false;
    MailLimits limits;
};

struct TrippedRule {
    std::string name;
    const char *kind; // the word that a rule file has for it
    float score;      // what it adds to the total: 0 for a sub-rule
};

// What came out of one message. With a failure only file and index count.
struct Verdict {
    std::string file;
    std::size_t index = 0;
    std::string failure;

    // The section whose rules were tried, as rule files name it.
    const char *language = "";
    unsigned int mask = 0;
    float score = 0.0F;
    bool tripped = false; // the checks were stopped
    bool over = false;
    std::vector<TrippedRule> rules; // by name
    MailLimitSet limits;
    float millis = 0.0F;
};

// The bytes go through a tap with the language's full rules first, then the message is read and
// scanned with the same match set, so that the meta rules see what the tap has found. What fails is
// told in the verdict; nothing of this system is thrown.
Verdict scanMessage(const ScanSettings &settings, const RawMessage &message);

} // namespace Corvane::Cli

#endif
