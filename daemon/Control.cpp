#include "Control.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ProfileReport.h"
#include "Sockets.h"
#include "Text.h"
#include "corvane/Engine.h"
#include "report/ScanReply.h"

namespace Corvane::Milter {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kUnavailable = 503;
constexpr int kConflict = 409;
constexpr int kBadRequest = 400;
constexpr int kTooLarge = 413;
constexpr std::size_t kMostQueryBytes = 65536;
constexpr std::chrono::seconds kLocalPatience{5};
constexpr std::chrono::seconds kTcpPatience{1};

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

// Digits alone; nothing where it is anything else.
std::optional<unsigned int> s_number(const std::string &text) {
    unsigned int number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return read.ec == std::errc() && read.ptr == text.data() + text.size() ? std::optional(number)
                                                                           : std::nullopt;
}

void s_fail(httplib::Response &response, int status, const std::string &reason) {
    response.status = status;
    s_answer(response, Json{{"reason", escaped(reason, Charset::Utf8)}});
}

void s_showProfile(const Shared &shared, const httplib::Request &request,
                   httplib::Response &response) {
    ProfileQuery query;
    if (request.has_param("sort")) {
        const auto order = profileOrderOf(request.get_param_value("sort"));
        if (!order.has_value()) {
            s_fail(response, kBadRequest, "sort takes time, tries, bytes, matches or step-limited");
            return;
        }
        query.order = *order;
    }
    if (request.has_param("top")) {
        const auto top = s_number(request.get_param_value("top"));
        if (!top.has_value()) {
            s_fail(response, kBadRequest, "top takes a number of rules");
            return;
        }
        query.top = *top;
    }
    const Profiler::View view = shared.profiler.view();
    if (request.get_param_value("format") == "text") {
        response.set_content(profileText(view, query), "text/plain; charset=utf-8");
    } else {
        response.set_content(profileJson(view, query), "application/json");
    }
}

void s_startProfile(Shared &shared, const Log &log, const httplib::Request &request,
                    httplib::Response &response) {
    const auto every = s_number(request.get_param_value("every"));
    if (!every.has_value()) {
        s_fail(response, kBadRequest,
               "every takes the number of messages of which one is "
               "profiled, or 0 for none");
        return;
    }
    shared.profiler.start(shared.live.current()->rules, *every);
    log.write(LogLine(LogLevel::Info, "profile").add("every", std::uint64_t{*every}));
    s_answer(response, Json{{"every", *every}});
}

// What the query says in place of the configuration; nothing where it makes no sense.
std::optional<corvane::ScanOptions> s_scanOptions(const Config &config,
                                                  const httplib::Request &request) {
    constexpr unsigned int kMostPercent = 100;
    corvane::ScanOptions options = config.scanOptions();
    try {
        if (request.has_param("threshold")) {
            options.threshold = std::stof(request.get_param_value("threshold"));
        }
        if (request.has_param("percent")) {
            const unsigned long percent = std::stoul(request.get_param_value("percent"));
            if (percent > kMostPercent) {
                return {};
            }
            options.percent = static_cast<unsigned int>(percent);
        }
    } catch (const std::logic_error &) {
        return {};
    }
    if (request.has_param("stop")) {
        options.stop = request.get_param_value("stop") == "1";
    }
    if (request.has_param("sender")) {
        options.sender = request.get_param_value("sender");
    }
    return std::isfinite(options.threshold) ? std::optional(options) : std::nullopt;
}

// As a message of a mail server is scanned, but that nothing counts it and nothing comes of it.
void s_scan(Shared &shared, const httplib::Request &request, httplib::Response &response) {
    constexpr int kInternal = 500;
    const SetupRef setup = shared.live.current();
    const auto options = s_scanOptions(setup->config, request);
    if (!options.has_value()) {
        s_fail(response, kBadRequest,
               "threshold takes a number, percent one from 0 to 100, stop 0 or 1");
        return;
    }
    if (request.body.size() > std::size_t{options->limits.messageBytes} + 1) {
        s_fail(response, kTooLarge, "the message is larger than limits.message_bytes");
        return;
    }
    const Slots::Taken slot = shared.slots.take(setup->config.bounds.wait);
    if (!slot) {
        s_fail(response, kUnavailable, "no scan could begin in time; try again");
        return;
    }
    try {
        const corvane::Verdict verdict = setup->rules.scan(request.body, *options);
        response.set_content(Reporting::jsonOf(Reporting::shown(verdict, options->threshold),
                                               Reporting::shown(setup->rules), {}) +
                                 '\n',
                             "application/json");
    } catch (const std::exception &failure) {
        s_fail(response, kInternal, failure.what());
    }
}

void s_addReading(httplib::Server &server, Shared &shared) {
    server.Get("/metrics", [&shared](const httplib::Request &, httplib::Response &response) {
        response.set_content(
            shared.metrics.text({shared.sessions, shared.messages, shared.log.dropped()}),
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
    Shared &shared = steered.shared;
    Reloader &reloader = steered.reloader;
    Handover &handover = steered.handover;
    Log &log = steered.log;
    server.Get("/v1/status", [&](const httplib::Request &, httplib::Response &response) {
        s_answer(response, s_status(shared, log));
    });
    server.Get("/v1/ruleset", [&](const httplib::Request &, httplib::Response &response) {
        response.set_content(Reporting::jsonOf(Reporting::shown(shared.live.current()->rules)) +
                                 '\n',
                             "application/json");
    });
    server.Post("/v1/scan", [&](const httplib::Request &request, httplib::Response &response) {
        s_scan(shared, request, response);
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
    server.Get("/v1/profile", [&](const httplib::Request &request, httplib::Response &response) {
        s_showProfile(shared, request, response);
    });
    server.Post("/v1/profile", [&](const httplib::Request &request, httplib::Response &response) {
        s_startProfile(shared, log, request, response);
    });
    server.Post("/v1/log", [&](const httplib::Request &request, httplib::Response &response) {
        s_setLevel(log, request, response);
    });
}

} // namespace

struct Control::Server {
    // patience: for the next bytes of whoever has connected, who has a thread until then.
    Server(std::size_t mostBodyBytes, std::chrono::seconds patience) {
        constexpr std::size_t kThreads = 16;
        server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
        server.set_payload_max_length(mostBodyBytes);
        server.set_read_timeout(patience.count());
        server.set_keep_alive_timeout(patience.count());
        server.set_socket_options([this](int socket) {
            constexpr int kYes = 1;
            setsockopt(socket, SOL_SOCKET, SO_REUSEPORT, &kYes, sizeof(kYes));
            listener = socket;
        });
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
        // httplib lets five wait, and a Unix socket turns away who comes then.
        constexpr int kWaiting = 1024;
        ::listen(listener, kWaiting);
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
    int listener = -1;
    std::thread thread;
    // Where the Unix socket is to be, and where it was bound.
    std::string path;
    std::string fresh;
    std::optional<FileId> file;
};

Control::Control(const Steered &steered, const ControlConfig &config, Place place) {
    Shared &shared = steered.shared;
    if (!config.path.empty()) {
        // A reload may raise the limit; what is too long then is said so as well.
        const std::size_t messageBytes =
            shared.live.current()->config.scanOptions().limits.messageBytes;
        local_ = std::make_unique<Server>(messageBytes + kMostQueryBytes, kLocalPatience);
        s_addReading(local_->server, shared);
        s_addSteering(local_->server, steered);
        local_->bindPath(config.path, place);
        local_->serve();
    }
    if (!config.host.empty()) {
        // Of all who are on this machine, which must not keep a proxy from asking for the health.
        tcp_ = std::make_unique<Server>(kMostQueryBytes, kTcpPatience);
        s_addReading(tcp_->server, shared);
        // httplib shares ports between processes, which only a restart shall do.
        const bool isTaken = place == Place::Free && touchInet(config.host, config.port);
        if (isTaken || !tcp_->server.bind_to_port(config.host, static_cast<int>(config.port))) {
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
