#include "Ctl.h"

#include <array>

#include <httplib.h>
#include <sys/un.h>

#include "ExitStatus.h"
#include "Failure.h"
#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

constexpr int kExitRefused = 1;

struct Request {
    const char *action;
    const char *help;
    const char *path;
    bool isPost;
};

constexpr std::array<Request, 8> kRequests = {
    {{"status", "Show what it runs with", "/v1/status", false},
     {"metrics", "Show its metrics", "/metrics", false},
     {"reload", "Read configuration and rules again", "/v1/reload", true},
     {"restart", "Start the program anew without losing a message", "/v1/restart", true},
     {"drain", "Be unhealthy, so that a proxy sends nobody any more", "/v1/drain", true},
     {"resume", "Be healthy again", "/v1/resume", true},
     {"profile", "Show what each rule costs, or begin to find that out", "/v1/profile", false},
     {"log", "Log from a level on", "/v1/log", true}}};

std::string s_query(const CtlArguments &arguments) {
    if (arguments.action == "log") {
        return "?level=" + arguments.level;
    }
    if (arguments.action != "profile") {
        return {};
    }
    if (arguments.every.has_value()) {
        return "?every=" + std::to_string(*arguments.every);
    }
    return "?sort=" + arguments.sort +
           (arguments.top.has_value() ? "&top=" + std::to_string(*arguments.top) : "") +
           (arguments.isJson ? "" : "&format=text");
}

void s_addProfileOptions(CLI::App &action, CtlArguments &arguments) {
    CLI::Option *every =
        action
            .add_option("--every", arguments.every,
                        "Profile one message in N from now on, and forget the ones before; 0, none "
                        "any more")
            ->type_name("N");
    action.add_option("--sort", arguments.sort, "time, tries, bytes, matches or step-limited")
        ->check(CLI::IsMember({"time", "tries", "bytes", "matches", "step-limited"}))
        ->capture_default_str()
        ->excludes(every)
        ->type_name("COLUMN");
    action.add_option("--top", arguments.top, "Show so many rules; all, unless given")
        ->excludes(every)
        ->type_name("N");
    action.add_flag("--json", arguments.isJson, "Show it as one JSON object")->excludes(every);
}

httplib::Result s_send(const CtlArguments &arguments) {
    // A large rule set takes its time to load.
    constexpr time_t kSeconds = 300;
    httplib::Client client(arguments.socket);
    client.set_address_family(AF_UNIX);
    client.set_read_timeout(kSeconds);
    for (const Request &request : kRequests) {
        if (arguments.action == request.action) {
            const std::string path = request.path + s_query(arguments);
            return request.isPost || arguments.every.has_value() ? client.Post(path)
                                                                 : client.Get(path);
        }
    }
    refuse("'" + arguments.action + "' is no action; see 'corvane ctl --help'");
}

} // namespace

void addCtlCommand(CLI::App &app, CtlArguments &arguments) {
    CLI::App *ctl = app.add_subcommand("ctl", "Ask something of a running corvane-milter");
    ctl->add_option("--socket", arguments.socket, "Its control socket")
        ->capture_default_str()
        ->type_name("PATH");
    ctl->require_subcommand(1);
    for (const Request &request : kRequests) {
        CLI::App *action = ctl->add_subcommand(request.action, request.help);
        const std::string name = request.action;
        action->callback([&arguments, name] { arguments.action = name; });
        if (name == "profile") {
            s_addProfileOptions(*action, arguments);
        }
        if (name == "log") {
            action->add_option("LEVEL", arguments.level, "error, info or debug")
                ->required()
                ->check(CLI::IsMember({"error", "info", "debug"}))
                ->type_name("");
        }
    }
    ctl->footer("Exit status: 0 it was done; 1 the daemon would not, and says why; 2 the daemon "
                "cannot be reached, or the command line is wrong.\n");
}

int runCtl(const CtlArguments &arguments, std::ostream &out, std::ostream &err) {
    constexpr int kFirstRefusal = 400;
    try {
        if (arguments.socket.size() >= sizeof(sockaddr_un::sun_path)) {
            refuse("'" + arguments.socket +
                   "' is too long for a socket; name it by a shorter path");
        }
        const httplib::Result result = s_send(arguments);
        if (!result) {
            refuse("no daemon answers at '" + arguments.socket +
                   "'; see that corvane-milter runs, that you may open its socket, and name that "
                   "with --socket");
        }
        out << result->body;
        const int error = flushed(out);
        if (error != 0) {
            refuse("cannot write the answer: " + systemReason(error));
        }
        return result->status < kFirstRefusal ? kExitClean : kExitRefused;
    } catch (const Exception &failure) {
        err << "corvane: " << readable(failure) << '\n';
        return kExitFailed;
    }
}

} // namespace Corvane::Cli
