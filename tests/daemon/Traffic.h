#ifndef CORVANE_TESTS_DAEMON_TRAFFIC_H
#define CORVANE_TESTS_DAEMON_TRAFFIC_H

// Mail servers that send one message after the other, on a thread each, and come again with those
// that were put off:
//
//     Traffic traffic(socket, 8);
//     ...
//     const Traffic::Tally tally = traffic.stop();
//     EXPECT_EQ(tally.putOff, 0U);
//
// A session has a few messages; some of them take their time between envelope and content.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>

#include "daemon/MilterClient.h"

namespace Corvane::Milter {

class Traffic {
public:
    struct Tally {
        std::size_t accepted = 0;
        // By an answer that asks to come again; by a session that broke; by one that could not be.
        std::size_t putOff = 0;
        std::size_t broken = 0;
        std::size_t unreachable = 0;
        // Accepted without one verdict in a header.
        std::size_t unscored = 0;
        // How many messages had that generation and score.
        std::map<std::pair<std::string, std::string>, std::size_t> verdicts;
        std::set<std::string> messageIds;
        // Of those that did not take their time.
        std::vector<double> millis;

        // Of these times, between 0 and 1.
        double quantile(double part) {
            std::sort(millis.begin(), millis.end());
            const auto last = static_cast<double>(millis.size()) - 1;
            return millis.empty() ? 0 : millis[static_cast<std::size_t>(part * last)];
        }
    };

    Traffic(std::string socket, unsigned int clients) : socket_(std::move(socket)) {
        for (unsigned int each = 0; each < clients; ++each) {
            threads_.emplace_back([this, each] { send(each); });
        }
    }
    Traffic(const Traffic &) = delete;
    Traffic &operator=(const Traffic &) = delete;
    ~Traffic() { join(); }

    std::size_t accepted() const { return accepted_; }

    // Whatever was begun is delivered first.
    Tally stop() {
        join();
        return tally_;
    }

    static std::string told(const std::string &status, const std::string &word) {
        const std::size_t at = status.find(word);
        const std::size_t begin = at + word.size();
        return at == std::string::npos ? "" : status.substr(begin, status.find(';', begin) - begin);
    }

private:
    using Clock = std::chrono::steady_clock;

    void join() {
        isStopped_ = true;
        for (std::thread &each : threads_) {
            each.join();
        }
        threads_.clear();
    }

    void send(unsigned int client) {
        constexpr unsigned int kMostOfSession = 5;
        for (unsigned int message = 0; !isStopped_;) {
            const unsigned int count = 1 + (message + client) % kMostOfSession;
            message += session(client, message, count);
        }
    }

    // How many it has delivered of so many.
    unsigned int session(unsigned int client, unsigned int first, unsigned int count) {
        try {
            MilterClient server(socket_);
            if (!server.negotiate()) {
                note([](Tally &tally) { ++tally.broken; });
                return 0;
            }
            for (unsigned int done = 0; done < count; ++done) {
                if (!deliver(server, client, first + done, done == 0)) {
                    return done;
                }
            }
        } catch (const std::exception &) {
            note([](Tally &tally) { ++tally.unreachable; });
            return 0;
        }
        return count;
    }

    bool deliver(MilterClient &server, unsigned int client, unsigned int number, bool isFirst) {
        constexpr unsigned int kSlow = 7;
        constexpr int kPauseMillis = 15;
        const std::string id = std::to_string(client) + '.' + std::to_string(number);
        Mail mail;
        mail.id = id;
        mail.bytes = "Subject: hello\nMessage-ID: <" + id + ">\n\nprize\n";
        const bool isSlow = number % kSlow == 0;
        const Clock::time_point begin = Clock::now();
        Packet step = isFirst ? server.connection() : Packet{'c', {}};
        step = step.command == 'c' ? server.envelope(mail) : step;
        Answer answer;
        answer.code = step.command;
        if (step.command == 'c') {
            poll(nullptr, 0, isSlow ? kPauseMillis : 0);
            server.content(mail);
            answer = server.end(id);
        }
        const std::chrono::duration<double, std::milli> took = Clock::now() - begin;
        note([&](Tally &tally) {
            count(tally, answer, id);
            if (!isSlow) {
                tally.millis.push_back(took.count());
            }
        });
        return answer.code == 'a';
    }

    void count(Tally &tally, const Answer &answer, const std::string &id) {
        if (answer.code != 'a') {
            ++(answer.code == 0 ? tally.broken : tally.putOff);
            return;
        }
        ++tally.accepted;
        ++accepted_;
        tally.messageIds.insert('<' + id + '>');
        const std::string status = answer.status();
        const bool isOne = answer.inserted.size() == 1 && !told(status, "generation=").empty();
        tally.unscored += isOne ? 0U : 1U;
        ++tally.verdicts[{told(status, "generation="), told(status, "score=")}];
    }

    template <class Function>
    void note(Function function) {
        const std::lock_guard<std::mutex> lock(guard_);
        function(tally_);
    }

    std::string socket_;
    std::atomic<bool> isStopped_{false};
    std::atomic<std::size_t> accepted_{0};
    std::mutex guard_;
    Tally tally_;
    std::vector<std::thread> threads_;
};

} // namespace Corvane::Milter

#endif
