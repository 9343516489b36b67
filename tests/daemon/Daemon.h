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
// The caller's target defines CORVANE_MILTER, the program's path. Threads: one, beside its own that
// reads the log.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
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
        // What it starts becomes this process's when it leaves.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        start({"--config", config_});
        if (!waitFor(more.find("json") == std::string::npos ? "event=ready"
                                                            : "\"event\":\"ready\"")) {
            kill(process_, SIGKILL);
            wait();
            close();
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
        close();
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
    // What it has written up to now.
    std::string log() {
        const std::lock_guard<std::mutex> lock(guard_);
        return log_;
    }

    void signal(int number) const { kill(process_, number); }

    // Whether what it writes is left unread from now on.
    void leaveUnread(bool isUnread) { isUnread_ = isUnread; }

    // Whether a text comes in the log behind what was found before.
    bool waitFor(const std::string &text) {
        std::unique_lock<std::mutex> lock(guard_);
        bool isFound = false;
        written_.wait_for(lock, kPatience, [&] {
            const std::size_t found = log_.find(text, seen_);
            const std::size_t line = log_.find('\n', found);
            isFound = found != std::string::npos && line != std::string::npos;
            seen_ = isFound ? line : seen_;
            return isFound || isEnded_;
        });
        return isFound;
    }

    // The process has handed over to another one, which this object goes on with: the exit status
    // of the one that leaves, or -1.
    int follow(pid_t next) {
        constexpr int kStepMillis = 10;
        int status = 0;
        while (waitpid(process_, &status, WNOHANG) == 0) {
            poll(nullptr, 0, kStepMillis);
        }
        process_ = next;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Sends TERM and waits for the end: the exit status, or -1 where a signal has ended it.
    int stop() {
        signal(SIGTERM);
        return wait();
    }
    int wait() {
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        // For the last of what it has written.
        std::unique_lock<std::mutex> lock(guard_);
        written_.wait_for(lock, kPatience, [this] { return isEnded_; });
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    void close() {
        isClosing_ = true;
        reader_.join();
        ::close(output_);
    }

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
        ::close(ends[1]);
        output_ = ends[0];
        reader_ = std::thread([this] { readAll(); });
    }

    void readAll() {
        constexpr std::size_t kRoom = 65536;
        std::vector<char> bytes(kRoom);
        constexpr int kStepMillis = 100;
        while (!isClosing_) {
            struct pollfd waiting {
                output_, POLLIN, 0
            };
            if (isUnread_) {
                poll(nullptr, 0, kStepMillis);
                continue;
            }
            if (poll(&waiting, 1, kStepMillis) != 1) {
                continue;
            }
            const ssize_t got = read(output_, bytes.data(), bytes.size());
            if (got <= 0) {
                break;
            }
            const std::lock_guard<std::mutex> lock(guard_);
            log_.append(bytes.data(), static_cast<std::size_t>(got));
            written_.notify_all();
        }
        const std::lock_guard<std::mutex> lock(guard_);
        isEnded_ = true;
        written_.notify_all();
    }

    std::string socket_;
    std::string config_;
    pid_t process_ = -1;
    int output_ = -1;
    std::thread reader_;
    std::mutex guard_;
    std::condition_variable written_;
    bool isEnded_ = false;
    std::atomic<bool> isClosing_{false};
    std::atomic<bool> isUnread_{false};
    std::string log_;
    std::size_t seen_ = 0;
};

} // namespace Corvane::Milter

#endif
