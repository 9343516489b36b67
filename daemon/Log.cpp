#include "Log.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

#include <time.h>

#include "Text.h"
#include "report/Numbers.h"

namespace Corvane::Milter {

namespace {

constexpr std::array<const char *, 3> kLevels = {"error", "info", "debug"};

std::string s_now() {
    constexpr long kNanosPerMilli = 1000000;
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm parts {};
    gmtime_r(&now.tv_sec, &parts);
    constexpr std::size_t kRoom = 64;
    std::array<char, kRoom> date{};
    const std::size_t length = strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::string millis = std::to_string(now.tv_nsec / kNanosPerMilli);
    constexpr std::size_t kDigits = 3;
    millis.insert(0, kDigits - millis.size(), '0');
    return std::string(date.data(), length) + '.' + millis + 'Z';
}

// The text is escaped already, so the backslash is all that JSON wants more of.
std::string s_quoted(const std::string &text, LogFormat format) {
    std::string result = "\"";
    for (const char byte : text) {
        result += byte == '\\' && format == LogFormat::Json ? "\\\\" : std::string(1, byte);
    }
    return result + '"';
}

std::string s_logfmt(const std::string &text) {
    const bool isBare = !text.empty() && text.find_first_of(" =") == std::string::npos;
    return isBare ? text : s_quoted(text, LogFormat::Logfmt);
}

} // namespace

LogLine::LogLine(LogLevel level, std::string_view event) : level_(level) {
    add("time", s_now());
    add("level", kLevels.at(static_cast<std::size_t>(level)));
    add("event", event);
}

LogLine &LogLine::add(const char *key, std::string_view text, std::size_t most) {
    return addEscaped(key, escaped(text, Charset::Utf8, "\"", most));
}

LogLine &LogLine::addEscaped(const char *key, std::string text) {
    fields_.push_back({key, std::move(text), true});
    return *this;
}

LogLine &LogLine::addNames(const char *key, const std::vector<std::string_view> &names) {
    std::string text;
    for (std::size_t each = 0; each < names.size(); ++each) {
        const std::string name = escaped(names[each], Charset::Utf8, "\",+", kMostNameBytes);
        if (text.size() + name.size() > kMostBytes) {
            text += (text.empty() ? "+" : ",+") + std::to_string(names.size() - each);
            break;
        }
        text.append(text.empty() ? "" : ",").append(name);
    }
    return addEscaped(key, std::move(text));
}

LogLine &LogLine::add(const char *key, std::uint64_t number) {
    fields_.push_back({key, std::to_string(number), false});
    return *this;
}

LogLine &LogLine::add(const char *key, float number) {
    fields_.push_back({key, Reporting::shortest(number), false});
    return *this;
}

LogLine &LogLine::addMillis(const char *key, double millis) {
    constexpr std::size_t kRoom = 64;
    constexpr int kDecimals = 3;
    std::array<char, kRoom> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), millis,
                                   std::chars_format::fixed, kDecimals)
                         .ptr;
    fields_.push_back({key, std::string(text.data(), end), false});
    return *this;
}

std::string LogLine::rendered(LogFormat format) const {
    const bool isJson = format == LogFormat::Json;
    std::string line = isJson ? "{" : "";
    for (const Field &field : fields_) {
        if (&field != &fields_.front()) {
            line += isJson ? ',' : ' ';
        }
        if (isJson) {
            line += '"' + std::string(field.key) + "\":";
            line += field.isText ? s_quoted(field.value, format) : field.value;
        } else {
            line += std::string(field.key) + '=';
            line += field.isText ? s_logfmt(field.value) : field.value;
        }
    }
    return line + (isJson ? "}\n" : "\n");
}

Log::Log(int file)
    : writer_(file, [this](std::uint64_t lines) {
          return LogLine(LogLevel::Error, "log_dropped").add("lines", lines).rendered(format_);
      }) {}

void Log::write(const LogLine &line) const {
    if (line.level() <= level_.load()) {
        writer_.write(line.rendered(format_.load()));
    }
}

} // namespace Corvane::Milter
