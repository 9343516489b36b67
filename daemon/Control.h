#ifndef CORVANE_DAEMON_CONTROL_H
#define CORVANE_DAEMON_CONTROL_H

// What an administrator and his monitoring ask of the running daemon: HTTP over a Unix socket that
// only the daemon's user may open, and of that the metrics and the health over loopback TCP too.
//
//     GET  /v1/status              what it runs with, as JSON
//     GET  /v1/health              200, or 503 where it drains or stops
//     GET  /metrics                as Prometheus takes them
//     GET  /v1/ruleset             the rules in place, as a scan's answer tells of them
//     POST /v1/scan?sender=&threshold=&percent=&stop=
//                                  scores the message that is posted, as corvane scan --json does;
//                                  what is left out is the configuration's
//     POST /v1/reload              200, or 409 with the reason where the old rules stay
//     POST /v1/restart             200 once another process has taken over, or 409 with the reason
//     POST /v1/drain, /v1/resume   have proxies send nobody any more, and send them again
//     GET  /v1/profile?sort=&top=&format=
//                                  what each rule costs, as JSON, or as a table: format=text
//     POST /v1/profile?every=N     find that out from one message in so many from now on; 0, no more
//     POST /v1/log?level=debug     what is logged from now on
//
// Threads: its own; construction and destruction are the main thread's.

#include <memory>

#include "Config.h"
#include "Handover.h"
#include "Log.h"
#include "Reloader.h"
#include "Transaction.h"

namespace Corvane::Milter {

class Control {
public:
    // Whether the path may be that of a process which is there, and will go.
    enum class Place { Free, TakenOver };

    // What it steers; all must outlive it.
    struct Steered {
        Shared &shared;
        Reloader &reloader;
        Handover &handover;
        Log &log;
    };

    // Binds, the Unix socket beside its path, and serves until it is destroyed. Throws
    // std::runtime_error, with the remedy, where it cannot.
    Control(const Steered &steered, const ControlConfig &config, Place place = Place::Free);
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;
    ~Control();

    // Puts the Unix socket to its path, over whatever socket is there. Throws std::runtime_error.
    void publish();

private:
    struct Server;

    std::unique_ptr<Server> local_;
    std::unique_ptr<Server> tcp_;
};

} // namespace Corvane::Milter

#endif
