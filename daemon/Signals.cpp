#include "Signals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <stdexcept>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "Text.h"

namespace Corvane::Milter {

namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

std::atomic<bool> s_stop{false};
std::atomic<bool> s_reload{false};
std::atomic<int> s_bell{-1};

void s_ring() {
    const std::uint64_t once = 1;
    // It cannot be lost: a bell that is full rings already.
    [[maybe_unused]] const ssize_t written = ::write(s_bell, &once, sizeof(once));
}

void s_take(int signal) {
    const int error = errno;
    (signal == SIGHUP ? s_reload : s_stop) = true;
    s_ring();
    errno = error;
}

sigset_t s_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

} // namespace

Signals::Signals() : bell_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (bell_ < 0) {
        throw std::runtime_error("cannot make an event descriptor: " + systemReason(errno) +
                                 "; let the daemon open more files");
    }
    s_bell = bell_;
    s_stop = false;
    s_reload = false;
    const sigset_t set = s_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    struct sigaction action {};
    action.sa_handler = s_take;
    action.sa_flags = SA_RESTART;
    for (const int signal : kSignals) {
        sigaction(signal, &action, nullptr);
    }
    // A client that goes away is no reason to end.
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

Signals::~Signals() {
    const sigset_t set = s_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    s_bell = -1;
    ::close(bell_);
}

void Signals::admit() {
    const sigset_t set = s_set();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

Signals::Come Signals::wait(std::chrono::milliseconds atMost) {
    struct pollfd bell {
        bell_, POLLIN, 0
    };
    poll(&bell, 1, static_cast<int>(atMost.count()));
    std::uint64_t rings = 0;
    [[maybe_unused]] const ssize_t read = ::read(bell_, &rings, sizeof(rings));
    return {s_stop.exchange(false), s_reload.exchange(false)};
}

void Signals::wake() {
    s_ring();
}

} // namespace Corvane::Milter
