#ifndef CORVANE_DAEMON_RELOADER_H
#define CORVANE_DAEMON_RELOADER_H

// Reads configuration and rules beside the running ones, and puts them in their place.
//
// Threads: any; reloads run one at a time, on the thread that asks for them.

#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Live.h"
#include "Log.h"
#include "Transaction.h"
#include "corvane/RuleFiles.h"

namespace Corvane::Milter {

struct Loaded {
    SetupRef setup;
    // What the rules were made of.
    std::vector<corvane::RuleFiles> files;
};

// The rules would take, or have taken, the process beyond the memory that it may have.
class MemoryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads the file and loads the rules that it names. What they will need is guessed from what those
// of old took, null for none, before it is measured. Throws ConfigError, corvane::LoadError,
// MemoryError and std::bad_alloc.
Loaded loadSetup(const std::string &configFile, const Setup *old = nullptr);

// Saves the rules among those that were in use, as the configuration has it. Where that fails the
// log says so: a verdict that cannot be found out again is better than none.
void saveRules(const Loaded &loaded, const Log &log);

// A line for each problem with single rules, so many at the most, and one that sums them up.
void logRules(const corvane::RuleSet &rules, const Log &log);

class Reloader {
public:
    enum class Outcome {
        Replaced,   // the new setup is in place
        KeptFailed, // it could not be read or loaded; the old one stays
        KeptEmpty,  // it has no rules, but the old one has; that stays
        KeptMemory  // there is not the memory for both; the old one stays
    };

    struct Result {
        Outcome outcome = Outcome::Replaced;
        // Why the old setup was kept.
        std::string reason;
        // Generations of the rules that were in place, and that are.
        std::string former;
        std::string current;
    };

    // All must outlive it.
    Reloader(Shared &shared, Log &log) : shared_(shared), log_(log) {}

    // Throws nothing. Whatever becomes of it is logged.
    Result reload();

private:
    Result load();

    Shared &shared_;
    Log &log_;
    std::mutex one_;
};

// Such as "replaced"; lives for ever.
std::string_view nameOf(Reloader::Outcome outcome);

} // namespace Corvane::Milter

#endif
