#include "report/ScanReply.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string_view>

#include <nlohmann/json.hpp>

#include "corvane/Engine.h"
#include "report/JsonBytes.h"
#include "report/Numbers.h"

namespace Corvane::Reporting {

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

std::string s_bytesOfHex(std::string_view hex) {
    const std::string_view digits = kHexDigits;
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
        const std::size_t high = digits.find(hex[at]);
        const std::size_t low = digits.find(hex[at + 1]);
        if (high == digits.npos || low == digits.npos) {
            throw std::runtime_error("a name's bytes are no hexadecimal");
        }
        bytes += static_cast<char>(high * kHexBase + low);
    }
    return bytes;
}

std::string s_name(const Json &object, const std::string &key) {
    const auto hex = object.find(key + kHexSuffix);
    return hex == object.end() ? object.at(key).get<std::string>()
                               : s_bytesOfHex(hex->get<std::string>());
}

Json s_rules(const ShownVerdict &verdict) {
    Json rules = Json::array();
    for (const ShownHit &hit : verdict.hits) {
        Json object;
        setBytes(object, "name", hit.name);
        object["kind"] = hit.kind;
        object["score"] = hit.score;
        object["language"] = verdict.language;
        rules.push_back(object);
    }
    return rules;
}

void s_setVerdict(Json &object, const ShownVerdict &verdict, bool namesGivenUp) {
    object["language"] = verdict.language;
    object["mask"] = verdict.mask;
    object["score"] = verdict.score;
    object["tripped"] = verdict.stopped;
    object["over"] = verdict.over;
    object["rules"] = s_rules(verdict);
    object["limits"] = verdict.limits;
    object["reader"] = {{"hiddenTextBytes", verdict.disguise.hiddenTextBytes},
                        {"invisibleCharacters", verdict.disguise.invisibleCharacters}};
    object["stepLimited"] = verdict.stepLimited;
    if (namesGivenUp) {
        object["stepLimitedRules"] = verdict.stepLimitedRules;
    }
    object["ms"] = verdict.millis;
}

Json s_ruleSet(const ShownRuleSet &rules) {
    Json object;
    object["loaded"] = rules.counts.loaded;
    object["active"] = rules.counts.active;
    object["refused"] = rules.counts.refused;
    object["duplicates"] = rules.counts.duplicates;
    object["version"] = rules.version;
    object["generation"] = rules.generation;
    object["engine"] = rules.engine;
    return object;
}

// The text of a version without what sets it off in the log: "v5.123" of " (v5.123)".
std::string s_plainVersion(const std::string &version) {
    const std::size_t begin = version.find_first_not_of(" (");
    const std::size_t end = version.find_last_not_of(" )");
    return begin == std::string::npos ? std::string() : version.substr(begin, end + 1 - begin);
}

ShownVerdict s_verdictOf(const Json &object) {
    ShownVerdict verdict;
    object.at("language").get_to(verdict.language);
    object.at("mask").get_to(verdict.mask);
    object.at("score").get_to(verdict.score);
    object.at("tripped").get_to(verdict.stopped);
    object.at("over").get_to(verdict.over);
    for (const Json &rule : object.at("rules")) {
        verdict.hits.push_back({s_name(rule, "name"), rule.at("kind").get<std::string>(),
                                rule.at("score").get<float>()});
    }
    object.at("limits").get_to(verdict.limits);
    object.at("reader").at("hiddenTextBytes").get_to(verdict.disguise.hiddenTextBytes);
    object.at("reader").at("invisibleCharacters").get_to(verdict.disguise.invisibleCharacters);
    object.at("stepLimited").get_to(verdict.stepLimited);
    object.at("ms").get_to(verdict.millis);
    return verdict;
}

ShownRuleSet s_ruleSetOf(const Json &object) {
    ShownRuleSet rules;
    object.at("loaded").get_to(rules.counts.loaded);
    object.at("active").get_to(rules.counts.active);
    object.at("refused").get_to(rules.counts.refused);
    object.at("duplicates").get_to(rules.counts.duplicates);
    object.at("version").get_to(rules.version);
    object.at("generation").get_to(rules.generation);
    object.at("engine").get_to(rules.engine);
    return rules;
}

// Calls take with the object; what the library throws becomes this system's error.
template <class Take>
auto s_parsed(const std::string &json, Take take) {
    try {
        return take(Json::parse(json));
    } catch (const Json::exception &failure) {
        throw std::runtime_error(std::string("this is no answer to a scan: ") + failure.what());
    }
}

} // namespace

bool ShownVerdict::isUndecided() const {
    return !over && std::find(limits.begin(), limits.end(), "budget") != limits.end();
}

ShownVerdict shown(const corvane::Verdict &verdict, float threshold) {
    ShownVerdict result;
    result.language = verdict.language();
    result.mask = verdict.mask();
    result.score = shownTotal(verdict, threshold);
    result.stopped = verdict.stopped();
    result.over = verdict.over();
    for (const corvane::Hit &hit : verdict.hits()) {
        result.hits.push_back({hit.name, std::string(corvane::kindName(hit.kind)), hit.score});
    }
    result.limits.assign(verdict.limits().begin(), verdict.limits().end());
    result.disguise = verdict.disguise();
    result.stepLimited = verdict.stepLimited();
    result.stepLimitedRules = verdict.stepLimitedRules();
    result.millis =
        std::chrono::duration<float, std::milli>(verdict.readingTime() + verdict.scanningTime())
            .count();
    return result;
}

ShownRuleSet shown(const corvane::RuleSet &rules) {
    return {rules.counts(), s_plainVersion(rules.version()), rules.generation(),
            std::string(corvane::engine())};
}

std::string jsonOf(const ShownVerdict &verdict, const ShownRuleSet &rules,
                   const MessageLabel &label) {
    Json object;
    object["version"] = kFormatVersion;
    if (!label.file.empty()) {
        setBytes(object, "file", label.file);
    }
    if (label.index > 0) {
        object["index"] = label.index;
    }
    if (label.error.empty()) {
        s_setVerdict(object, verdict, label.namesGivenUp);
    } else {
        object["error"] = label.error;
    }
    object["ruleset"] = s_ruleSet(rules);
    return s_rendered(object, Json::error_handler_t::replace);
}

std::string jsonOf(const ShownRuleSet &rules) {
    return s_rendered(s_ruleSet(rules), Json::error_handler_t::replace);
}

ScanReply scanReplyOf(const std::string &json) {
    return s_parsed(json, [](const Json &object) {
        if (object.at("version").get<unsigned int>() != kFormatVersion) {
            throw std::runtime_error("the answer has another format; use the command and the "
                                     "daemon of one version");
        }
        return ScanReply{s_verdictOf(object), s_ruleSetOf(object.at("ruleset"))};
    });
}

ShownRuleSet ruleSetOf(const std::string &json) {
    return s_parsed(json, [](const Json &object) { return s_ruleSetOf(object); });
}

} // namespace Corvane::Reporting
