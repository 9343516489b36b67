#ifndef CORVANE_CORPUS_RESULT_H
#define CORVANE_CORPUS_RESULT_H

// What a rule set has made of a corpus, the result of a run: one file of SQLite's, with a row for each
// message and its hits, which docs/corpus.md describes.
//
// Threads: one at a time.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Database.h"
#include "corvane/Rule.h"
#include "corvane/RuleProfile.h"

namespace Corvane::Corpus {

// What names a message: the same on every machine that has the corpus.
struct MessageKey {
    std::string category;   // its class
    std::string path;       // below the root of the class
    std::size_t number = 0; // in an mbox, from 1; 0 for a file that is one message

    bool operator==(const MessageKey &other) const {
        return category == other.category && path == other.path && number == other.number;
    }
};

// In 64 hexadecimal digits.
std::string digestOf(const MessageKey &key);

// A part of a corpus: those messages whose digest, as a number, leaves the remainder index - 1.
struct Shard {
    unsigned int index = 1;
    unsigned int count = 1;

    bool holds(const MessageKey &key) const;
};

struct MessageRow {
    MessageKey key;
    std::string sha256;
    std::size_t bytes = 0;
    std::string language;
    float total = 0.0F;
    std::string verdict; // "over", "under" or "failed"
    std::string limits;  // names with commas between them
    std::string failure; // why it could not be read or scanned
    std::int64_t nanoseconds = 0;
    // Places of rules in the set, in ascending order.
    std::vector<std::size_t> hits;
};

// What must be equal for the messages of two results to be compared, or put into one: the name of
// each setting and its value, all text.
using Settings = std::map<std::string, std::string>;

class Result {
public:
    // The settings that decide verdicts, and those that say of what corpus a result is.
    static const std::vector<std::string> &verdictSettings();
    static const std::vector<std::string> &corpusSettings();

    // What a setting is called in messages.
    static std::string called(const std::string &setting);

    // A new file without anything.
    static Result createEmpty(const std::string &path);

    // A new file with the rules of a set, and no messages. settings: all of those above.
    static Result create(const std::string &path, const Settings &settings,
                         const std::vector<corvane::Rule> &rules, const Shard &shard);

    // A file that is there. Throws CorpusError where it is no result; reading, for one that is not
    // complete too.
    static Result open(const std::string &path, Database::Mode mode);

    Database &database() { return *database_; }
    const std::string &path() const { return database_->path(); }

    // Says that it is complete, and closes the file. The object is of no use then.
    void complete();

    std::string setting(const std::string &name);
    void set(const std::string &name, const std::string &value);

    // The shards that it has, of shardCount().
    std::set<unsigned int> shards();
    unsigned int shardCount();

    // How many rules it knows of.
    std::size_t ruleCount();

private:
    explicit Result(std::unique_ptr<Database> database);
    void requireFormat();

    std::unique_ptr<Database> database_;
};

// Throws CorpusError where there is something of that name.
void requireNew(const std::string &path);

// A result on its way to be complete: it has another name until then, under which a later process can
// go on with it.
class GrowingResult {
public:
    // The name of the file that is going to be path.
    static std::string partialName(const std::string &path);

    // Goes on with what is there of the result, which must be of the same settings and shard, and
    // otherwise begins it. Throws CorpusError where the result is there and complete, and where
    // what is there of it is something else.
    GrowingResult(const std::string &path, const Settings &settings,
                  const std::vector<corvane::Rule> &rules, const Shard &shard);

    Result &result() { return result_; }

    // Adds messages, with what the rules have cost on them, as a whole: all or, where the process
    // ends meanwhile, nothing. Throws CorpusError for a message that is there already.
    void add(const std::vector<MessageRow> &messages, const std::vector<corvane::RuleCost> &costs);

    // How many messages it has, and the one that was added last; none where there is none.
    std::size_t size();
    std::optional<MessageKey> last();

    // Gives the result its name. Nothing can be added then.
    void finish();

private:
    void addCosts(const std::vector<corvane::RuleCost> &costs);

    std::string path_;
    Shard shard_;
    Result result_;
};

} // namespace Corvane::Corpus

#endif
