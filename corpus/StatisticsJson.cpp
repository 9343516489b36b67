#include "StatisticsJson.h"

#include <nlohmann/json.hpp>

#include "report/JsonBytes.h"

namespace Corvane::Corpus {

namespace {

using Json = nlohmann::ordered_json;
using Reporting::setBytes;

constexpr unsigned int kFormat = 1;

// With no more digits than a score has.
Json s_score(float score) {
    return Json::parse(nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                            std::int64_t, std::uint64_t, float>(score)
                           .dump());
}

std::string s_dump(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

Json s_settings(Result &result) {
    Json json;
    setBytes(json, "result", result.path());
    for (const std::string &name : Result::verdictSettings()) {
        json[name] = result.setting(name);
    }
    return json;
}

Json s_class(const ClassStatistics &each) {
    Json json;
    setBytes(json, "name", each.name);
    json["toBeOver"] = each.isToBeOver;
    json["messages"] = each.messages;
    json["over"] = each.over;
    json["failed"] = each.failed;
    json["meanMilliseconds"] = each.meanMilliseconds;
    json["histogram"] = each.histogram;
    return json;
}

Json s_rule(const RuleStatistics &each) {
    Json json;
    setBytes(json, "name", each.name);
    json["kind"] = each.kind;
    json["languages"] = each.languages;
    setBytes(json, "file", each.file);
    json["line"] = each.line;
    json["score"] = s_score(each.score);
    json["active"] = each.isActive;
    setBytes(json, "description", each.description);
    json["hits"] = each.hits;
    json["toBeOver"] = each.hitsToBeOver;
    json["toBeUnder"] = each.hitsToBeUnder;
    json["precision"] = each.precision();
    json["decided"] = each.decided;
    json["tries"] = each.tries;
    json["bytes"] = each.bytes;
    json["limited"] = each.limited;
    json["nanoseconds"] = each.nanoseconds;
    return json;
}

Json s_curve(const Statistics &statistics) {
    Json curve = Json::array();
    for (const CurvePoint &point : statistics.curve) {
        Json each;
        each["threshold"] = s_score(static_cast<float>(point.threshold));
        each["falsePositives"] = point.falsePositives;
        each["misses"] = point.misses;
        curve.push_back(std::move(each));
    }
    return curve;
}

Json s_summary(const Statistics &statistics) {
    Json json;
    json["threshold"] = s_score(static_cast<float>(statistics.threshold));
    json["toBeOver"] = statistics.toBeOver;
    json["toBeUnder"] = statistics.toBeUnder;
    json["falsePositives"] = statistics.falsePositives;
    json["misses"] = statistics.misses;
    json["histogram"] = {{"first", statistics.histogram.first},
                         {"width", statistics.histogram.width},
                         {"steps", statistics.histogram.steps}};
    json["classes"] = Json::array();
    for (const ClassStatistics &each : statistics.classes) {
        json["classes"].push_back(s_class(each));
    }
    json["curve"] = s_curve(statistics);
    return json;
}

Json s_overlaps(const Statistics &statistics) {
    Json overlaps = Json::array();
    for (const Overlap &overlap : statistics.overlaps) {
        Json each;
        setBytes(each, "one", statistics.rules[overlap.one].name);
        setBytes(each, "two", statistics.rules[overlap.two].name);
        each["both"] = overlap.both;
        each["jaccard"] = overlap.jaccard;
        overlaps.push_back(std::move(each));
    }
    return overlaps;
}

template <class Message>
Json s_name(const Message &message) {
    Json json;
    setBytes(json, "class", message.category);
    setBytes(json, "path", message.path);
    json["number"] = message.number;
    return json;
}

Json s_verdict(const VerdictChange &change) {
    Json json = s_name(change);
    json["before"] = s_score(change.before);
    json["after"] = s_score(change.after);
    json["over"] = change.isOver;
    json["right"] = change.isRight;
    json["rules"] = Json::array();
    for (const HitChange &hit : change.rules) {
        Json each;
        setBytes(each, "name", hit.rule);
        each["before"] = hit.wasHit ? s_score(hit.before) : Json();
        each["after"] = hit.isHit ? s_score(hit.after) : Json();
        json["rules"].push_back(std::move(each));
    }
    return json;
}

Json s_rule(const RuleChange &change) {
    Json json;
    setBytes(json, "name", change.name);
    json["kind"] = change.kind;
    json["languages"] = change.languages;
    json["scoreBefore"] = change.was ? s_score(change.scoreBefore) : Json();
    json["scoreAfter"] = change.is ? s_score(change.scoreAfter) : Json();
    json["toBeOver"] = {change.overBefore, change.overAfter};
    json["toBeUnder"] = {change.underBefore, change.underAfter};
    return json;
}

} // namespace

std::string toJson(Result &result, const Statistics &statistics) {
    Json json;
    json["format"] = kFormat;
    json["settings"] = s_settings(result);
    json.update(s_summary(statistics));
    json["rules"] = Json::array();
    for (const RuleStatistics &each : statistics.rules) {
        json["rules"].push_back(s_rule(each));
    }
    json["overlaps"] = s_overlaps(statistics);
    json["nearest"] = Json::array();
    for (const NearMessage &each : statistics.nearest) {
        Json message = s_name(each);
        message["total"] = s_score(each.total);
        message["over"] = each.isOver;
        message["right"] = each.isRight;
        json["nearest"].push_back(std::move(message));
    }
    return s_dump(json);
}

std::string toJson(Result &before, Result &after, const Difference &difference) {
    Json json;
    json["format"] = kFormat;
    json["settings"] = {s_settings(before), s_settings(after)};
    json["differing"] = Json::array();
    for (const SettingChange &change : difference.settings) {
        json["differing"].push_back(change.name);
    }
    json["messages"] = difference.messages;
    json["newFalsePositives"] = difference.newFalsePositives;
    json["mendedFalsePositives"] = difference.mendedFalsePositives;
    json["newMisses"] = difference.newMisses;
    json["mendedMisses"] = difference.mendedMisses;
    json["readByOne"] = difference.readByOne;
    json["verdicts"] = Json::array();
    for (const VerdictChange &change : difference.verdicts) {
        json["verdicts"].push_back(s_verdict(change));
    }
    json["rules"] = Json::array();
    for (const RuleChange &change : difference.rules) {
        json["rules"].push_back(s_rule(change));
    }
    json["before"] = s_summary(difference.before);
    json["after"] = s_summary(difference.after);
    return s_dump(json);
}

} // namespace Corvane::Corpus
