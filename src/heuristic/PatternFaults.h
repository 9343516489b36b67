#ifndef CORVANE_SRC_HEURISTIC_PATTERNFAULTS_H
#define CORVANE_SRC_HEURISTIC_PATTERNFAULTS_H

// What a refused rule line says of its pattern.

#include "heuristic/LoadObserver.h"
#include "heuristic/Rule.h"

namespace Corvane::Heuristic {

// Sets pattern and patternColumn of a line whose failure is the refusal of a pattern; leaves any
// other alone.
void notePatternFault(LoadedLine &line, Rule::Type kind);

} // namespace Corvane::Heuristic

#endif
