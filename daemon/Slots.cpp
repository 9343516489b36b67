#include "Slots.h"

#include <algorithm>
#include <thread>

namespace Corvane::Milter {

Slots::Taken::~Taken() {
    if (from_ == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(from_->guard_);
    --from_->taken_;
    from_->freed_.notify_one();
}

Slots::Taken Slots::take(std::chrono::milliseconds atMost) {
    std::unique_lock<std::mutex> lock(guard_);
    if (!freed_.wait_for(lock, atMost, [this] { return taken_ < slots_; })) {
        return Taken(nullptr);
    }
    ++taken_;
    return Taken(this);
}

void Slots::resize(unsigned int slots) {
    const std::lock_guard<std::mutex> lock(guard_);
    slots_ = slots != 0 ? slots : std::max(std::thread::hardware_concurrency(), 1U);
    freed_.notify_all();
}

} // namespace Corvane::Milter
