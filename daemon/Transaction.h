#ifndef CORVANE_DAEMON_TRANSACTION_H
#define CORVANE_DAEMON_TRANSACTION_H

// One message from its sender to what is to be done with it. Knows nothing of the protocol that it
// comes by.
//
//     Transaction transaction(service, client, Blanks::Kept);
//     transaction.begin("<joe@example.org>", Client::Authenticated);
//     transaction.recipient("<ann@example.org>");
//     transaction.header("Subject", " hello");
//     transaction.endOfHeaders();
//     transaction.body(bytes);
//     const Outcome outcome = transaction.finish("4XqB7");
//
// Threads: one at a time; each session has its own.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Live.h"
#include "Log.h"
#include "Metrics.h"
#include "Network.h"
#include "Profiler.h"
#include "Scoring.h"
#include "Shadow.h"
#include "Slots.h"
#include "corvane/MessageCollector.h"

namespace Corvane::Milter {

// What all sessions share.
struct Shared {
    Shared(Live &liveSetup, const Log &itsLog, unsigned int scans)
        : live(liveSetup), log(itsLog), slots(scans) {}

    Live &live;
    const Log &log;
    Slots slots;
    Metrics metrics;
    Shadow shadow{log, metrics};
    Profiler profiler;
    // Connections, and messages that have begun and not ended.
    std::atomic<unsigned int> sessions{0};
    std::atomic<unsigned int> messages{0};
    // Whether no message may begin any more.
    std::atomic<bool> closing{false};
    // Whether proxies shall take their clients elsewhere; those that come are served.
    std::atomic<bool> draining{false};
};

// What the server is to do, in this order, and then answer.
struct Outcome {
    enum class Answer { Accept, TempFail, Reject, Discard };

    // The how-manieth header of a name, from 1; from the last to the first.
    std::vector<std::pair<std::string, int>> removals;
    // Put in front of all others, each before the one that was put there before it.
    std::vector<std::pair<std::string, std::string>> additions;
    // Holds the message; "" where it goes on.
    std::string hold;
    Answer answer = Answer::Accept;
    // Of a refusal.
    std::string text;
};

class Transaction {
public:
    // Whether header values come with the blanks behind their colons, or without one of them.
    enum class Blanks { Kept, Cut };
    enum class Client { Unknown, Authenticated };

    Transaction(Shared &shared, const std::optional<Address> &client, Blanks blanks);
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    ~Transaction();

    // Addresses as the protocol has them, in angle brackets or without. What was begun before is
    // dropped.
    void begin(std::string_view sender, Client client);
    void recipient(std::string_view address);
    void header(std::string_view name, std::string_view value);
    void endOfHeaders();
    void body(std::string_view bytes);

    // Scores the message, writes its line in the log, and is ready for the next. id: the server's
    // for the message; "" for none.
    Outcome finish(const std::string &id);

    // The message could not be taken down: its end is one of an internal failure.
    void fail(const std::string &reason) noexcept;

    // Gives the message up, if there is one.
    void abort() noexcept;

private:
    void countHeader(std::string_view name, std::string_view value);
    bool isSkipped(const Config &config) const;
    Scored scored(const SetupRef &setup, const std::string &id);
    void addHeaders(const Scored &scored, const Setup &setup, const std::string &id,
                    Outcome &outcome) const;
    void removeForged(Outcome &outcome) const;
    void log(const Scored &scored, const Setup &setup, const std::string &id,
             const std::string &action) const;
    void end() noexcept;

    Shared &shared_;
    std::optional<Address> client_;
    Blanks blanks_;
    corvane::MessageCollector message_;
    bool begun_ = false;

    // Of the message at hand.
    SetupRef setup_;
    Client kind_ = Client::Unknown;
    std::string sender_;
    std::string messageId_;
    std::size_t recipients_ = 0;
    std::size_t exempt_ = 0;
    std::size_t bytes_ = 0;
    // How many headers it brought of each name of ours.
    std::map<std::string, int> forged_;
    std::string failure_;
    bool failed_ = false;
    std::chrono::steady_clock::time_point begin_;
};

} // namespace Corvane::Milter

#endif
