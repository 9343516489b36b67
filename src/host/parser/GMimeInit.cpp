#include "host/parser/GMimeInit.h"

#include <mutex>

#include <gmime/gmime.h>

namespace Corvane {

void initialiseGMime() {
    static std::once_flag s_once;
    std::call_once(s_once, g_mime_init);
}

} // namespace Corvane
