#include "ConfigReader.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "Config.h"
#include "Text.h"

namespace Corvane::Milter {

namespace {

std::string s_number(double value) {
    std::ostringstream text;
    constexpr int kDigits = 12;
    text.precision(kDigits);
    text << value;
    return text.str();
}

std::string s_list(const std::vector<std::string> &words) {
    std::string list;
    for (const std::string &word : words) {
        list += (list.empty() ? "" : ", ") + word;
    }
    return list;
}

} // namespace

void Faults::add(const toml::source_region &place, const std::string &sentence) {
    faults_.push_back({place.begin.line, place.begin.column, sentence});
}

void Faults::raise() const {
    if (faults_.empty()) {
        return;
    }
    std::vector<Fault> sorted = faults_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Fault &left, const Fault &right) { return left.line < right.line; });
    std::string all;
    for (const Fault &fault : sorted) {
        all += (all.empty() ? "" : "\n") + file_ + ':' + std::to_string(fault.line) + ':' +
               std::to_string(fault.column) + ": " + escaped(fault.sentence, Charset::Utf8);
    }
    throw ConfigError(all);
}

TableReader::~TableReader() {
    if (table_ == nullptr) {
        return;
    }
    const std::vector<std::string> known(known_.begin(), known_.end());
    for (const auto &[key, node] : *table_) {
        const std::string name(key.str());
        if (known_.count(name) == 0) {
            faults_.add(key.source(), "unknown key '" + shown(name) + "'; there are " +
                                          s_list(known) + ", see corvane-milter.toml(5)");
        }
    }
}

std::string TableReader::shown(const std::string &key) const {
    return name_.empty() ? key : name_ + '.' + key;
}

const toml::node *TableReader::find(const std::string &key) {
    known_.insert(key);
    return table_ == nullptr ? nullptr : table_->get(key);
}

bool TableReader::has(const std::string &key) const {
    return table_ != nullptr && table_->contains(key);
}

void TableReader::refuse(const std::string &key, const std::string &sentence) {
    const toml::node *node = find(key);
    if (node != nullptr) {
        faults_.add(node->source(), shown(key) + ": " + sentence);
    }
}

void TableReader::flag(const std::string &key, bool &value) {
    const toml::node *node = find(key);
    if (node == nullptr) {
        return;
    }
    if (!node->is_boolean()) {
        refuse(key, "this is neither true nor false; write one of them, without quotes");
        return;
    }
    value = **node->as_boolean();
}

void TableReader::text(const std::string &key, std::string &value) {
    const toml::node *node = find(key);
    if (node == nullptr) {
        return;
    }
    if (!node->is_string()) {
        refuse(key, "this is no text; write it in quotes");
        return;
    }
    value = **node->as_string();
    if (value.find('\0') != std::string::npos) {
        refuse(key, "the text holds a NUL; take it out");
    }
}

void TableReader::texts(const std::string &key, std::vector<std::string> &value) {
    const toml::node *node = find(key);
    if (node == nullptr) {
        return;
    }
    const toml::array *array = node->as_array();
    if (array == nullptr || !(array->empty() || array->is_homogeneous<std::string>())) {
        refuse(key, "this is no list of texts; write [\"one\", \"other\"]");
        return;
    }
    value.clear();
    for (const toml::node &each : *array) {
        value.push_back(**each.as_string());
        if (value.back().find('\0') != std::string::npos) {
            refuse(key, "a text holds a NUL; take it out");
        }
    }
}

std::optional<double> TableReader::number(const std::string &key, const Range &range) {
    const toml::node *node = find(key);
    if (node == nullptr) {
        return {};
    }
    const std::optional<double> value =
        node->is_number() ? node->value<double>() : std::optional<double>();
    if (!value.has_value() || std::isnan(*value) || *value < range.least || *value > range.most) {
        refuse(key, "this is no number from " + s_number(range.least) + " to " +
                        s_number(range.most) + (*range.unit != '\0' ? " " : "") + range.unit +
                        "; write one, without quotes");
        return {};
    }
    return value;
}

void TableReader::number(const std::string &key, float &value, const Range &range) {
    if (const std::optional<double> read = number(key, range)) {
        value = static_cast<float>(*read);
    }
}

void TableReader::count(const std::string &key, unsigned int &value, const Range &range) {
    const std::optional<double> read = number(key, range);
    if (!read.has_value()) {
        return;
    }
    if (std::floor(*read) != *read) {
        refuse(key, "this is no whole number; write one");
        return;
    }
    value = static_cast<unsigned int>(*read);
}

std::optional<std::size_t> TableReader::word(const std::string &key,
                                             const std::vector<std::string> &words) {
    const toml::node *node = find(key);
    if (node == nullptr) {
        return {};
    }
    const auto found = node->is_string()
                           ? std::find(words.begin(), words.end(), **node->as_string())
                           : words.end();
    if (found == words.end()) {
        refuse(key, "this is none of the words it can be; write one of " + s_list(words) +
                        ", in quotes");
        return {};
    }
    return static_cast<std::size_t>(found - words.begin());
}

const toml::table *TableReader::table(const std::string &key) {
    const toml::node *node = find(key);
    if (node != nullptr && !node->is_table()) {
        refuse(key, "this is no table; write its keys below a line [" + shown(key) + "]");
    }
    return node == nullptr ? nullptr : node->as_table();
}

std::vector<const toml::table *> TableReader::tables(const std::string &key) {
    const toml::node *node = find(key);
    std::vector<const toml::table *> tables;
    if (node == nullptr) {
        return tables;
    }
    const toml::array *array = node->as_array();
    if (array == nullptr || !(array->empty() || array->is_homogeneous<toml::table>())) {
        refuse(key, "this is no list of tables; write the keys of each below a line [[" +
                        shown(key) + "]]");
        return tables;
    }
    for (const toml::node &each : *array) {
        tables.push_back(each.as_table());
    }
    return tables;
}

} // namespace Corvane::Milter
