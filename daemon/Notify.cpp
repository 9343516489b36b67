#include "Notify.h"

#include <systemd/sd-daemon.h>

namespace Corvane::Milter {

void notifyManager(const std::string &state) {
    sd_notify(0, state.c_str());
}

std::chrono::microseconds watchdogInterval() {
    std::uint64_t micros = 0;
    return sd_watchdog_enabled(0, &micros) > 0
               ? std::chrono::microseconds(static_cast<std::int64_t>(micros))
               : std::chrono::microseconds(0);
}

std::string monotonicMicros() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

} // namespace Corvane::Milter
