#include "CorpusTune.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "CurveTable.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "corpus/Page.h"
#include "corpus/Result.h"
#include "host/parser/Logger.h"
#include "report/JsonBytes.h"
#include "report/Numbers.h"

namespace Corvane::Cli {

namespace {

using Corpus::Tuning;
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

bool s_readNumber(const std::string &text, double &number) {
    const char *end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && at == end && std::isfinite(number);
}

// Takes NAME=LOW:HIGH apart; false where it is none.
bool s_readBound(const std::string &text, std::string &name, std::pair<double, double> &bounds) {
    const std::size_t sign = text.find('=');
    const std::size_t colon = text.find(':', std::min(sign, text.size()));
    if (sign == std::string::npos || sign == 0 || colon == std::string::npos) {
        return false;
    }
    name = text.substr(0, sign);
    return s_readNumber(text.substr(sign + 1, colon - sign - 1), bounds.first) &&
           s_readNumber(text.substr(colon + 1), bounds.second) && bounds.first <= bounds.second;
}

std::string s_refuseBound(const std::string &text) {
    std::string name;
    std::pair<double, double> bounds;
    return s_readBound(text, name, bounds)
               ? std::string()
               : "'" + text + "' bounds no score; give NAME=LOW:HIGH, such as PRIZE=0.5:3";
}

std::string s_refuseNotPositive(const std::string &text) {
    double number = 0.0;
    return s_readNumber(text, number) && number > 0.0 ? std::string()
                                                      : "'" + text + "' is no number above 0";
}

std::string s_scoreFile(const std::string &generation, const Tuning &tuning) {
    std::string text = "# Proposed by corvane corpus tune for the rules " + generation + ", from " +
                       std::to_string(tuning.toBeOver) + " messages that are to be over " +
                       Reporting::shortest(static_cast<float>(tuning.threshold)) + " and " +
                       std::to_string(tuning.toBeUnder) + " that are not.\n";
    for (const Corpus::TunedScore &each : tuning.scores) {
        text += "score " + each.name + ' ' + Reporting::shortest(each.after) + '\n';
    }
    return text;
}

Json s_curve(const std::vector<Corpus::CurvePoint> &curve) {
    Json points = Json::array();
    for (const Corpus::CurvePoint &point : curve) {
        Json each;
        each["threshold"] = static_cast<float>(point.threshold);
        each["falsePositives"] = point.falsePositives;
        each["misses"] = point.misses;
        points.push_back(std::move(each));
    }
    return points;
}

std::string s_json(const Tuning &tuning) {
    Json json;
    json["format"] = 1;
    json["threshold"] = static_cast<float>(tuning.threshold);
    json["toBeOver"] = tuning.toBeOver;
    json["toBeUnder"] = tuning.toBeUnder;
    json["scores"] = Json::array();
    for (const Corpus::TunedScore &score : tuning.scores) {
        Json each;
        Reporting::setBytes(each, "name", score.name);
        each["before"] = score.before;
        each["after"] = score.after;
        each["toBeOver"] = score.hitsToBeOver;
        each["toBeUnder"] = score.hitsToBeUnder;
        json["scores"].push_back(std::move(each));
    }
    json["before"] = s_curve(tuning.before);
    json["expected"] = s_curve(tuning.expected);
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

void s_write(const std::vector<Corpus::CurvePoint> &curve, const Tuning &tuning,
             std::ostream &out) {
    writeThreshold(curve, tuning.threshold, tuning.toBeOver, tuning.toBeUnder, out);
    writeCurve(curve, tuning.toBeOver, tuning.toBeUnder, out);
}

} // namespace

void addCorpusTuneCommand(CLI::App &corpus, CorpusTuneArguments &arguments) {
    CLI::App *tune = corpus.add_subcommand("tune", "Propose scores that tell the classes apart");
    Corpus::TuneOptions &options = arguments.options;
    tune->add_option("-o,--output", arguments.output, "The file that is to hold the scores")
        ->required()
        ->type_name("FILE.score");
    tune->add_option("--over", arguments.over,
                     "A class whose messages are to be over; may be given more than once. Usually "
                     "those whose names begin with spam, phish, scam, junk, malware or virus")
        ->allow_extra_args(false)
        ->type_name("CLASS");
    tune->add_option(
            "--most", options.most,
            "The largest score; for rules with negative ones the smallest is as far from 0")
        ->capture_default_str()
        ->check(s_refuseNotPositive, "")
        ->type_name("SCORE");
    tune->add_option("--bound", arguments.bounds,
                     "Other bounds for the score of a rule; may be given more than once")
        ->allow_extra_args(false)
        ->check(s_refuseBound, "")
        ->type_name("NAME=LOW:HIGH");
    tune->add_flag("--signs", options.chooseSigns,
                   "Let the messages decide which scores are negative, not the present ones");
    tune->add_option("--fp-weight", options.falsePositiveWeight,
                     "What false positives count for against misses, each as a share")
        ->capture_default_str()
        ->check(s_refuseNotPositive, "")
        ->type_name("W");
    tune->add_option("--restraint", options.restraint,
                     "How dear large scores are: more for fewer messages")
        ->capture_default_str()
        ->check(s_refuseNotPositive, "")
        ->type_name("R");
    tune->add_option("--folds", options.folds,
                     "In how many parts the messages are left out in turn to tell what to expect")
        ->capture_default_str()
        ->check(CLI::Range(std::size_t{2}, std::size_t{100}))
        ->type_name("N");
    tune->add_option("--seed", options.seed, "Chooses the parts")
        ->capture_default_str()
        ->type_name("N");
    tune->add_flag("--json", arguments.json, "Print what is expected as one JSON object");
    tune->add_option("RESULT", arguments.result, "The result of a run")->required()->type_name("");
    tune->footer("Exit status: 0 the scores are there; 2 they are not, and why is said.\n");
}

int runCorpusTune(const CorpusTuneArguments &arguments, std::ostream &out) {
    Corpus::requireNew(arguments.output);
    Corpus::Result result = Corpus::Result::open(arguments.result, Corpus::Database::Mode::Read);
    Corpus::TuneOptions options = arguments.options;
    for (const std::string &text : arguments.bounds) {
        std::string name;
        std::pair<double, double> bounds;
        (void)s_readBound(text, name, bounds);
        options.bounds[name] = bounds;
    }
    const std::set<std::string> over = classesToBeOver(result, arguments.over);
    const Tuning tuning = tuned(result, over, options);
    Corpus::writeWhole(arguments.output, s_scoreFile(result.setting("generation"), tuning));
    if (arguments.json) {
        out << s_json(tuning);
    } else {
        out << "with the scores as they are, ";
        s_write(tuning.before, tuning, out);
        out << "\nexpected of the proposed ones, found without the messages that they are tried "
               "on, ";
        s_write(tuning.expected, tuning, out);
        out << '\n'
            << tuning.scores.size() << " scores: " << Logger::printable(arguments.output) << '\n';
    }
    const int error = flushed(out);
    if (error != 0) {
        refuse("cannot write what is expected: " + systemReason(error));
    }
    return kExitClean;
}

} // namespace Corvane::Cli
