#include <exception>
#include <iostream>
#include <string>

#include <getopt.h>

#include "Service.h"

namespace {

constexpr int kExitUsage = 64;

constexpr const char *kUsage =
    "Usage: corvane-milter [--config FILE] [--test]\n"
    "Scores the messages that a mail server hands it, by the milter protocol.\n"
    "\n"
    "  -c, --config FILE  the configuration; /etc/corvane/milter.toml unless given\n"
    "  -t, --test         check the configuration and its rules, and end: 0 where they are\n"
    "                     right, 78 where not\n"
    "  -h, --help         show this\n"
    "      --version      show the version\n"
    "\n"
    "It stays in the foreground. HUP reloads, TERM stops. See corvane-milter(8).\n";

struct Arguments {
    std::string config = "/etc/corvane/milter.toml";
    bool test = false;
    bool help = false;
    bool version = false;
    bool wrong = false;
};

constexpr option kOptions[] = {{"config", required_argument, nullptr, 'c'},
                               {"test", no_argument, nullptr, 't'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

Arguments s_parse(int argc, char **argv) {
    Arguments arguments;
    int option = 0;
    while ((option = getopt_long(argc, argv, "c:th", kOptions, nullptr)) != -1) {
        switch (option) {
        case 'c':
            arguments.config = optarg;
            break;
        case 't':
            arguments.test = true;
            break;
        case 'h':
            arguments.help = true;
            break;
        case 'V':
            arguments.version = true;
            break;
        default:
            arguments.wrong = true;
        }
    }
    if (optind < argc) {
        std::cerr << "corvane-milter: '" << argv[optind]
                  << "' is no option; name the configuration with --config FILE\n";
        arguments.wrong = true;
    }
    return arguments;
}

int s_run(const char *program, const Arguments &arguments) {
    if (arguments.wrong) {
        std::cerr << "Run 'corvane-milter --help' for what can be given.\n";
        return kExitUsage;
    }
    if (arguments.help || arguments.version) {
        std::cout << (arguments.help ? kUsage : "corvane-milter " CORVANE_VERSION "\n");
        return 0;
    }
    return arguments.test ? Corvane::Milter::check(arguments.config)
                          : Corvane::Milter::serve(program, arguments.config);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return s_run(argv[0], s_parse(argc, argv));
    } catch (const std::exception &failure) {
        std::cerr << "corvane-milter: " << failure.what() << '\n';
    }
    return 1;
}
