#ifndef CORVANE_DAEMON_CONTROL_H
#define CORVANE_DAEMON_CONTROL_H

// What an administrator and his monitoring ask of the running daemon: HTTP over a Unix socket that
// only the daemon's user may open, and of that the metrics and the health over loopback TCP too.
//
//     GET  /v1/status              what it runs with, as JSON
//     GET  /v1/health              200, or 503 where it takes no messages
//     GET  /metrics                as Prometheus takes them
//     POST /v1/reload              200, or 409 with the reason where the old rules stay
//     POST /v1/drain, /v1/resume   take no more messages, take them again
//     POST /v1/log?level=debug     what is logged from now on
//
// Threads: its own; construction and destruction are the main thread's.

#include <memory>

#include "Config.h"
#include "Log.h"
#include "Reloader.h"
#include "Transaction.h"

namespace Corvane::Milter {

class Control {
public:
    // Binds, and serves until it is destroyed. Throws std::runtime_error, with the remedy, where it
    // cannot. All must outlive it.
    Control(Shared &shared, Reloader &reloader, Log &log, const ControlConfig &config);
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;
    ~Control();

private:
    struct Server;

    std::unique_ptr<Server> local_;
    std::unique_ptr<Server> tcp_;
};

} // namespace Corvane::Milter

#endif
