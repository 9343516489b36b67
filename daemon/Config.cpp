#include "Config.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>
#include <utility>

#include <sys/stat.h>
#include <sys/un.h>

#include "ConfigReader.h"
#include "Text.h"

namespace Corvane::Milter {

namespace {

constexpr double kMostScore = 1e6;
constexpr double kMostBytes = 1U << 30U;
constexpr double kMostMemoryBytes = 1e15;
constexpr double kMostCount = 1e6;
constexpr double kMostSeconds = 86400;
constexpr double kMostPort = 65535;

// The name of a header, and with what is put behind the prefix far below the 998 bytes of a line.
constexpr std::size_t kMostPrefixBytes = 64;
// The protocol takes 980, the code in front included.
constexpr std::size_t kMostReplyBytes = 900;

// Of a socket: beside the path itself one with the number of a process is bound.
constexpr std::size_t kReservedBytes = 16;
constexpr std::size_t kMostPathBytes = sizeof(sockaddr_un::sun_path) - kReservedBytes;

struct LimitKey {
    const char *key;
    unsigned int corvane::Limits::*field;
};

constexpr std::array<LimitKey, 14> kLimitKeys = {
    {{"message_bytes", &corvane::Limits::messageBytes},
     {"nesting_depth", &corvane::Limits::nestingDepth},
     {"parts", &corvane::Limits::parts},
     {"headers", &corvane::Limits::headers},
     {"header_bytes", &corvane::Limits::headerBytes},
     {"header_value_bytes", &corvane::Limits::headerValueBytes},
     {"uris", &corvane::Limits::uris},
     {"uri_bytes", &corvane::Limits::uriBytes},
     {"decoded_bytes", &corvane::Limits::decodedBytes},
     {"text_bytes", &corvane::Limits::textBytes},
     {"raw_body_bytes", &corvane::Limits::rawBodyBytes},
     {"html_bytes", &corvane::Limits::htmlBytes},
     {"html_tag_bytes", &corvane::Limits::htmlTagBytes},
     {"style_rules", &corvane::Limits::styleRules}}};

bool s_isPrintable(char byte) {
    return byte >= ' ' && byte <= '~';
}

// What a header's name may hold.
bool s_isNameByte(char byte) {
    return byte > ' ' && byte <= '~' && byte != ':';
}

void s_readInet(TableReader &table, const std::string &text, SocketConfig &socket) {
    constexpr const char *kRemedy =
        "write inet:PORT@ADDRESS, such as inet:8890@127.0.0.1, or unix:/PATH";
    const std::size_t at = text.find('@');
    const std::string port = text.substr(0, at);
    unsigned int number = 0;
    const auto read = std::from_chars(port.data(), port.data() + port.size(), number);
    const std::string host = at == std::string::npos ? std::string() : text.substr(at + 1);
    const bool isNumber = read.ec == std::errc() && read.ptr == port.data() + port.size();
    if (!isNumber || number > kMostPort || !addressOf(host).has_value()) {
        table.refuse("socket", std::string("no port and numeric address; ") + kRemedy);
        return;
    }
    socket.host = host;
    socket.port = number;
}

void s_readUnix(TableReader &table, const std::string &path, SocketConfig &socket) {
    if (path.empty() || path.front() != '/') {
        table.refuse("socket", "the path is not absolute; write unix:/PATH");
    } else if (path.size() > kMostPathBytes) {
        table.refuse("socket", "the path is longer than " + std::to_string(kMostPathBytes) +
                                   " bytes; choose a shorter one");
    } else {
        socket.path = path;
    }
}

std::optional<unsigned int> s_mode(const std::string &text) {
    constexpr int kOctal = 8;
    constexpr unsigned int kMostMode = 0777;
    unsigned int mode = 0;
    const char *end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, mode, kOctal);
    return read.ec == std::errc() && read.ptr == end && mode <= kMostMode
               ? std::optional<unsigned int>(mode)
               : std::nullopt;
}

void s_readMilter(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "milter", faults);
    const std::string kInet = "inet:";
    const std::string kUnix = "unix:";
    std::string socket = kUnix + config.socket.path;
    table.text("socket", socket);
    if (socket.rfind(kInet, 0) == 0) {
        s_readInet(table, socket.substr(kInet.size()), config.socket);
    } else {
        s_readUnix(table, socket.rfind(kUnix, 0) == 0 ? socket.substr(kUnix.size()) : socket,
                   config.socket);
    }
    std::string mode = "0660";
    table.text("socket_mode", mode);
    if (const auto number = s_mode(mode)) {
        config.socket.mode = *number;
    } else {
        table.refuse("socket_mode", "no permissions in octal; write such as \"0660\"");
    }
    if (const auto seconds = table.number("timeout", {10, kMostSeconds, "seconds"})) {
        config.socket.timeout = std::chrono::seconds(static_cast<long>(*seconds));
    }
}

bool s_isLoopback(const std::string &host) {
    const std::optional<Address> address = addressOf(host);
    return address.has_value() && (Network::parse("127.0.0.0/8")->holds(*address) ||
                                   address == addressOf(std::string("::1")));
}

void s_readControl(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "control", faults);
    ControlConfig &control = config.control;
    table.text("socket", control.path);
    if (!control.path.empty() &&
        (control.path.front() != '/' || control.path.size() > kMostPathBytes)) {
        table.refuse("socket", "no absolute path of " + std::to_string(kMostPathBytes) +
                                   " bytes at most; write one, or \"\" for no socket");
    }
    std::string metrics;
    table.text("metrics", metrics);
    if (metrics.empty()) {
        return;
    }
    const std::size_t colon = metrics.rfind(':');
    const std::string port = metrics.substr(std::min(colon, metrics.size() - 1) + 1);
    const std::string host = metrics.substr(0, colon);
    const auto read = std::from_chars(port.data(), port.data() + port.size(), control.port);
    if (read.ec != std::errc() || read.ptr != port.data() + port.size() || control.port == 0 ||
        control.port > kMostPort || !s_isLoopback(host)) {
        table.refuse("metrics", "no address of this machine alone with a port; write such as "
                                "\"127.0.0.1:9464\"");
        return;
    }
    control.host = host;
}

void s_readSets(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "sets", faults);
    constexpr double kMostSets = 1000;
    table.text("directory", config.sets.directory);
    if (config.sets.directory.empty() || config.sets.directory.front() != '/') {
        table.refuse("directory", "no absolute path; write one, and keep = 0 to keep no sets");
    }
    table.count("keep", config.sets.keep, {0, kMostSets});
}

void s_readScan(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "scan", faults);
    constexpr double kMostPercent = 100;
    table.number("threshold", config.scan.threshold, {-kMostScore, kMostScore});
    table.count("percent", config.scan.percent, {0, kMostPercent, "per cent"});
    if (const auto seconds = table.number("budget", {0, kMostSeconds, "seconds"})) {
        config.scan.budget = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(*seconds));
    }
}

void s_readBounds(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "limits", faults);
    constexpr double kMostWait = 2;
    constexpr double kMostScans = 1024;
    for (const LimitKey &limit : kLimitKeys) {
        table.count(limit.key, config.bounds.message.*limit.field, {1, kMostBytes});
    }
    table.count("sessions", config.bounds.sessions, {1, kMostCount});
    table.count("scans", config.bounds.scans, {0, kMostScans});
    if (const auto seconds = table.number("wait", {0, kMostWait, "seconds"})) {
        config.bounds.wait = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::duration<double>(*seconds));
    }
    if (const auto bytes = table.number("memory_bytes", {0, kMostMemoryBytes})) {
        config.bounds.memory = static_cast<std::size_t>(*bytes);
    }
    if (const auto seconds = table.number("stop", {0, kMostSeconds, "seconds"})) {
        config.bounds.stop = std::chrono::seconds(static_cast<long>(*seconds));
    }
}

void s_readHeaders(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "headers", faults);
    std::string &prefix = config.headers.prefix;
    table.text("prefix", prefix);
    if (prefix.empty() || prefix.size() > kMostPrefixBytes ||
        !std::all_of(prefix.begin(), prefix.end(), s_isNameByte)) {
        table.refuse("prefix", "no beginning of a header's name; write one to " +
                                   std::to_string(kMostPrefixBytes) +
                                   " printable characters without blanks and colons");
    }
    table.flag("report", config.headers.report);
}

Band s_readBand(const toml::table *from, Faults &faults) {
    TableReader table(from, "actions", faults);
    Band band;
    constexpr double kAny = std::numeric_limits<double>::infinity();
    table.number("min", band.min, {-kAny, kAny});
    if (!table.has("min")) {
        faults.add(from->source(), "actions.min is missing; write the score from which on it acts");
    }
    const auto action = table.word("action", {"none", "tag", "quarantine", "reject", "discard"});
    if (!table.has("action")) {
        faults.add(from->source(), "actions.action is missing; write what is done");
    }
    band.action = static_cast<Action>(action.value_or(static_cast<std::size_t>(Action::Tag)));
    table.text("text", band.text);
    const bool isPlain = std::all_of(band.text.begin(), band.text.end(), s_isPrintable) &&
                         band.text.find('%') == std::string::npos;
    if (band.text.empty() || band.text.size() > kMostReplyBytes || !isPlain) {
        table.refuse("text", "no text for a reply; write one to " +
                                 std::to_string(kMostReplyBytes) +
                                 " printable ASCII characters without %");
    }
    if (table.has("text") && band.action != Action::Reject) {
        table.refuse("text", "only a refusal has a text; take it out or write action = \"reject\"");
    }
    return band;
}

void s_readBands(TableReader &root, Config &config, Faults &faults) {
    for (const toml::table *each : root.tables("actions")) {
        const Band band = s_readBand(each, faults);
        const auto same =
            std::find_if(config.bands.begin(), config.bands.end(),
                         [&band](const Band &other) { return other.min == band.min; });
        if (same != config.bands.end()) {
            faults.add(each->source(), "actions.min: there are two bands from the same score; "
                                       "take one out");
        }
        config.bands.push_back(band);
    }
    std::sort(config.bands.begin(), config.bands.end(),
              [](const Band &left, const Band &right) { return left.min < right.min; });
}

void s_readOnError(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "on_error", faults);
    const auto read = [&table](const char *key, OnError &value) {
        if (const auto word = table.word(key, {"accept", "tempfail"})) {
            value = static_cast<OnError>(*word);
        }
    };
    read("no_rules", config.onError.noRules);
    read("internal", config.onError.internal);
    read("budget", config.onError.budget);
    read("too_large", config.onError.tooLarge);
}

void s_readSkip(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "skip", faults);
    table.flag("authenticated", config.skip.authenticated);
    std::vector<std::string> networks;
    table.texts("networks", networks);
    for (const std::string &text : networks) {
        if (const auto network = Network::parse(text)) {
            config.skip.networks.push_back(*network);
        } else {
            table.refuse("networks", "'" + text +
                                         "' is no network; write such as \"192.0.2.0/24\", with "
                                         "no bits set behind those of the network");
        }
    }
    table.texts("recipients", config.skip.recipients);
    for (std::string &recipient : config.skip.recipients) {
        const std::size_t at = recipient.rfind('@');
        if (at == std::string::npos || at + 1 == recipient.size()) {
            table.refuse("recipients", "'" + recipient +
                                           "' is no recipient; write \"joe@example.org\", or "
                                           "\"@example.org\" for all of a domain");
        }
        recipient = lowercase(recipient);
    }
}

void s_readLog(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "log", faults);
    if (const auto word = table.word("format", {"logfmt", "json"})) {
        config.log.format = static_cast<LogFormat>(*word);
    }
    if (const auto word = table.word("level", {"error", "info", "debug"})) {
        config.log.level = static_cast<LogLevel>(*word);
    }
}

// What loading takes from wherever the daemon was started.
void s_readDirectories(TableReader &table, std::vector<std::string> &directories) {
    table.texts("rules", directories);
    for (const std::string &directory : directories) {
        if (directory.empty() || directory.front() != '/') {
            table.refuse("rules", "'" + directory +
                                      "' is no absolute path; write it from the root, since the "
                                      "daemon may be started anywhere");
        }
    }
}

void s_readShadow(const toml::table *from, Config &config, Faults &faults) {
    TableReader table(from, "shadow", faults);
    constexpr double kMostPercent = 100;
    s_readDirectories(table, config.shadow.rules);
    table.count("percent", config.shadow.percent, {0, kMostPercent, "per cent"});
}

void s_readAll(const toml::table &from, Config &config, Faults &faults) {
    TableReader root(&from, "", faults);
    s_readDirectories(root, config.rules);
    if (config.rules.empty()) {
        root.refuse("rules", "no directory; write at least one");
    }
    s_readMilter(root.table("milter"), config, faults);
    s_readControl(root.table("control"), config, faults);
    s_readSets(root.table("sets"), config, faults);
    s_readShadow(root.table("shadow"), config, faults);
    s_readScan(root.table("scan"), config, faults);
    s_readBounds(root.table("limits"), config, faults);
    s_readHeaders(root.table("headers"), config, faults);
    s_readBands(root, config, faults);
    s_readOnError(root.table("on_error"), config, faults);
    s_readSkip(root.table("skip"), config, faults);
    s_readLog(root.table("log"), config, faults);
}

std::string s_content(const std::string &file) {
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream bytes;
    struct stat status {};
    const bool isDirectory = stat(file.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    const bool isRead =
        !isDirectory && stream.is_open() &&
        (stream.peek() == std::ifstream::traits_type::eof() || (bytes << stream.rdbuf()));
    if (!isRead) {
        const int error = isDirectory ? EISDIR : errno != 0 ? errno : EIO;
        throw ConfigError(file + ": cannot be read: " + systemReason(error) +
                          "; name the configuration with --config FILE");
    }
    return bytes.str();
}

} // namespace

Config Config::read(const std::string &file) {
    return parse(s_content(file), file);
}

Config Config::parse(const std::string &text, const std::string &file) {
    Config config;
    config.file = file;
    Faults faults(file);
    try {
        const toml::table root = toml::parse(std::string_view(text), std::string_view(file));
        s_readAll(root, config, faults);
    } catch (const toml::parse_error &error) {
        faults.add(error.source(), std::string(error.description()) + "; write it as TOML has it");
    }
    faults.raise();
    return config;
}

const Band *Config::bandOf(float score) const {
    const Band *reached = nullptr;
    for (const Band &band : bands) {
        reached = score >= band.min ? &band : reached;
    }
    return reached;
}

corvane::ScanOptions Config::scanOptions() const {
    corvane::ScanOptions options;
    options.threshold = scan.threshold;
    options.percent = scan.percent;
    options.limits = bounds.message;
    options.budget = scan.budget;
    return options;
}

} // namespace Corvane::Milter
