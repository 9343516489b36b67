#include "host/parser/Mutex.h"

#include <chrono>
#include <thread>

namespace Corvane {

void ts_usleep(unsigned int seconds, unsigned int milliseconds) {
    std::this_thread::sleep_for(std::chrono::seconds(seconds) +
                                std::chrono::milliseconds(milliseconds));
}

} // namespace Corvane
