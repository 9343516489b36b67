#include "Merge.h"

#include <filesystem>
#include <system_error>

#include "CorpusError.h"
#include "Result.h"

namespace Corvane::Corpus {

namespace {

// The file of a merge that is not done, which goes with it.
class Scratch {
public:
    explicit Scratch(std::string path) : path_(std::move(path)) { remove(); }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    ~Scratch() { remove(); }

    const std::string &path() const { return path_; }

private:
    void remove() const {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
        std::filesystem::remove(path_ + "-journal", ignored);
    }

    std::string path_;
};

void s_requireSame(Result &first, Result &other) {
    std::vector<std::string> names = Result::verdictSettings();
    names.insert(names.end(), Result::corpusSettings().begin(), Result::corpusSettings().end());
    names.emplace_back("shards");
    for (const std::string &name : names) {
        const std::string one = first.setting(name);
        const std::string two = other.setting(name);
        if (one != two) {
            throw CorpusError("'" + first.path() + "' and '" + other.path() + "' differ in " +
                              Result::called(name) + ": " + one + " and " + two +
                              "; merge the shards of one run");
        }
    }
}

// What of a shard is there already must be the same.
void s_requireSameMessages(Database &merged, const std::string &input) {
    const std::int64_t different = merged.integer(
        "SELECT count(*) FROM part.message AS p JOIN main.message AS m USING (class, path, number) "
        "WHERE p.sha256 <> m.sha256 OR p.total <> m.total OR p.verdict <> m.verdict");
    if (different > 0) {
        throw CorpusError("'" + input +
                          "' has other messages than the results before it, by the "
                          "names of theirs: " +
                          std::to_string(different) + "; merge results of one corpus");
    }
}

void s_take(Database &merged, bool isFirst) {
    if (isFirst) {
        merged.run("INSERT INTO main.run SELECT * FROM part.run;"
                   "UPDATE main.run SET value = 'no' WHERE name = 'complete';"
                   "INSERT INTO main.rule SELECT * FROM part.rule");
    }
    merged.run("INSERT INTO main.message SELECT NULL, class, path, number, sha256, bytes, "
               "language, total, verdict, limits, failure, nanoseconds FROM part.message AS p "
               "WHERE NOT EXISTS (SELECT 1 FROM main.message AS m WHERE m.class = p.class AND "
               "m.path = p.path AND m.number = p.number) ORDER BY p.id;"
               "INSERT OR IGNORE INTO main.hit SELECT m.id, h.rule FROM part.hit AS h JOIN "
               "part.message AS p ON p.id = h.message JOIN main.message AS m ON m.class = p.class "
               "AND m.path = p.path AND m.number = p.number;"
               "INSERT OR IGNORE INTO main.shard_cost SELECT * FROM part.shard_cost;"
               "INSERT OR IGNORE INTO main.shard SELECT * FROM part.shard");
}

} // namespace

void merge(const std::string &out, const std::vector<std::string> &inputs) {
    requireNew(out);
    const Scratch scratch(out + ".merging");
    Result merged = Result::createEmpty(scratch.path());
    Database &database = merged.database();
    Result first = Result::open(inputs.front(), Database::Mode::Read);
    for (std::size_t each = 0; each < inputs.size(); ++each) {
        {
            Result part = Result::open(inputs[each], Database::Mode::Read);
            s_requireSame(first, part);
        }
        Statement(database, "ATTACH ? AS part").with(inputs[each]).run();
        Transaction transaction(database);
        s_requireSameMessages(database, inputs[each]);
        s_take(database, each == 0);
        transaction.commit();
        database.run("DETACH part");
    }
    merged.complete();
    std::filesystem::rename(scratch.path(), out);
}

} // namespace Corvane::Corpus
