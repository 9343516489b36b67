#ifndef CORVANE_TESTS_DAEMON_DAEMON_H
#define CORVANE_TESTS_DAEMON_DAEMON_H

// Runs the daemon as a service manager does, in a process of its own with a configuration of the
// test's:
//
//     Daemon daemon(directory, "[scan]\nthreshold = 3\n");   // rules from directory/rules
//     MilterClient client(daemon.socket());
//     ...
//     EXPECT_EQ(daemon.stop(), 0);
//
// The caller's target defines CORVANE_MILTER, the program's path. Threads: one.

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace Corvane::Milter {

class Daemon {
public:
    static constexpr std::chrono::seconds kPatience{60};

    // more: what the configuration has besides the rules and the socket; tables only. Waits until
    // it is ready. Throws where it ends before, with what it has said.
    Daemon(const TempDir &directory, const std::string &more, const std::string &socket = {})
        : socket_(directory.path("milter.sock")), config_(directory.path("milter.toml")) {
        directory.write("milter.toml", text(directory, more, socket));
        start({"--config", config_});
        if (!waitFor(more.find("json") == std::string::npos ? "event=ready"
                                                            : "\"event\":\"ready\"")) {
            throw std::runtime_error("the daemon is not ready:\n" + log_);
        }
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;
    ~Daemon() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close(output_);
    }

    static std::string text(const TempDir &directory, const std::string &more,
                            const std::string &socket = {}) {
        return "rules = [\"" + directory.path("rules") + "\"]\n[milter]\nsocket = \"" +
               (socket.empty() ? "unix:" + directory.path("milter.sock") : socket) + "\"\n" +
               "[control]\nsocket = \"" + directory.path("control.sock") + "\"\n" +
               (more.find("[sets]") == std::string::npos
                    ? "[sets]\ndirectory = \"" + directory.path("sets") + "\"\n"
                    : "") +
               more;
    }

    const std::string &socket() const { return socket_; }
    pid_t process() const { return process_; }
    // What it has written up to now, as far as it was waited for.
    const std::string &log() const { return log_; }

    void signal(int number) const { kill(process_, number); }

    // Reads what it has written, so that its log cannot fill up.
    void drain() {
        struct pollfd waiting {
            output_, POLLIN, 0
        };
        while (poll(&waiting, 1, 0) == 1 && readMore()) {
        }
    }

    // Whether a text comes in the log behind what was found before.
    bool waitFor(const std::string &text) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (std::chrono::steady_clock::now() < end) {
            const std::size_t found = log_.find(text, seen_);
            const std::size_t line = log_.find('\n', found);
            if (found != std::string::npos && line != std::string::npos) {
                seen_ = line;
                return true;
            }
            if (!readMore()) {
                return false;
            }
        }
        return false;
    }

    // Sends TERM and waits for the end: the exit status, or -1 where a signal has ended it.
    int stop() {
        signal(SIGTERM);
        return wait();
    }
    int wait() {
        while (readMore()) {
        }
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    void start(std::vector<std::string> arguments) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        std::vector<char *> words;
        std::string program = CORVANE_MILTER;
        words.push_back(program.data());
        for (std::string &each : arguments) {
            words.push_back(each.data());
        }
        words.push_back(nullptr);
        process_ = fork();
        if (process_ == 0) {
            dup2(ends[1], STDERR_FILENO);
            execv(CORVANE_MILTER, words.data());
            _exit(127);
        }
        close(ends[1]);
        output_ = ends[0];
    }

    // False at the end of what it writes, and where nothing comes for long.
    bool readMore() {
        struct pollfd waiting {
            output_, POLLIN, 0
        };
        const auto millis = std::chrono::milliseconds(kPatience).count();
        if (poll(&waiting, 1, static_cast<int>(millis)) != 1) {
            return false;
        }
        char bytes[4096];
        const ssize_t got = read(output_, bytes, sizeof(bytes));
        if (got <= 0) {
            return false;
        }
        log_.append(bytes, static_cast<std::size_t>(got));
        return true;
    }

    std::string socket_;
    std::string config_;
    pid_t process_ = -1;
    int output_ = -1;
    std::string log_;
    std::size_t seen_ = 0;
};

} // namespace Corvane::Milter

#endif
