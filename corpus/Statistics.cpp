#include "Statistics.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <unordered_map>

#include "CorpusError.h"
#include "host/parser/Text.h"

namespace Corvane::Corpus {

namespace {

// Overlaps are looked for among so many rules, those that hit most: what a table of all pairs of
// thousands would hold, no one reads.
constexpr std::size_t kMostPaired = 400;
constexpr std::size_t kMostSteps = 60;
constexpr std::size_t kMostCurvePoints = 1000;

constexpr const char *kOverNames[] = {"spam", "phish", "scam", "junk", "malware", "virus"};

struct Message {
    std::size_t category;
    float total;
    bool isOver;
};

std::vector<std::string> s_classes(Result &result) {
    std::vector<std::string> names;
    Statement statement(result.database(), "SELECT DISTINCT class FROM message ORDER BY class");
    while (statement.step()) {
        names.emplace_back(statement.text(0));
    }
    return names;
}

bool s_saysOver(const std::string &name) {
    return std::any_of(std::begin(kOverNames), std::end(kOverNames),
                       [&name](const char *start) { return name.rfind(start, 0) == 0; });
}

// A width such as 0.5, 1, 2 or 5, by which the range takes no more steps than that.
double s_width(double range, std::size_t steps) {
    constexpr double kNice[] = {1.0, 2.0, 5.0, 10.0};
    const double least = std::max(range / static_cast<double>(steps), 0.1);
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    const double *found = std::find_if(std::begin(kNice), std::end(kNice),
                                       [&](double nice) { return nice * power >= least * 0.999; });
    return (found != std::end(kNice) ? *found : kNice[3]) * power;
}

// The hits of all messages, one message at a time.
template <class Take>
void s_eachHits(Result &result, Take take) {
    Statement statement(result.database(), "SELECT message, rule FROM hit ORDER BY message, rule");
    std::vector<std::size_t> rules;
    std::int64_t message = 0;
    while (statement.step()) {
        if (statement.integer(0) != message && !rules.empty()) {
            take(message, rules);
            rules.clear();
        }
        message = statement.integer(0);
        rules.push_back(static_cast<std::size_t>(statement.integer(1)));
    }
    if (!rules.empty()) {
        take(message, rules);
    }
}

class Counting {
public:
    Counting(Result &result, const std::set<std::string> &toBeOver, std::size_t most)
        : result_(result), most_(most) {
        for (const std::string &name : s_classes(result)) {
            numbers_.emplace(name, statistics_.classes.size());
            ClassStatistics each;
            each.name = name;
            each.isToBeOver = toBeOver.count(name) != 0;
            statistics_.classes.push_back(each);
        }
        statistics_.threshold = std::stod(result.setting("threshold"));
    }

    Statistics take() {
        readMessages();
        fillHistogram();
        fillCurve();
        readRules();
        readHits();
        pair();
        findNearest();
        return std::move(statistics_);
    }

private:
    bool isToBeOver(const Message &message) const {
        return statistics_.classes[message.category].isToBeOver;
    }

    void readMessages() {
        Statement statement(result_.database(),
                            "SELECT id, class, total, verdict, nanoseconds FROM message");
        while (statement.step()) {
            const std::size_t category = numbers_.at(std::string(statement.text(1)));
            ClassStatistics &counted = statistics_.classes[category];
            const std::string_view verdict = statement.text(3);
            if (verdict == "failed") {
                ++counted.failed;
                continue;
            }
            const Message message{category, static_cast<float>(statement.real(2)),
                                  verdict == "over"};
            messages_.emplace(statement.integer(0), message);
            ++counted.messages;
            counted.over += message.isOver ? 1U : 0U;
            constexpr double kNanoseconds = 1e6;
            counted.meanMilliseconds += static_cast<double>(statement.integer(4)) / kNanoseconds;
        }
        for (ClassStatistics &each : statistics_.classes) {
            each.meanMilliseconds /= static_cast<double>(std::max<std::size_t>(each.messages, 1));
            (each.isToBeOver ? statistics_.toBeOver : statistics_.toBeUnder) += each.messages;
            (each.isToBeOver ? statistics_.misses : statistics_.falsePositives) +=
                each.isToBeOver ? each.messages - each.over : each.over;
        }
    }

    // The outermost hundredths of the messages do not stretch it.
    void fillHistogram() {
        constexpr std::size_t kTail = 200;
        std::vector<float> totals;
        for (const auto &[id, message] : messages_) {
            totals.push_back(message.total);
        }
        std::sort(totals.begin(), totals.end());
        const std::size_t cut = totals.size() / kTail;
        const double low = totals.empty() ? 0.0 : std::min(0.0, double{totals[cut]});
        const double high = totals.empty() ? 1.0
                                           : std::max(statistics_.threshold + 1.0,
                                                      double{totals[totals.size() - 1 - cut]});
        Histogram &histogram = statistics_.histogram;
        histogram.width = s_width(high - low, kMostSteps);
        histogram.first = std::floor(low / histogram.width) * histogram.width;
        histogram.steps =
            static_cast<std::size_t>(std::ceil((high - histogram.first) / histogram.width)) + 1;
        for (ClassStatistics &each : statistics_.classes) {
            each.histogram.resize(histogram.steps);
        }
        for (const auto &[id, message] : messages_) {
            const double place =
                std::floor((double{message.total} - histogram.first) / histogram.width);
            const double last = static_cast<double>(histogram.steps - 1);
            ++statistics_.classes[message.category]
                  .histogram[static_cast<std::size_t>(std::clamp(place, 0.0, last))];
        }
    }

    void fillCurve() {
        std::vector<float> over;
        std::vector<float> under;
        for (const auto &[id, message] : messages_) {
            (isToBeOver(message) ? over : under).push_back(message.total);
        }
        statistics_.curve = curveOf(std::move(over), std::move(under), statistics_.threshold);
    }

    void readRules() {
        Statement statement(result_.database(),
                            "SELECT id, name, kind, languages, file, line, score, active, "
                            "description, tries, bytes, limited, nanoseconds FROM rule JOIN cost "
                            "ON cost.rule = rule.id ORDER BY id");
        while (statement.step()) {
            int column = 0;
            RuleStatistics rule;
            rule.id = static_cast<std::size_t>(statement.integer(column++));
            rule.name = statement.text(column++);
            rule.kind = statement.text(column++);
            rule.languages = statement.text(column++);
            rule.file = statement.text(column++);
            rule.line = static_cast<std::size_t>(statement.integer(column++));
            rule.score = static_cast<float>(statement.real(column++));
            rule.isActive = statement.integer(column++) != 0;
            rule.description = statement.text(column++);
            rule.tries = static_cast<std::uint64_t>(statement.integer(column++));
            rule.bytes = static_cast<std::uint64_t>(statement.integer(column++));
            rule.limited = static_cast<std::uint64_t>(statement.integer(column++));
            rule.nanoseconds = statement.integer(column);
            rule.hits.resize(statistics_.classes.size());
            statistics_.rules.push_back(std::move(rule));
        }
    }

    void readHits() {
        s_eachHits(result_, [this](std::int64_t id, const std::vector<std::size_t> &rules) {
            const Message &message = messages_.at(id);
            for (const std::size_t number : rules) {
                RuleStatistics &rule = statistics_.rules.at(number);
                ++rule.hits[message.category];
                ++(isToBeOver(message) ? rule.hitsToBeOver : rule.hitsToBeUnder);
                const double without = double{message.total} - double{rule.score};
                rule.decided += (without > statistics_.threshold) != message.isOver ? 1U : 0U;
            }
        });
    }

    void pair() {
        std::vector<std::size_t> chosen(statistics_.rules.size());
        std::iota(chosen.begin(), chosen.end(), 0U);
        std::stable_sort(chosen.begin(), chosen.end(), [this](std::size_t one, std::size_t two) {
            return statistics_.rules[one].all() > statistics_.rules[two].all();
        });
        chosen.resize(std::min(chosen.size(), kMostPaired));
        std::sort(chosen.begin(), chosen.end());
        std::vector<std::size_t> both(chosen.size() * chosen.size());
        s_eachHits(result_, [&](std::int64_t, const std::vector<std::size_t> &rules) {
            std::vector<std::size_t> places;
            for (const std::size_t rule : rules) {
                const auto found = std::lower_bound(chosen.begin(), chosen.end(), rule);
                if (found != chosen.end() && *found == rule) {
                    places.push_back(static_cast<std::size_t>(found - chosen.begin()));
                }
            }
            for (std::size_t one = 0; one < places.size(); ++one) {
                for (std::size_t two = one + 1; two < places.size(); ++two) {
                    ++both[places[one] * chosen.size() + places[two]];
                }
            }
        });
        for (std::size_t pair = 0; pair < both.size(); ++pair) {
            if (both[pair] > 1) {
                addOverlap(chosen[pair / chosen.size()], chosen[pair % chosen.size()], both[pair]);
            }
        }
        std::stable_sort(statistics_.overlaps.begin(), statistics_.overlaps.end(),
                         [](const Overlap &one, const Overlap &two) {
                             return one.jaccard != two.jaccard ? one.jaccard > two.jaccard
                                                               : one.both > two.both;
                         });
        statistics_.overlaps.resize(std::min(statistics_.overlaps.size(), most_));
    }

    void addOverlap(std::size_t one, std::size_t two, std::size_t both) {
        const std::size_t either =
            statistics_.rules[one].all() + statistics_.rules[two].all() - both;
        statistics_.overlaps.push_back(
            {one, two, both, static_cast<double>(both) / static_cast<double>(either)});
    }

    void findNearest() {
        std::vector<std::pair<double, std::int64_t>> distances;
        for (const auto &[id, message] : messages_) {
            distances.emplace_back(std::abs(double{message.total} - statistics_.threshold), id);
        }
        const auto end =
            distances.begin() + static_cast<std::ptrdiff_t>(std::min(most_, distances.size()));
        std::partial_sort(distances.begin(), end, distances.end());
        Statement statement(result_.database(),
                            "SELECT class, path, number FROM message WHERE id = ?");
        for (auto each = distances.begin(); each != end; ++each) {
            const Message &message = messages_.at(each->second);
            statement.with(each->second);
            while (statement.step()) {
                statistics_.nearest.push_back(
                    {std::string(statement.text(0)), std::string(statement.text(1)),
                     static_cast<std::size_t>(statement.integer(2)), message.total, message.isOver,
                     message.isOver == isToBeOver(message)});
            }
        }
    }

    Result &result_;
    std::size_t most_;
    Statistics statistics_;
    std::map<std::string, std::size_t> numbers_;
    std::unordered_map<std::int64_t, Message> messages_;
};

} // namespace

double RuleStatistics::precision() const {
    return all() == 0 ? 0.0 : static_cast<double>(hitsToBeOver) / static_cast<double>(all());
}

std::vector<CurvePoint> curveOf(std::vector<float> over, std::vector<float> under,
                                double threshold) {
    const auto at = static_cast<float>(threshold);
    std::sort(over.begin(), over.end());
    std::sort(under.begin(), under.end());
    std::vector<float> all = over;
    all.insert(all.end(), under.begin(), under.end());
    all.push_back(at);
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    const std::size_t stride = all.size() / kMostCurvePoints + 1;
    std::vector<CurvePoint> curve;
    for (std::size_t each = 0; each < all.size(); ++each) {
        if (each % stride == 0 || each + 1 == all.size() || all[each] == at) {
            const auto firstOver = std::upper_bound(under.begin(), under.end(), all[each]);
            const auto lastUnder = std::upper_bound(over.begin(), over.end(), all[each]);
            curve.push_back({double{all[each]}, static_cast<std::size_t>(under.end() - firstOver),
                             static_cast<std::size_t>(lastUnder - over.begin())});
        }
    }
    return curve;
}

std::set<std::string> classesToBeOver(Result &result, const std::vector<std::string> &given) {
    const std::vector<std::string> known = s_classes(result);
    for (const std::string &name : given) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            std::string names;
            for (const std::string &each : known) {
                names += (names.empty() ? "" : ", ") + each;
            }
            throw CorpusError("--over: '" + name + "' is no class of '" + result.path() +
                              "'; its classes are " + names);
        }
    }
    std::set<std::string> over(given.begin(), given.end());
    if (given.empty()) {
        std::copy_if(known.begin(), known.end(), std::inserter(over, over.end()), &s_saysOver);
    }
    return over;
}

Statistics statisticsOf(Result &result, const std::set<std::string> &toBeOver, std::size_t most) {
    return Counting(result, toBeOver, most).take();
}

} // namespace Corvane::Corpus
