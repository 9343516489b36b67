#include "RemoteRules.h"

#include <stdexcept>
#include <utility>

#include <httplib.h>
#include <sys/un.h>

#include "Failure.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

constexpr int kOk = 200;
constexpr int kTooLarge = 413;

httplib::Client s_client(const std::string &socket) {
    // The longest budget that makes sense, and a place in the line.
    constexpr time_t kSeconds = 120;
    httplib::Client client(socket);
    client.set_address_family(AF_UNIX);
    client.set_read_timeout(kSeconds);
    client.set_write_timeout(kSeconds);
    return client;
}

std::string s_queryOf(const corvane::ScanOptions &options) {
    httplib::Params params{{"threshold", Reporting::shortest(options.threshold)},
                           {"percent", std::to_string(options.percent)},
                           {"stop", options.stop ? "1" : "0"}};
    if (options.sender.has_value()) {
        params.emplace("sender", *options.sender);
    }
    return httplib::detail::params_to_query_str(params);
}

} // namespace

RemoteRules::RemoteRules(std::string socket, const corvane::ScanOptions &options)
    : socket_(std::move(socket)), query_(s_queryOf(options)) {
    if (socket_.size() >= sizeof(sockaddr_un::sun_path)) {
        refuse("'" + socket_ + "' is too long for a socket; name it by a shorter path");
    }
}

Reporting::ShownRuleSet RemoteRules::ruleSet() const {
    const httplib::Result result = s_client(socket_).Get("/v1/ruleset");
    if (!result) {
        refuse("no daemon answers at '" + socket_ +
               "'; see that corvane-milter runs and that you may open its socket, or scan with "
               "--rules");
    }
    if (result->status != kOk) {
        refuse("what answers at '" + socket_ +
               "' cannot scan; see that it is a corvane-milter of this version");
    }
    return Reporting::ruleSetOf(result->body);
}

Reporting::ScanReply RemoteRules::scan(const std::string &message) const {
    const httplib::Result result =
        s_client(socket_).Post("/v1/scan?" + query_, message, "message/rfc822");
    if (!result) {
        throw std::runtime_error("the daemon has gone; try again once it runs");
    }
    if (result->status == kTooLarge) {
        throw std::runtime_error("it is larger than the daemon's limits.message_bytes; scan it "
                                 "with --rules");
    }
    if (result->status != kOk) {
        throw std::runtime_error("the daemon has no verdict: " + result->body);
    }
    return Reporting::scanReplyOf(result->body);
}

} // namespace Corvane::Cli
