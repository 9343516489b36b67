#ifndef CORVANE_ENGINE_H
#define CORVANE_ENGINE_H

// Which build of the library gives the verdicts.

#include <string_view>

#include "corvane/Export.h"

namespace corvane {

// Such as "0.1.0+c01dc0ffee15dead": the version, and behind the "+" the id of what the library was
// built from, in 16 hexadecimal digits: the sources of all layers and the versions of the libraries
// they use, which decide verdicts as the rules do. Equal sources give equal ids on every machine.
// Lives for ever.
CORVANE_API std::string_view engine() noexcept;

} // namespace corvane

#endif
