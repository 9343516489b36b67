#include "Tune.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <unordered_map>

#include <nlopt.h>

#include "CorpusError.h"
#include "host/crypto/Digest.h"

namespace Corvane::Corpus {

namespace {

// A score of 0 would switch the rule off, and with it the meta rules that name it.
constexpr double kLeastScore = 0.001;
constexpr double kScoreSteps = 1000.0;

struct Sample {
    bool isToBeOver = false;
    std::size_t fold = 0;
    std::vector<std::size_t> hits; // places in the scores
};

// log(1 + e^x), and its slope.
double s_softplus(double x) {
    return x > 0.0 ? x + std::log1p(std::exp(-x)) : std::log1p(std::exp(x));
}

double s_slope(double x) {
    return x > 0.0 ? 1.0 / (1.0 + std::exp(-x)) : std::exp(x) / (1.0 + std::exp(x));
}

// What the search makes small: the loss of some samples.
class Loss {
public:
    Loss(const std::vector<Sample> &samples, std::size_t leftOut, double threshold,
         const TuneOptions &options)
        : threshold_(threshold), restraint_(options.restraint) {
        std::size_t over = 0;
        for (const Sample &sample : samples) {
            if (sample.fold != leftOut) {
                samples_.push_back(&sample);
                over += sample.isToBeOver ? 1U : 0U;
            }
        }
        const std::size_t under = samples_.size() - over;
        overWeight_ = over == 0 ? 0.0 : 1.0 / static_cast<double>(over);
        underWeight_ = under == 0 ? 0.0 : options.falsePositiveWeight / static_cast<double>(under);
    }

    // Draws the scores to others. Without this every score is as near as any.
    void drawTo(const std::vector<double> &usual) { usual_ = usual; }

    const std::vector<const Sample *> &samples() const { return samples_; }

    double value(unsigned int count, const double *scores, double *gradient) const {
        double loss = 0.0;
        for (unsigned int each = 0; each < count; ++each) {
            const double away = usual_.empty() ? 0.0 : scores[each] - usual_[each];
            loss += restraint_ * away * away / 2.0;
            if (gradient != nullptr) {
                gradient[each] = restraint_ * away;
            }
        }
        for (const Sample *sample : samples_) {
            double total = -threshold_;
            for (const std::size_t hit : sample->hits) {
                total += scores[hit];
            }
            // How far on the wrong side.
            const double wrong = sample->isToBeOver ? -total : total;
            const double weight = sample->isToBeOver ? overWeight_ : underWeight_;
            loss += weight * s_softplus(wrong);
            if (gradient != nullptr) {
                const double slope = weight * s_slope(wrong) * (sample->isToBeOver ? -1.0 : 1.0);
                for (const std::size_t hit : sample->hits) {
                    gradient[hit] += slope;
                }
            }
        }
        return loss;
    }

    static double of(unsigned int count, const double *scores, double *gradient, void *loss) {
        return static_cast<const Loss *>(loss)->value(count, scores, gradient);
    }

private:
    std::vector<const Sample *> samples_;
    double threshold_;
    double restraint_;
    double overWeight_ = 0.0;
    double underWeight_ = 0.0;
    std::vector<double> usual_;
};

struct OptimiserDeleter {
    void operator()(nlopt_opt_s *optimiser) const { nlopt_destroy(optimiser); }
};

class Tuner {
public:
    Tuner(Result &result, const std::set<std::string> &toBeOver, const TuneOptions &options)
        : result_(result), toBeOver_(toBeOver), options_(options) {
        tuning_.threshold = std::stod(result.setting("threshold"));
    }

    Tuning take() {
        readMessages();
        readHits();
        requireBothSorts();
        setBounds();
        const std::vector<double> found = search(options_.folds);
        for (std::size_t each = 0; each < found.size(); ++each) {
            tuning_.scores[each].after = static_cast<float>(rounded(each, found[each]));
        }
        compare();
        std::sort(tuning_.scores.begin(), tuning_.scores.end(),
                  [](const TunedScore &a, const TunedScore &b) { return a.name < b.name; });
        return std::move(tuning_);
    }

private:
    // The same content is in the same fold, wherever it lies.
    std::size_t foldOf(std::string_view sha256) const {
        constexpr int kBase = 16;
        constexpr std::size_t kDigits = 15;
        Crypto::Digest digest;
        digest.add(sha256);
        digest.add(std::to_string(options_.seed));
        const std::string text = digest.hex();
        std::uint64_t number = 0;
        std::from_chars(text.data(), text.data() + kDigits, number, kBase);
        return number % options_.folds;
    }

    void readMessages() {
        Statement statement(result_.database(),
                            "SELECT id, class, sha256, total FROM message WHERE verdict <> "
                            "'failed' ORDER BY class, path, number");
        while (statement.step()) {
            Sample sample;
            sample.isToBeOver = toBeOver_.count(std::string(statement.text(1))) != 0;
            sample.fold = foldOf(statement.text(2));
            places_.emplace(statement.integer(0), samples_.size());
            samples_.push_back(sample);
            totals_.push_back(static_cast<float>(statement.real(3)));
            ++(sample.isToBeOver ? tuning_.toBeOver : tuning_.toBeUnder);
        }
    }

    // Sub-rules have no score to find.
    void readHits() {
        std::unordered_map<std::int64_t, std::size_t> scoreOfRule;
        std::map<std::string, std::size_t> scoreOfName;
        Statement rules(result_.database(),
                        "SELECT id, name, score FROM rule WHERE name NOT LIKE '\\_\\_%' ESCAPE "
                        "'\\' AND id IN (SELECT DISTINCT rule FROM hit) ORDER BY id");
        while (rules.step()) {
            const std::string name(rules.text(1));
            const auto [place, isNew] = scoreOfName.emplace(name, tuning_.scores.size());
            if (isNew) {
                TunedScore score;
                score.name = name;
                score.before = static_cast<float>(rules.real(2));
                tuning_.scores.push_back(score);
            }
            scoreOfRule.emplace(rules.integer(0), place->second);
        }
        Statement hits(result_.database(), "SELECT message, rule FROM hit");
        while (hits.step()) {
            const auto score = scoreOfRule.find(hits.integer(1));
            if (score != scoreOfRule.end()) {
                Sample &sample = samples_.at(places_.at(hits.integer(0)));
                sample.hits.push_back(score->second);
                TunedScore &tuned = tuning_.scores[score->second];
                ++(sample.isToBeOver ? tuned.hitsToBeOver : tuned.hitsToBeUnder);
            }
        }
    }

    void requireBothSorts() const {
        if (tuning_.toBeOver == 0 || tuning_.toBeUnder == 0) {
            throw CorpusError("'" + result_.path() + "' has no messages that are to be " +
                              (tuning_.toBeOver == 0 ? "over" : "under") +
                              " the threshold; name the classes that are to be over with --over");
        }
        if (tuning_.scores.empty()) {
            throw CorpusError("no rule of '" + result_.path() + "' hits anything");
        }
        for (const auto &[name, bounds] : options_.bounds) {
            const bool isThere =
                std::any_of(tuning_.scores.begin(), tuning_.scores.end(),
                            [&name = name](const TunedScore &each) { return each.name == name; });
            if (!isThere) {
                throw CorpusError("--bound: no rule '" + name + "' hits anything in '" +
                                  result_.path() + "'");
            }
        }
    }

    void setBounds() {
        for (const TunedScore &score : tuning_.scores) {
            const double over =
                static_cast<double>(score.hitsToBeOver) / static_cast<double>(tuning_.toBeOver);
            const double under =
                static_cast<double>(score.hitsToBeUnder) / static_cast<double>(tuning_.toBeUnder);
            const bool isPositive = options_.chooseSigns ? over >= under : score.before >= 0.0F;
            std::pair<double, double> bounds = {isPositive ? 0.0 : -options_.most,
                                                isPositive ? options_.most : 0.0};
            const auto given = options_.bounds.find(score.name);
            bounds = given != options_.bounds.end() ? given->second : bounds;
            lowest_.push_back(bounds.first);
            highest_.push_back(bounds.second);
        }
    }

    // What each rule says alone, its log-odds, times what is best for all together: rules with few
    // hits are left near that.
    std::vector<double> usualScores(const Loss &loss) const {
        constexpr double kFew = 0.5;
        constexpr double kStep = 0.05;
        constexpr unsigned int kSteps = 60;
        const std::size_t count = tuning_.scores.size();
        std::vector<double> over(count, kFew);
        std::vector<double> under(count, kFew);
        double allOver = 2.0 * kFew;
        double allUnder = 2.0 * kFew;
        for (const Sample *sample : loss.samples()) {
            (sample->isToBeOver ? allOver : allUnder) += 1.0;
            for (const std::size_t hit : sample->hits) {
                (sample->isToBeOver ? over : under)[hit] += 1.0;
            }
        }
        std::vector<double> best(count);
        double least = std::numeric_limits<double>::infinity();
        for (unsigned int step = 1; step <= kSteps; ++step) {
            std::vector<double> scores(count);
            for (std::size_t each = 0; each < count; ++each) {
                const double odds =
                    std::log(over[each] / allOver) - std::log(under[each] / allUnder);
                scores[each] = std::clamp(kStep * step * odds, lowest_[each], highest_[each]);
            }
            const double value =
                loss.value(static_cast<unsigned int>(count), scores.data(), nullptr);
            if (value < least) {
                least = value;
                best = std::move(scores);
            }
        }
        return best;
    }

    // The best scores for all samples but those of one fold.
    std::vector<double> search(std::size_t leftOut) const {
        constexpr double kTolerance = 1e-7;
        constexpr int kMostSteps = 2000;
        Loss loss(samples_, leftOut, tuning_.threshold, options_);
        std::vector<double> scores = usualScores(loss);
        loss.drawTo(scores);
        const auto count = static_cast<unsigned int>(tuning_.scores.size());
        const std::unique_ptr<nlopt_opt_s, OptimiserDeleter> optimiser(
            nlopt_create(NLOPT_LD_CCSAQ, count));
        nlopt_set_min_objective(optimiser.get(), &Loss::of, &loss);
        nlopt_set_lower_bounds(optimiser.get(), lowest_.data());
        nlopt_set_upper_bounds(optimiser.get(), highest_.data());
        nlopt_set_ftol_rel(optimiser.get(), kTolerance);
        nlopt_set_maxeval(optimiser.get(), kMostSteps);
        double least = 0.0;
        const nlopt_result result = nlopt_optimize(optimiser.get(), scores.data(), &least);
        if (result == NLOPT_OUT_OF_MEMORY) {
            throw std::bad_alloc();
        }
        // The search ends at rounding errors, when the scores are as good as they get.
        if (result < 0 && result != NLOPT_ROUNDOFF_LIMITED) {
            throw CorpusError("the search for scores failed with code " + std::to_string(result));
        }
        return scores;
    }

    double rounded(std::size_t place, double score) const {
        const double steps = std::round(score * kScoreSteps) / kScoreSteps;
        if (std::abs(steps) >= kLeastScore) {
            return steps;
        }
        return lowest_[place] < 0.0 && highest_[place] <= 0.0 ? -kLeastScore : kLeastScore;
    }

    void compare() {
        std::vector<float> before[2];
        std::vector<float> expected[2];
        for (std::size_t fold = 0; fold < options_.folds; ++fold) {
            const std::vector<double> scores = search(fold);
            for (std::size_t each = 0; each < samples_.size(); ++each) {
                const Sample &sample = samples_[each];
                if (sample.fold == fold) {
                    double total = 0.0;
                    for (const std::size_t hit : sample.hits) {
                        total += rounded(hit, scores[hit]);
                    }
                    const std::size_t sort = sample.isToBeOver ? 1 : 0;
                    before[sort].push_back(totals_[each]);
                    expected[sort].push_back(static_cast<float>(total));
                }
            }
        }
        tuning_.before = curveOf(before[1], before[0], tuning_.threshold);
        tuning_.expected = curveOf(expected[1], expected[0], tuning_.threshold);
    }

    Result &result_;
    const std::set<std::string> &toBeOver_;
    const TuneOptions &options_;
    Tuning tuning_;
    std::vector<Sample> samples_;
    std::vector<float> totals_;
    std::unordered_map<std::int64_t, std::size_t> places_;
    std::vector<double> lowest_;
    std::vector<double> highest_;
};

} // namespace

Tuning tuned(Result &result, const std::set<std::string> &toBeOver, const TuneOptions &options) {
    return Tuner(result, toBeOver, options).take();
}

} // namespace Corvane::Corpus
