#ifndef CORVANE_HEURISTIC_DEFINITION_H
#define CORVANE_HEURISTIC_DEFINITION_H

// What the kinds of rule share in reading their definitions.

#include <string>

#include "heuristic/LogRecords.h"
#include "host/parser/Logger.h"
#include "host/parser/Text.h"
#include "host/regex/Expression.h"

namespace Corvane::Heuristic {

// Whether the definition calls a built-in test, of which there are none: it is logged, and stored
// without being compiled.
inline bool isEval(const std::string &definition) {
    if (definition.rfind("eval:", 0) != 0) {
        return false;
    }
    Logger::instance(false).log(kLogEvalValue, kLogLevel, "%s", " ");
    return true;
}

// Compiles the definition without the white space around it.
inline Regex::Expression compileTrimmed(const std::string &definition, unsigned int options) {
    std::string text = definition;
    stringLeftTrim(text);
    stringRightTrim(text);
    return Regex::Expression(text, options, true);
}

} // namespace Corvane::Heuristic

#endif
