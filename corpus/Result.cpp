#include "Result.h"

#include <charconv>
#include <filesystem>
#include <system_error>

#include "CorpusError.h"
#include "host/crypto/Digest.h"

namespace Corvane::Corpus {

namespace {

// What the file says it is: "Corv", and the number of its format.
constexpr std::int64_t kApplication = 0x436f7276;
constexpr std::int64_t kFormat = 1;

constexpr const char *kSchema = R"(
CREATE TABLE run (name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE rule (
  id INTEGER PRIMARY KEY, name TEXT NOT NULL, languages TEXT NOT NULL, kind TEXT NOT NULL,
  file TEXT NOT NULL, line INTEGER NOT NULL, score REAL NOT NULL, active INTEGER NOT NULL,
  description TEXT NOT NULL);
CREATE TABLE message (
  id INTEGER PRIMARY KEY, class TEXT NOT NULL, path TEXT NOT NULL, number INTEGER NOT NULL,
  sha256 TEXT NOT NULL, bytes INTEGER NOT NULL, language TEXT NOT NULL, total REAL NOT NULL,
  verdict TEXT NOT NULL, limits TEXT NOT NULL, failure TEXT NOT NULL,
  nanoseconds INTEGER NOT NULL, UNIQUE (class, path, number));
CREATE TABLE hit (
  message INTEGER NOT NULL, rule INTEGER NOT NULL, PRIMARY KEY (message, rule)) WITHOUT ROWID;
CREATE TABLE shard (number INTEGER PRIMARY KEY);
CREATE TABLE shard_cost (
  shard INTEGER NOT NULL, rule INTEGER NOT NULL, tries INTEGER NOT NULL, bytes INTEGER NOT NULL,
  limited INTEGER NOT NULL, nanoseconds INTEGER NOT NULL, PRIMARY KEY (shard, rule)) WITHOUT ROWID;
CREATE VIEW cost AS
  SELECT rule.id AS rule, coalesce(sum(tries), 0) AS tries, coalesce(sum(bytes), 0) AS bytes,
    coalesce(sum(limited), 0) AS limited, coalesce(sum(nanoseconds), 0) AS nanoseconds
  FROM rule LEFT JOIN shard_cost ON shard_cost.rule = rule.id GROUP BY rule.id;
)";

std::string s_languages(const corvane::Rule &rule) {
    std::string names;
    for (const std::string_view language : rule.languages) {
        names += names.empty() ? "" : ",";
        names += language;
    }
    return names;
}

void s_addRules(Database &database, const std::vector<corvane::Rule> &rules) {
    Statement insert(database, "INSERT INTO rule VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    std::size_t id = 0;
    for (const corvane::Rule &rule : rules) {
        insert
            .with(id++, rule.name, s_languages(rule), kindName(rule.kind), rule.file, rule.line,
                  rule.score, rule.active, rule.description)
            .run();
    }
}

// The first setting of these in which a result is unlike what is wanted; "" where none is.
std::string s_difference(Result &result, const Settings &wanted) {
    for (const auto &[name, value] : wanted) {
        if (result.setting(name) != value) {
            return name;
        }
    }
    return {};
}

// A process that ended while it made the file has left nothing in it.
void s_removeUnborn(const std::string &partial) {
    if (std::filesystem::exists(partial)) {
        Database database(partial, Database::Mode::Write);
        const bool hasTables = database.integer("SELECT count(*) FROM sqlite_master") > 0;
        if (hasTables && database.integer("PRAGMA application_id") != kApplication) {
            return;
        }
        if (hasTables && database.integer("SELECT count(*) FROM run") > 0) {
            return;
        }
        database.close();
        std::filesystem::remove(partial);
    }
}

Result s_begun(const std::string &path, const Settings &settings,
               const std::vector<corvane::Rule> &rules, const Shard &shard) {
    const std::string partial = GrowingResult::partialName(path);
    requireNew(path);
    s_removeUnborn(partial);
    if (!std::filesystem::exists(partial)) {
        return Result::create(partial, settings, rules, shard);
    }
    Result result = Result::open(partial, Database::Mode::Write);
    const std::string difference =
        result.shardCount() != shard.count || result.shards().count(shard.index) == 0
            ? "shard"
            : s_difference(result, settings);
    if (!difference.empty()) {
        throw CorpusError("'" + partial + "' was begun with another " + Result::called(difference) +
                          "; go on with that, or remove the file to begin anew");
    }
    return result;
}

} // namespace

std::string digestOf(const MessageKey &key) {
    Crypto::Digest digest;
    const std::string_view end("\0", 1);
    digest.add(key.category);
    digest.add(end);
    digest.add(key.path);
    digest.add(end);
    digest.add(std::to_string(key.number));
    return digest.hex();
}

bool Shard::holds(const MessageKey &key) const {
    constexpr int kBase = 16;
    constexpr std::size_t kDigits = 15;
    if (count == 1) {
        return true;
    }
    const std::string digest = digestOf(key);
    std::uint64_t number = 0;
    std::from_chars(digest.data(), digest.data() + kDigits, number, kBase);
    return number % count == index - 1;
}

const std::vector<std::string> &Result::verdictSettings() {
    static const std::vector<std::string> s_names = {"engine",  "generation", "threshold",
                                                     "percent", "stop",       "limits"};
    return s_names;
}

const std::vector<std::string> &Result::corpusSettings() {
    static const std::vector<std::string> s_names = {"corpus", "classes"};
    return s_names;
}

Result::Result(std::unique_ptr<Database> database) : database_(std::move(database)) {}

std::string Result::called(const std::string &setting) {
    return setting == "generation" ? "rule set"
           : setting == "shards"   ? "number of shards"
                                   : setting;
}

Result Result::createEmpty(const std::string &path) {
    Result result(std::make_unique<Database>(path, Database::Mode::Create));
    Transaction transaction(result.database());
    result.database().run("PRAGMA application_id = " + std::to_string(kApplication) +
                          "; PRAGMA user_version = " + std::to_string(kFormat));
    result.database().run(kSchema);
    transaction.commit();
    return result;
}

Result Result::create(const std::string &path, const Settings &settings,
                      const std::vector<corvane::Rule> &rules, const Shard &shard) {
    Result result = createEmpty(path);
    Database &database = result.database();
    Transaction transaction(database);
    for (const auto &[name, value] : settings) {
        result.set(name, value);
    }
    result.set("shards", std::to_string(shard.count));
    Statement(database, "INSERT INTO shard VALUES (?)").with(shard.index).run();
    s_addRules(database, rules);
    result.set("complete", "no");
    transaction.commit();
    return result;
}

Result Result::open(const std::string &path, Database::Mode mode) {
    Result result(std::make_unique<Database>(path, mode));
    result.requireFormat();
    if (mode == Database::Mode::Read && result.setting("complete") != "yes") {
        throw CorpusError("'" + path +
                          "' is not complete; give the command that began it once again");
    }
    return result;
}

void Result::requireFormat() {
    if (database_->integer("PRAGMA application_id") != kApplication) {
        throw CorpusError("'" + path() + "' is no result of 'corvane corpus run'");
    }
    const std::int64_t format = database_->integer("PRAGMA user_version");
    if (format != kFormat) {
        throw CorpusError("'" + path() + "' has format " + std::to_string(format) +
                          ", and this program reads " + std::to_string(kFormat) +
                          "; use the version that wrote it, or run the corpus anew");
    }
}

std::string Result::setting(const std::string &name) {
    Statement statement(*database_, "SELECT value FROM run WHERE name = ?");
    statement.with(name);
    std::string value;
    while (statement.step()) {
        value = statement.text(0);
    }
    return value;
}

void Result::set(const std::string &name, const std::string &value) {
    Statement(*database_, "INSERT OR REPLACE INTO run VALUES (?, ?)").with(name, value).run();
}

std::set<unsigned int> Result::shards() {
    std::set<unsigned int> numbers;
    Statement statement(*database_, "SELECT number FROM shard");
    while (statement.step()) {
        numbers.insert(static_cast<unsigned int>(statement.integer(0)));
    }
    return numbers;
}

unsigned int Result::shardCount() {
    const std::string text = setting("shards");
    unsigned int count = 1;
    std::from_chars(text.data(), text.data() + text.size(), count);
    return count;
}

std::size_t Result::ruleCount() {
    return static_cast<std::size_t>(database_->integer("SELECT count(*) FROM rule"));
}

void Result::complete() {
    set("complete", "yes");
    database_->close();
}

void requireNew(const std::string &path) {
    std::error_code ignored;
    if (std::filesystem::exists(path, ignored)) {
        throw CorpusError("'" + path + "' is there already; remove it or give another name");
    }
}

std::string GrowingResult::partialName(const std::string &path) {
    return path + ".partial";
}

GrowingResult::GrowingResult(const std::string &path, const Settings &settings,
                             const std::vector<corvane::Rule> &rules, const Shard &shard)
    : path_(path), shard_(shard), result_(s_begun(path, settings, rules, shard)) {}

void GrowingResult::add(const std::vector<MessageRow> &messages,
                        const std::vector<corvane::RuleCost> &costs) {
    Database &database = result_.database();
    Transaction transaction(database);
    Statement known(database, "SELECT 1 FROM message WHERE class = ? AND path = ? AND number = ?");
    Statement insert(database, "INSERT INTO message VALUES "
                               "(NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    Statement hit(database, "INSERT INTO hit VALUES (?, ?)");
    for (const MessageRow &row : messages) {
        bool isKnown = false;
        known.with(row.key.category, row.key.path, row.key.number);
        while (known.step()) {
            isKnown = true;
        }
        if (isKnown) {
            throw CorpusError("class '" + row.key.category + "' has two messages '" + row.key.path +
                              "'; put its messages below one directory, or make classes of them");
        }
        insert
            .with(row.key.category, row.key.path, row.key.number, row.sha256, row.bytes,
                  row.language, row.total, row.verdict, row.limits, row.failure, row.nanoseconds)
            .run();
        const std::int64_t message = database.lastRow();
        for (const std::size_t rule : row.hits) {
            hit.with(message, rule).run();
        }
    }
    addCosts(costs);
    transaction.commit();
}

void GrowingResult::addCosts(const std::vector<corvane::RuleCost> &costs) {
    Statement add(result_.database(),
                  "INSERT INTO shard_cost VALUES (?, ?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET "
                  "tries = tries + excluded.tries, bytes = bytes + excluded.bytes, "
                  "limited = limited + excluded.limited, "
                  "nanoseconds = nanoseconds + excluded.nanoseconds");
    for (std::size_t rule = 0; rule < costs.size(); ++rule) {
        const corvane::RuleCost &cost = costs[rule];
        if (cost.tries > 0) {
            add.with(shard_.index, rule, cost.tries, cost.bytes, cost.stepLimited,
                     cost.time.count())
                .run();
        }
    }
}

std::size_t GrowingResult::size() {
    return static_cast<std::size_t>(result_.database().integer("SELECT count(*) FROM message"));
}

std::optional<MessageKey> GrowingResult::last() {
    Statement statement(result_.database(),
                        "SELECT class, path, number FROM message ORDER BY id DESC LIMIT 1");
    std::optional<MessageKey> key;
    while (statement.step()) {
        key = MessageKey{std::string(statement.text(0)), std::string(statement.text(1)),
                         static_cast<std::size_t>(statement.integer(2))};
    }
    return key;
}

void GrowingResult::finish() {
    result_.complete();
    std::error_code error;
    std::filesystem::rename(partialName(path_), path_, error);
    if (error) {
        throw CorpusError("cannot give '" + partialName(path_) + "' the name '" + path_ +
                          "': " + error.message());
    }
}

} // namespace Corvane::Corpus
