#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Report.h"
#include "corvane/Engine.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

// What a program that reads the objects may count on; raised when a field changes its meaning.
constexpr unsigned int kFormatVersion = 2;

// Fields in the order they are set; floats, so that a score is written with no more digits than
// tell it from others.
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

Json s_names(const std::vector<std::string> &names) {
    Json array = Json::array();
    for (const std::string &name : names) {
        array.push_back(name);
    }
    return array;
}

Json s_rules(const corvane::Verdict &verdict) {
    Json rules = Json::array();
    for (const corvane::Hit &hit : verdict.hits()) {
        Json object;
        s_setName(object, "name", hit.name);
        object["kind"] = corvane::kindName(hit.kind);
        object["score"] = hit.score;
        object["language"] = verdict.language();
        rules.push_back(object);
    }
    return rules;
}

// The text of a version without what sets it off in the log: "v5.123" of " (v5.123)".
std::string s_plainVersion(const std::string &version) {
    const std::size_t begin = version.find_first_not_of(" (");
    const std::size_t end = version.find_last_not_of(" )");
    return begin == std::string::npos ? std::string() : version.substr(begin, end + 1 - begin);
}

Json s_ruleSet(const corvane::RuleSet &rules) {
    const corvane::RuleCounts &counts = rules.counts();
    Json object;
    object["loaded"] = counts.loaded;
    object["active"] = counts.active;
    object["refused"] = counts.refused;
    object["duplicates"] = counts.duplicates;
    object["version"] = s_plainVersion(rules.version());
    object["generation"] = rules.generation();
    object["engine"] = corvane::engine();
    return object;
}

class JsonReport final : public Report {
public:
    JsonReport(std::ostream &out, ReportContext context)
        : out_(out), context_(std::move(context)), ruleSet_(s_ruleSet(context_.rules)) {}

    void message(const MessageResult &result) override {
        Json object;
        object["version"] = kFormatVersion;
        s_setName(object, "file", result.file);
        if (result.index > 0) {
            object["index"] = result.index;
        }
        if (result.failure.empty()) {
            setVerdict(object, result.verdict);
            object["ms"] = result.millis;
        } else {
            object["error"] = result.failure;
        }
        object["ruleset"] = ruleSet_;
        out_ << s_rendered(object, Json::error_handler_t::replace) << '\n';
    }

    void summary(const Totals & /*totals*/) override {}

private:
    void setVerdict(Json &object, const corvane::Verdict &verdict) const {
        object["language"] = verdict.language();
        object["mask"] = verdict.mask();
        object["score"] = Reporting::shownTotal(verdict, context_.threshold);
        object["tripped"] = verdict.stopped();
        object["over"] = verdict.over();
        object["rules"] = s_rules(verdict);
        object["limits"] = Json::array();
        for (const std::string_view limit : verdict.limits()) {
            object["limits"].push_back(limit);
        }
        object["reader"] = {{"hiddenTextBytes", verdict.disguise().hiddenTextBytes},
                            {"invisibleCharacters", verdict.disguise().invisibleCharacters}};
        object["stepLimited"] = verdict.stepLimited();
        if (context_.verbose) {
            object["stepLimitedRules"] = s_names(verdict.stepLimitedRules());
        }
    }

    std::ostream &out_;
    ReportContext context_;
    Json ruleSet_;
};

} // namespace

std::unique_ptr<Report> makeJsonReport(std::ostream &out, ReportContext context) {
    return std::make_unique<JsonReport>(out, std::move(context));
}

} // namespace Corvane::Cli
