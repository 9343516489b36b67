#include "host/parser/Tap.h"

namespace Corvane {

Tap::Tap() = default;
Tap::Tap(const Tap &) = default;
Tap &Tap::operator=(const Tap &) = default;
Tap::~Tap() = default;

} // namespace Corvane
