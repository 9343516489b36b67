#include "Handover.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Text.h"

namespace Corvane::Milter {

namespace {

constexpr const char *kVariable = "CORVANE_MILTER_HANDOVER";
// Of the manager's watch, which names the process that it is for.
constexpr const char *kWatched = "WATCHDOG_PID";
// Where the new process finds the pipe.
constexpr int kFile = STDERR_FILENO + 1;
// For the largest rule sets to be loaded.
constexpr std::chrono::minutes kPatience{5};

constexpr const char *kProcess = "process ";
constexpr const char *kReady = "ready ";
constexpr const char *kFailed = "failed ";

std::string s_program(const std::string &name) {
    std::error_code ignored;
    return name.find('/') != std::string::npos
               ? std::filesystem::absolute(name, ignored).string()
               : std::filesystem::read_symlink("/proc/self/exe", ignored).string();
}

std::vector<std::string> s_environment(bool hasRules) {
    std::vector<std::string> all;
    const std::string dropped[] = {std::string(kVariable) + '=', std::string(kWatched) + '='};
    for (char **each = environ; *each != nullptr; ++each) {
        const std::string entry = *each;
        if (entry.rfind(dropped[0], 0) != 0 && entry.rfind(dropped[1], 0) != 0) {
            all.push_back(entry);
        }
    }
    all.push_back(dropped[0] + std::to_string(getpid()) + (hasRules ? " 1" : " 0"));
    return all;
}

std::vector<char *> s_pointers(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &each : texts) {
        pointers.push_back(each.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

class Pipe {
public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot make a pipe: " + systemReason(errno) +
                                     "; let the daemon open more files");
        }
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() {
        close(ends_[0]);
        closeWriting();
    }

    int reading() const { return ends_[0]; }
    int writing() const { return ends_[1]; }
    void closeWriting() {
        if (ends_[1] >= 0) {
            close(ends_[1]);
        }
        ends_[1] = -1;
    }

private:
    std::array<int, 2> ends_{};
};

// With the pipe and the standard files as its only ones, and no signal blocked or ignored. What is
// started forks and ends at once.
void s_start(const std::string &program, const std::string &config, bool hasRules, int pipe) {
    std::vector<std::string> words = {program, "--config", config};
    std::vector<std::string> environment = s_environment(hasRules);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, pipe, kFile);
    posix_spawn_file_actions_addclosefrom_np(&files, kFile + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t process = 0;
    const int error = posix_spawn(&process, program.c_str(), &files, &attributes,
                                  s_pointers(words).data(), s_pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw std::runtime_error("cannot start '" + program + "': " + systemReason(error) +
                                 "; see that the program is there");
    }
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

struct Said {
    std::string lines;
    // Whether it may say more.
    bool isOpen = false;
};

// What the new process says.
Said s_listen(int pipe) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    Said said;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        struct pollfd waiting {
            pipe, POLLIN, 0
        };
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) == 0) {
            said.isOpen = true;
            return said;
        }
        constexpr std::size_t kRoom = 4096;
        std::array<char, kRoom> bytes{};
        const ssize_t got = read(pipe, bytes.data(), bytes.size());
        if (got == 0 || (got < 0 && errno != EINTR)) {
            return said;
        }
        said.lines.append(bytes.data(), got < 0 ? 0 : static_cast<std::size_t>(got));
    }
}

Handover::Result s_result(const Said &said) {
    Handover::Result result;
    std::istringstream lines(said.lines);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(kProcess, 0) == 0) {
            result.process = std::atoi(line.c_str() + std::string(kProcess).size());
        } else if (line.rfind(kReady, 0) == 0) {
            result.isDone = true;
            result.generation = line.substr(std::string(kReady).size());
        } else if (line.rfind(kFailed, 0) == 0) {
            result.reason = line.substr(std::string(kFailed).size());
        }
    }
    if (!result.isDone && result.reason.empty()) {
        result.reason = "the new process ended before it was ready; its log may say why";
    }
    if (said.isOpen) {
        result.reason = "the new process is not ready after " + std::to_string(kPatience.count()) +
                        " minutes and was killed; see how long its rules take to load";
        if (result.process > 0) {
            kill(result.process, SIGKILL);
        }
    }
    return result;
}

// Where the mail server looks must stay what it is.
void s_requireSamePlace(const SocketConfig &now, const SocketConfig &next) {
    if (now.isInet() || next.isInet()) {
        throw std::runtime_error("a TCP socket cannot be handed over; put several daemons behind "
                                 "a proxy, and restart one after the other");
    }
    if (now.path != next.path) {
        throw std::runtime_error("milter.socket is another path by now; stop the daemon and start "
                                 "it again");
    }
}

} // namespace

Handover::Handover(const std::string &program) : program_(s_program(program)) {}

Handover::Result Handover::run(const Setup &setup) {
    const std::unique_lock<std::mutex> one(one_, std::try_to_lock);
    Result result;
    if (!one.owns_lock() || underWay_) {
        result.reason = "another restart is under way";
        return result;
    }
    try {
        s_requireSamePlace(setup.config.socket, Config::read(setup.config.file).socket);
        Pipe pipe;
        underWay_ = true;
        s_start(program_, setup.config.file, !setup.rules.empty(), pipe.writing());
        pipe.closeWriting();
        result = s_result(s_listen(pipe.reading()));
    } catch (const std::exception &failure) {
        result.reason = failure.what();
    }
    underWay_ = result.isDone;
    return result;
}

std::unique_ptr<Predecessor> Predecessor::find() {
    const char *value = getenv(kVariable);
    if (value == nullptr) {
        return nullptr;
    }
    std::istringstream words(value);
    pid_t process = 0;
    bool hasRules = false;
    words >> process >> hasRules;
    unsetenv(kVariable);
    if (!words || process <= 1 || fcntl(kFile, F_SETFD, FD_CLOEXEC) != 0) {
        throw std::runtime_error(std::string(kVariable) +
                                 " is for the daemon's own use; take it out of the environment");
    }
    const pid_t child = fork();
    if (child > 0) {
        _exit(0);
    }
    auto found = std::make_unique<Predecessor>(kFile, process, hasRules);
    if (child < 0) {
        found->fail("cannot make a process: " + systemReason(errno));
        throw std::runtime_error("cannot make a process");
    }
    found->say(kProcess + std::to_string(getpid()));
    return found;
}

Predecessor::~Predecessor() {
    if (file_ >= 0) {
        close(file_);
    }
}

void Predecessor::succeed(const std::string &generation) {
    say(kReady + generation);
    close(file_);
    file_ = -1;
    kill(process_, SIGTERM);
}

void Predecessor::fail(const std::string &reason) {
    say(kFailed + escaped(reason, Charset::Utf8));
}

void Predecessor::say(const std::string &line) const {
    const std::string bytes = line + '\n';
    // One that does not listen any more needs no answer.
    [[maybe_unused]] const ssize_t written = write(file_, bytes.data(), bytes.size());
}

} // namespace Corvane::Milter
