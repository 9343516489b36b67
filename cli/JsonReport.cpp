#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Report.h"

namespace Corvane::Cli {

namespace {

// What a program that reads the objects may count on; raised when a field changes its meaning.
constexpr unsigned int kFormatVersion = 1;

// Fields in the order they are set; floats, so that a score is written with the digits it has.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

std::string s_rendered(const Json &value, Json::error_handler_t handler) {
    return value.dump(-1, ' ', false, handler);
}

// The two handlers agree where there is nothing to handle.
bool s_isUtf8(const std::string &text) {
    return s_rendered(text, Json::error_handler_t::ignore) ==
           s_rendered(text, Json::error_handler_t::replace);
}

std::string s_hex(const std::string &bytes) {
    constexpr const char *kDigits = "0123456789abcdef";
    constexpr unsigned int kBase = 16;
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += kDigits[value / kBase];
        hex += kDigits[value % kBase];
    }
    return hex;
}

void s_setName(Json &object, const std::string &key, const std::string &name) {
    object[key] = name;
    if (!s_isUtf8(name)) {
        object[key + "Hex"] = s_hex(name);
    }
}

Json s_rules(const Verdict &verdict) {
    Json rules = Json::array();
    for (const TrippedRule &rule : verdict.rules) {
        Json object;
        s_setName(object, "name", rule.name);
        object["kind"] = rule.kind;
        object["score"] = rule.score;
        object["language"] = verdict.language;
        rules.push_back(object);
    }
    return rules;
}

void s_setResult(Json &object, const Verdict &verdict) {
    object["language"] = verdict.language;
    object["mask"] = verdict.mask;
    object["score"] = verdict.score;
    object["tripped"] = verdict.tripped;
    object["over"] = verdict.over;
    object["rules"] = s_rules(verdict);
    object["limits"] = Json::array();
    for (const MailLimit limit : verdict.limits) {
        object["limits"].push_back(mailLimitName(limit));
    }
    object["ms"] = verdict.millis;
}

class JsonReport final : public Report {
public:
    explicit JsonReport(std::ostream &out) : out_(out) {}

    void message(const Verdict &verdict) override {
        Json object;
        object["version"] = kFormatVersion;
        s_setName(object, "file", verdict.file);
        if (verdict.index > 0) {
            object["index"] = verdict.index;
        }
        if (verdict.failure.empty()) {
            s_setResult(object, verdict);
        } else {
            object["error"] = verdict.failure;
        }
        out_ << s_rendered(object, Json::error_handler_t::replace) << '\n';
    }

    void summary(const Totals & /*totals*/) override {}

private:
    std::ostream &out_;
};

} // namespace

std::unique_ptr<Report> makeJsonReport(std::ostream &out) {
    return std::make_unique<JsonReport>(out);
}

} // namespace Corvane::Cli
