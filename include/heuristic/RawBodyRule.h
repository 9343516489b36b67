#ifndef CORVANE_HEURISTIC_RAWBODYRULE_H
#define CORVANE_HEURISTIC_RAWBODYRULE_H

// Raw-body rules: body rules that are tried against the body as it was received, line ends
// included. BodyCheck runs them too.
//
// Threads: immutable once the value is set.

#include <string>

#include "heuristic/BodyRule.h"
#include "heuristic/Export.h"

namespace Corvane::Heuristic {

class CORVANE_HEURISTIC_API RawBodyRule : public BodyRule {
public:
    // A rule of kind RawBody that matches nothing until it has a value.
    RawBodyRule();
    explicit RawBodyRule(const std::string &name);
    ~RawBodyRule() override;
};

} // namespace Corvane::Heuristic

#endif
