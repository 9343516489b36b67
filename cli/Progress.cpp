#include "Progress.h"

#include <algorithm>
#include <utility>

namespace Corvane::Cli {

namespace {

// To the start of the line, and nothing behind it.
constexpr const char *kClear = "\r\x1b[K";

} // namespace

Progress::Progress(std::ostream &out, Mode mode, Clock now)
    : out_(out), mode_(mode), now_(std::move(now)), start_(now_()), next_(start_ + kSilence) {}

Progress::~Progress() {
    clear();
}

void Progress::step(const Totals &totals, std::optional<double> share) {
    if (mode_ == Mode::Off) {
        return;
    }
    const Time now = now_();
    if (now < next_) {
        return;
    }
    next_ = now + kInterval;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start_).count();
    out_ << kClear << totals.all() << " messages in " << seconds << " s, " << totals.over
         << " over, " << totals.failed << " not read";
    if (share.has_value() && *share > 0.0) {
        constexpr double kPercent = 100.0;
        const double done = std::min(*share, 1.0);
        const double left = static_cast<double>(seconds) * (1.0 - done) / done;
        out_ << "; " << static_cast<int>(done * kPercent) << " %, about "
             << static_cast<long>(left + 1.0) << " s left";
    }
    out_ << std::flush;
    shown_ = true;
}

void Progress::clear() {
    if (shown_) {
        out_ << kClear << std::flush;
        shown_ = false;
    }
}

} // namespace Corvane::Cli
