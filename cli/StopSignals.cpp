#include "StopSignals.h"

namespace Corvane::Cli {

namespace {

volatile sig_atomic_t s_come = 0;

void s_take(int /*signal*/) {
    s_come = 1;
}

} // namespace

StopSignals::StopSignals() {
    s_come = 0;
    struct sigaction action {};
    action.sa_handler = s_take;
    action.sa_flags = SA_RESTART;
    for (std::size_t each = 0; each < kSignals.size(); ++each) {
        sigaction(kSignals.at(each), nullptr, &former_.at(each));
        if (former_.at(each).sa_handler != SIG_IGN) {
            sigaction(kSignals.at(each), &action, nullptr);
        }
    }
}

StopSignals::~StopSignals() {
    for (std::size_t each = 0; each < kSignals.size(); ++each) {
        sigaction(kSignals.at(each), &former_.at(each), nullptr);
    }
}

bool StopSignals::haveCome() const {
    return s_come != 0;
}

} // namespace Corvane::Cli
