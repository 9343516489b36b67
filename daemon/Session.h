#ifndef CORVANE_DAEMON_SESSION_H
#define CORVANE_DAEMON_SESSION_H

// The functions that libmilter calls for a session.
//
// Threads: any; a session's calls come one after the other.

#include <libmilter/mfapi.h>

#include "Transaction.h"

namespace Corvane::Milter {

// Whether the server need not wait for answers that say nothing: over TCP it shall, since without
// them small packets lie and wait for each other.
enum class Answers { All, Needed };

// To be registered; the sessions use shared from then on, which must outlive them.
smfiDesc sessionCallbacks(Shared &shared, Answers answers);

} // namespace Corvane::Milter

#endif
