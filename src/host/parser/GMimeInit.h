#ifndef CORVANE_HOST_PARSER_GMIMEINIT_H
#define CORVANE_HOST_PARSER_GMIMEINIT_H

// GMime has to be initialised once in a process before anything else of it is called.

namespace Corvane {

// Does so on the first call and nothing later; any thread may call it at any time. GMime stays
// initialised until the process ends.
void initialiseGMime();

} // namespace Corvane

#endif
