#include "Difference.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

#include "CorpusError.h"

namespace Corvane::Corpus {

namespace {

using RuleKey = std::tuple<std::string, std::string, std::string>;

RuleKey s_key(const RuleStatistics &rule) {
    return {rule.name, rule.kind, rule.languages};
}

struct Message {
    std::int64_t id = 0;
    MessageKey key;
    std::string sha256;
    float total = 0.0F;
    std::string verdict;
};

// The messages of a result, by name.
class Messages {
public:
    explicit Messages(Result &result)
        : statement_(result.database(), "SELECT id, class, path, number, sha256, total, verdict "
                                        "FROM message ORDER BY class, path, number"),
          path_(result.path()) {}

    bool next(Message &message) {
        if (!statement_.step()) {
            return false;
        }
        int column = 0;
        message.id = statement_.integer(column++);
        message.key.category = statement_.text(column++);
        message.key.path = statement_.text(column++);
        message.key.number = static_cast<std::size_t>(statement_.integer(column++));
        message.sha256 = statement_.text(column++);
        message.total = static_cast<float>(statement_.real(column++));
        message.verdict = statement_.text(column);
        return true;
    }

private:
    Statement statement_;
    std::string path_;
};

class Comparing {
public:
    Comparing(Result &before, Result &after, const std::set<std::string> &toBeOver)
        : before_(before), after_(after), toBeOver_(toBeOver),
          hitsBefore_(before.database(), kHits), hitsAfter_(after.database(), kHits) {}

    Difference take() {
        requireOneCorpus();
        for (const std::string &name : Result::verdictSettings()) {
            const std::string one = before_.setting(name);
            const std::string two = after_.setting(name);
            if (one != two) {
                found_.settings.push_back({name, one, two});
            }
        }
        constexpr std::size_t kMost = 20;
        found_.before = statisticsOf(before_, toBeOver_, kMost);
        found_.after = statisticsOf(after_, toBeOver_, kMost);
        compareMessages();
        compareRules();
        return std::move(found_);
    }

private:
    static constexpr const char *kHits = "SELECT rule FROM hit WHERE message = ?";

    [[noreturn]] void refuse(const std::string &reason) const {
        throw CorpusError("'" + before_.path() + "' and '" + after_.path() + "' " + reason +
                          "; compare two runs over the same messages");
    }

    void requireOneCorpus() {
        if (before_.setting("corpus") != after_.setting("corpus")) {
            refuse("are of different corpora: the names or sizes of files differ");
        }
        if (before_.shardCount() != after_.shardCount() || before_.shards() != after_.shards()) {
            refuse("hold different shards");
        }
    }

    void compareMessages() {
        Messages one(before_);
        Messages two(after_);
        Message was;
        Message is;
        while (one.next(was)) {
            if (!two.next(is) || !(was.key == is.key) || was.sha256 != is.sha256) {
                refuse("do not have the same messages: see '" + was.key.path + "' of class '" +
                       was.key.category + "'");
            }
            ++found_.messages;
            if (was.verdict != is.verdict) {
                note(was, is);
            }
        }
    }

    void note(const Message &was, const Message &is) {
        if (was.verdict == "failed" || is.verdict == "failed") {
            ++found_.readByOne;
            return;
        }
        const bool isOver = is.verdict == "over";
        const bool isToBeOver = toBeOver_.count(is.key.category) != 0;
        if (isToBeOver) {
            ++(isOver ? found_.mendedMisses : found_.newMisses);
        } else {
            ++(isOver ? found_.newFalsePositives : found_.mendedFalsePositives);
        }
        VerdictChange change{is.key.category, is.key.path, is.key.number,        was.total,
                             is.total,        isOver,      isOver == isToBeOver, {}};
        std::map<RuleKey, HitChange> rules;
        hitsBefore_.with(was.id);
        while (hitsBefore_.step()) {
            const RuleStatistics &rule = found_.before.rules.at(numberOf(hitsBefore_));
            HitChange &hit = rules[s_key(rule)];
            hit.rule = rule.name;
            hit.before = rule.score;
            hit.wasHit = true;
        }
        hitsAfter_.with(is.id);
        while (hitsAfter_.step()) {
            const RuleStatistics &rule = found_.after.rules.at(numberOf(hitsAfter_));
            HitChange &hit = rules[s_key(rule)];
            hit.rule = rule.name;
            hit.after = rule.score;
            hit.isHit = true;
        }
        for (const auto &[key, hit] : rules) {
            if (hit.before != hit.after) {
                change.rules.push_back(hit);
            }
        }
        std::stable_sort(change.rules.begin(), change.rules.end(),
                         [](const HitChange &a, const HitChange &b) {
                             return std::abs(a.after - a.before) > std::abs(b.after - b.before);
                         });
        found_.verdicts.push_back(std::move(change));
    }

    static std::size_t numberOf(const Statement &hits) {
        return static_cast<std::size_t>(hits.integer(0));
    }

    void compareRules() {
        std::map<RuleKey, RuleChange> rules;
        for (const RuleStatistics &rule : found_.before.rules) {
            RuleChange &change = rules[s_key(rule)];
            std::tie(change.name, change.kind, change.languages) = s_key(rule);
            change.was = true;
            change.scoreBefore = rule.score;
            change.overBefore = rule.hitsToBeOver;
            change.underBefore = rule.hitsToBeUnder;
        }
        for (const RuleStatistics &rule : found_.after.rules) {
            RuleChange &change = rules[s_key(rule)];
            std::tie(change.name, change.kind, change.languages) = s_key(rule);
            change.is = true;
            change.scoreAfter = rule.score;
            change.overAfter = rule.hitsToBeOver;
            change.underAfter = rule.hitsToBeUnder;
        }
        for (const auto &[key, change] : rules) {
            if (change.was != change.is || change.scoreBefore != change.scoreAfter ||
                change.overBefore != change.overAfter || change.underBefore != change.underAfter) {
                found_.rules.push_back(change);
            }
        }
    }

    Result &before_;
    Result &after_;
    const std::set<std::string> &toBeOver_;
    Statement hitsBefore_;
    Statement hitsAfter_;
    Difference found_;
};

} // namespace

Difference differenceOf(Result &before, Result &after, const std::set<std::string> &toBeOver) {
    return Comparing(before, after, toBeOver).take();
}

} // namespace Corvane::Corpus
