#ifndef CORVANE_DAEMON_CONFIG_H
#define CORVANE_DAEMON_CONFIG_H

// What the administrator configures: one TOML file, read as a whole and refused as a whole.
//
//     const Config config = Config::read("/etc/corvane/milter.toml"); // throws ConfigError
//
// The values below are the defaults; the man page corvane-milter.toml(5) tells what they mean to
// whoever runs the daemon.
//
// Threads: plain values.

#include <chrono>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "Network.h"
#include "corvane/ScanOptions.h"

namespace Corvane::Milter {

// The file cannot be taken. what() has a line for each fault: "FILE:LINE:COLUMN: what is wrong;
// what to do", without a line end behind the last.
class ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What becomes of a message.
enum class Action {
    None,       // it passes without headers of ours
    Tag,        // it passes with them
    Quarantine, // it is held by the server, with them
    Reject,     // the client is refused for good
    Discard     // it is taken and thrown away
};

// What is done with messages of a score from min upwards; of several bands the highest reached.
struct Band {
    float min = 0.0F;
    Action action = Action::Tag;
    // Of a refusal.
    std::string text = "Message refused";
};

// What becomes of a message that has no verdict.
enum class OnError {
    Accept,  // it passes, with "error" as its status
    TempFail // the client is asked to come again
};

enum class LogFormat { Logfmt, Json };
// Each includes the one before it.
enum class LogLevel { Error, Info, Debug };

struct SocketConfig {
    // A path, or with a port an address; the port 0 is any that is free.
    std::string path = "/var/spool/postfix/corvane/milter.sock";
    std::string host;
    unsigned int port = 0;
    bool isInet() const { return !host.empty(); }
    // Of the path.
    unsigned int mode = 0660;
    std::chrono::seconds timeout{600};
};

struct ControlConfig {
    // Of the Unix socket; "" for none.
    std::string path = "/run/corvane/control.sock";
    // For metrics and health alone: an address of loopback; "" for none.
    std::string host;
    unsigned int port = 0;
};

struct Config {
    // The file that it was read from.
    std::string file;

    std::vector<std::string> rules = {"/etc/corvane/rules"};
    SocketConfig socket;

    ControlConfig control;

    // Where rule sets are kept that were in use, and how many; none where that is 0.
    struct Sets {
        std::string directory = "/var/lib/corvane/sets";
        unsigned int keep = 3;
    } sets;

    // A second rule set on trial: no directories, none.
    struct Shadow {
        std::vector<std::string> rules;
        // Of a hundred messages so many are scored with it too.
        unsigned int percent = 10;
    } shadow;

    struct Scan {
        float threshold = 5.0F;
        unsigned int percent = 0;
        std::chrono::nanoseconds budget = std::chrono::seconds(1);
    } scan;

    struct Bounds {
        corvane::Limits message;
        unsigned int sessions = 500;
        // Scans at once; 0, as many as there are processors.
        unsigned int scans = 0;
        // How long a message may wait for its scan.
        std::chrono::milliseconds wait{1500};
        // Of the process, in bytes, that no new rule set may take it beyond; 0 for any.
        std::size_t memory = 0;
        // For what is under way when the daemon is told to stop.
        std::chrono::seconds stop{30};
    } bounds;

    struct Headers {
        std::string prefix = "X-Corvane-";
        bool report = false;
    } headers;

    // By min, from below.
    std::vector<Band> bands;

    struct Errors {
        OnError noRules = OnError::TempFail;
        OnError internal = OnError::TempFail;
        OnError budget = OnError::Accept;
        OnError tooLarge = OnError::Accept;
    } onError;

    struct Skip {
        bool authenticated = false;
        std::vector<Network> networks;
        // Small letters; "joe@example.org", or "@example.org" for all of a domain.
        std::vector<std::string> recipients;
    } skip;

    struct Log {
        LogFormat format = LogFormat::Logfmt;
        LogLevel level = LogLevel::Info;
    } log;

    // Throws ConfigError where the file cannot be read, is no TOML, or holds a key or a value that
    // it cannot.
    static Config read(const std::string &file);

    // The same for a text; the name stands for the file in faults.
    static Config parse(const std::string &text, const std::string &file);

    // The highest band that the score reaches; null below all.
    const Band *bandOf(float score) const;

    // How a message is scanned, its sender apart.
    corvane::ScanOptions scanOptions() const;
};

} // namespace Corvane::Milter

#endif
