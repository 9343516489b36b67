#include "Export.h"

#include <nlohmann/json.hpp>

#include "report/JsonBytes.h"

namespace Corvane::Corpus {

namespace {

// Floats, so that a score is written with no more digits than tell it from others.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

constexpr unsigned int kFormat = 1;

void s_write(std::ostream &out, const Json &object) {
    out << object.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

Json s_list(std::string_view text) {
    Json list = Json::array();
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(','), text.size());
        list.push_back(std::string(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return list;
}

void s_writeSettings(Result &result, std::ostream &out) {
    Json object;
    object["format"] = kFormat;
    for (const std::string &name : Result::verdictSettings()) {
        object[name] = result.setting(name);
    }
    for (const std::string &name : Result::corpusSettings()) {
        Reporting::setBytes(object, name, result.setting(name));
    }
    s_write(out, object);
}

void s_writeRules(Result &result, std::ostream &out, bool times) {
    Statement rules(result.database(),
                    "SELECT id, name, kind, languages, file, line, score, active, description, "
                    "tries, bytes, limited, nanoseconds FROM rule JOIN cost ON cost.rule = rule.id "
                    "ORDER BY id");
    while (rules.step()) {
        int column = 0;
        Json object;
        object["rule"] = rules.integer(column++);
        Reporting::setBytes(object, "name", std::string(rules.text(column++)));
        object["kind"] = std::string(rules.text(column++));
        object["languages"] = s_list(rules.text(column++));
        Reporting::setBytes(object, "file", std::string(rules.text(column++)));
        object["line"] = rules.integer(column++);
        object["score"] = static_cast<float>(rules.real(column++));
        object["active"] = rules.integer(column++) != 0;
        Reporting::setBytes(object, "description", std::string(rules.text(column++)));
        for (const char *name : {"tries", "bytes", "limited"}) {
            object[name] = rules.integer(column++);
        }
        if (times) {
            object["nanoseconds"] = rules.integer(column);
        }
        s_write(out, object);
    }
}

void s_writeMessages(Result &result, std::ostream &out, bool times) {
    Statement messages(result.database(),
                       "SELECT id, class, path, number, sha256, bytes, language, total, verdict, "
                       "limits, failure, nanoseconds FROM message ORDER BY class, path, number");
    Statement hits(result.database(), "SELECT rule FROM hit WHERE message = ? ORDER BY rule");
    while (messages.step()) {
        int column = 0;
        Json object;
        hits.with(messages.integer(column++));
        Reporting::setBytes(object, "class", std::string(messages.text(column++)));
        Reporting::setBytes(object, "path", std::string(messages.text(column++)));
        object["number"] = messages.integer(column++);
        object["sha256"] = std::string(messages.text(column++));
        object["bytes"] = messages.integer(column++);
        object["language"] = std::string(messages.text(column++));
        object["total"] = static_cast<float>(messages.real(column++));
        object["verdict"] = std::string(messages.text(column++));
        object["limits"] = s_list(messages.text(column++));
        const std::string failure(messages.text(column++));
        if (!failure.empty()) {
            Reporting::setBytes(object, "failure", failure);
        }
        object["hits"] = Json::array();
        while (hits.step()) {
            object["hits"].push_back(hits.integer(0));
        }
        if (times) {
            object["nanoseconds"] = messages.integer(column);
        }
        s_write(out, object);
    }
}

} // namespace

void exportResult(Result &result, std::ostream &out, bool times) {
    s_writeSettings(result, out);
    s_writeRules(result, out, times);
    s_writeMessages(result, out, times);
}

} // namespace Corvane::Corpus
