#include "Failure.h"

#include <cerrno>
#include <system_error>

#include "host/parser/Logger.h"

namespace Corvane::Cli {

void refuse(const std::string &sentence) {
    throw Exception(sentence, Exception::kGeneral, nullptr, 0);
}

std::string systemReason(int error) {
    return std::generic_category().message(error);
}

int flushed(std::ostream &out) {
    if (out) {
        errno = 0;
    }
    if (out.flush()) {
        return 0;
    }
    return errno != 0 ? errno : EIO;
}

std::string readable(const Exception &failure) {
    return Logger::printable(failure.file().empty() ? failure.message() : failure.asString());
}

} // namespace Corvane::Cli
