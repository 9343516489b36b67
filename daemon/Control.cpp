#include "Control.h"

#include <cerrno>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "Sockets.h"
#include "Text.h"
#include "corvane/Engine.h"

namespace Corvane::Milter {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kUnavailable = 503;
constexpr int kConflict = 409;
constexpr int kBadRequest = 400;

void s_answer(httplib::Response &response, const Json &json) {
    response.set_content(json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n',
                         "application/json");
}

Json s_status(const Shared &shared, const Log &log) {
    constexpr const char *kLevels[] = {"error", "info", "debug"};
    const SetupRef setup = shared.live.current();
    const corvane::RuleCounts &counts = setup->rules.counts();
    Json rules;
    rules["loaded"] = counts.loaded;
    rules["active"] = counts.active;
    rules["refused"] = counts.refused;
    rules["duplicates"] = counts.duplicates;
    rules["generation"] = setup->rules.generation();
    Json status;
    status["pid"] = getpid();
    status["engine"] = corvane::engine();
    status["config"] = escaped(setup->config.file, Charset::Utf8);
    status["ruleset"] = rules;
    status["sessions"] = shared.sessions.load();
    status["messages"] = shared.messages.load();
    status["draining"] = shared.draining.load();
    status["log"] = kLevels[static_cast<std::size_t>(log.level())];
    return status;
}

void s_reload(Reloader &reloader, httplib::Response &response) {
    const Reloader::Result result = reloader.reload();
    Json json;
    json["result"] = nameOf(result.outcome);
    json["former"] = result.former;
    json["current"] = result.current;
    if (result.outcome != Reloader::Outcome::Replaced) {
        json["reason"] = escaped(result.reason, Charset::Utf8);
        response.status = kConflict;
    }
    s_answer(response, json);
}

void s_restart(Handover &handover, const Shared &shared, const Log &log,
               httplib::Response &response) {
    const SetupRef setup = shared.live.current();
    const Handover::Result result = handover.run(*setup);
    Json json;
    json["result"] = result.isDone ? "restarted" : "failed";
    json["former"] = setup->rules.generation();
    json["current"] = result.isDone ? result.generation : setup->rules.generation();
    json["pid"] = result.isDone ? result.process : getpid();
    LogLine line(result.isDone ? LogLevel::Info : LogLevel::Error, "restart");
    line.add("result", result.isDone ? "restarted" : "failed");
    if (!result.isDone) {
        json["reason"] = escaped(result.reason, Charset::Utf8);
        line.add("reason", result.reason);
        response.status = kConflict;
    }
    log.write(line);
    s_answer(response, json);
}

void s_setLevel(Log &log, const httplib::Request &request, httplib::Response &response) {
    const std::string level = request.get_param_value("level");
    const std::optional<LogLevel> known = level == "error"   ? std::optional(LogLevel::Error)
                                          : level == "info"  ? std::optional(LogLevel::Info)
                                          : level == "debug" ? std::optional(LogLevel::Debug)
                                                             : std::nullopt;
    if (known.has_value()) {
        log.level(*known);
    } else {
        response.status = kBadRequest;
    }
    s_answer(response, known.has_value() ? Json{{"log", level}}
                                         : Json{{"reason", "no level; name error, info or debug"}});
}

void s_addReading(httplib::Server &server, Shared &shared) {
    server.Get("/metrics", [&shared](const httplib::Request &, httplib::Response &response) {
        response.set_content(shared.metrics.text({shared.sessions, shared.messages}),
                             "text/plain; version=0.0.4; charset=utf-8");
    });
    server.Get("/v1/health", [&shared](const httplib::Request &, httplib::Response &response) {
        const bool isOpen = !shared.draining && !shared.closing;
        response.status = isOpen ? response.status : kUnavailable;
        s_answer(response, Json{{"health", isOpen ? "ok" : "draining"}});
    });
}

// The references are kept.
void s_addSteering(httplib::Server &server, const Control::Steered &steered) {
    auto &[shared, reloader, handover, log] = steered;
    server.Get("/v1/status", [&](const httplib::Request &, httplib::Response &response) {
        s_answer(response, s_status(shared, log));
    });
    server.Post("/v1/reload", [&](const httplib::Request &, httplib::Response &response) {
        s_reload(reloader, response);
    });
    server.Post("/v1/restart", [&](const httplib::Request &, httplib::Response &response) {
        s_restart(handover, shared, log, response);
    });
    for (const bool drains : {true, false}) {
        server.Post(drains ? "/v1/drain" : "/v1/resume",
                    [&shared, &log, drains](const httplib::Request &, httplib::Response &response) {
                        shared.draining = drains;
                        log.write(LogLine(LogLevel::Info, drains ? "drain" : "resume"));
                        s_answer(response, Json{{"draining", drains}});
                    });
    }
    server.Post("/v1/log", [&](const httplib::Request &request, httplib::Response &response) {
        s_setLevel(log, request, response);
    });
}

} // namespace

struct Control::Server {
    Server() {
        constexpr std::size_t kThreads = 4;
        constexpr std::size_t kMostBodyBytes = 65536;
        server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
        server.set_payload_max_length(kMostBodyBytes);
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    ~Server() {
        if (thread.joinable()) {
            server.stop();
            thread.join();
        }
        if (file.has_value()) {
            removeIfSame(path, *file);
            removeIfSame(fresh, *file);
        }
    }

    void serve() {
        thread = std::thread([this] { server.listen_after_bind(); });
        // It would not hear a stop before.
        while (!server.is_running()) {
            std::this_thread::yield();
        }
    }

    // As Filter does it: beside the path, then over it.
    void bindPath(const std::string &where, Place place) {
        constexpr mode_t kOwnerOnly = 0177;
        if (place == Place::Free && isServed(where)) {
            throw std::runtime_error("another process listens on '" + where +
                                     "'; stop it, or give this one another control.socket");
        }
        path = where;
        fresh = where + '.' + std::to_string(getpid());
        unlink(fresh.c_str());
        server.set_address_family(AF_UNIX);
        const mode_t former = umask(kOwnerOnly);
        // The port says nothing, but must not be 0.
        const bool isBound = server.bind_to_port(fresh, 1);
        const int error = errno;
        umask(former);
        if (!isBound) {
            refuse(error);
        }
        file = fileAt(fresh);
    }

    void publish() const {
        if (!path.empty() && std::rename(fresh.c_str(), path.c_str()) != 0) {
            refuse(errno);
        }
    }

    [[noreturn]] void refuse(int error) const {
        throw std::runtime_error("cannot listen on '" + path + "': " + systemReason(error) +
                                 "; see that its directory is there and may be written to, "
                                 "or set control.socket to another path or \"\"");
    }

    httplib::Server server;
    std::thread thread;
    // Where the Unix socket is to be, and where it was bound.
    std::string path;
    std::string fresh;
    std::optional<FileId> file;
};

Control::Control(const Steered &steered, const ControlConfig &config, Place place) {
    Shared &shared = steered.shared;
    if (!config.path.empty()) {
        local_ = std::make_unique<Server>();
        s_addReading(local_->server, shared);
        s_addSteering(local_->server, steered);
        local_->bindPath(config.path, place);
        local_->serve();
    }
    if (!config.host.empty()) {
        tcp_ = std::make_unique<Server>();
        s_addReading(tcp_->server, shared);
        if (!tcp_->server.bind_to_port(config.host, static_cast<int>(config.port))) {
            throw std::runtime_error("cannot listen on '" + config.host + ':' +
                                     std::to_string(config.port) +
                                     "'; see that no other process has the port, or set "
                                     "control.metrics to another one");
        }
        tcp_->serve();
    }
}

Control::~Control() = default;

void Control::publish() {
    if (local_ != nullptr) {
        local_->publish();
    }
}

} // namespace Corvane::Milter
