#ifndef CORVANE_HEURISTIC_FAILURE_H
#define CORVANE_HEURISTIC_FAILURE_H

// How this library throws: the message names the class and operation, a parameter names the item.

#include <string>

#include "host/parser/Exception.h"

namespace Corvane::Heuristic {

// Throws a failure of its own with one parameter.
[[noreturn]] inline void fail(const char *message, int code, const char *file, unsigned int line,
                              const std::string &parameter) {
    Exception failure(message, code, file, line);
    failure.stringParameter(parameter);
    throw failure;
}

// Throws a failure (code 4) that wraps the one that led to it.
[[noreturn]] inline void wrap(const Exception &cause, const char *message, const char *file,
                              unsigned int line) {
    Exception failure(message, Exception::kGeneral, file, line);
    failure.cause(cause);
    throw failure;
}

// The same, naming the offending item.
[[noreturn]] inline void wrap(const Exception &cause, const char *message, const char *file,
                              unsigned int line, const std::string &parameter) {
    Exception failure(message, Exception::kGeneral, file, line);
    failure.stringParameter(parameter);
    failure.cause(cause);
    throw failure;
}

} // namespace Corvane::Heuristic

#endif
