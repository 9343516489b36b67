#include "heuristic/RawBodyRule.h"

namespace Corvane::Heuristic {

RawBodyRule::RawBodyRule() {
    type(RawBody);
}

RawBodyRule::RawBodyRule(const std::string &name) : BodyRule(name) {
    type(RawBody);
}

RawBodyRule::~RawBodyRule() = default;

} // namespace Corvane::Heuristic
