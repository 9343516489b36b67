#include "Support.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <tuple>

#include "host/parser/File.h"
#include "host/parser/Logger.h"

namespace Corvane::Benchmarks {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMessages = 500;
constexpr double kMicrosPerSecond = 1e6;

RuleDirectory s_ruleDirectory(const fs::path &path) {
    const std::string name = path.filename().string();
    const std::size_t dash = name.rfind('-');
    const std::string number = dash == std::string::npos ? "" : name.substr(dash + 1);
    return {name, name.substr(0, dash),
            static_cast<unsigned int>(std::strtoul(number.c_str(), nullptr, 10)), path.string()};
}

std::vector<RuleDirectory> s_ruleDirectories() {
    const char *parent = std::getenv("CORVANE_BENCH_RULES");
    if (parent == nullptr) {
        return {s_ruleDirectory(CORVANE_EXAMPLE_RULES_DIR)};
    }
    std::vector<RuleDirectory> found;
    for (const fs::directory_entry &entry : fs::directory_iterator(parent)) {
        if (entry.is_directory()) {
            found.push_back(s_ruleDirectory(entry.path()));
        }
    }
    std::sort(found.begin(), found.end(), [](const RuleDirectory &a, const RuleDirectory &b) {
        return std::tie(a.mix, a.rules, a.name) < std::tie(b.mix, b.rules, b.name);
    });
    return found;
}

std::vector<std::string> s_mailDirectories() {
    if (const char *chosen = std::getenv("CORVANE_MAIL_DIR")) {
        return {chosen};
    }
    return {CORVANE_TEST_DATA_DIR "/mail", CORVANE_EXAMPLE_RULES_DIR "/messages"};
}

std::vector<fs::path> s_messageFiles() {
    std::vector<fs::path> files;
    for (const std::string &directory : s_mailDirectories()) {
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(directory)) {
            if (entry.path().extension() == ".eml") {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    const char *wanted = std::getenv("CORVANE_BENCH_MESSAGES");
    const std::size_t count = wanted == nullptr ? kMessages : std::strtoul(wanted, nullptr, 10);
    if (files.size() <= count) {
        return files;
    }
    std::vector<fs::path> chosen;
    for (std::size_t i = 0; i < count; ++i) {
        chosen.push_back(files[i * files.size() / count]);
    }
    return chosen;
}

double s_median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double s_meanOf(const std::vector<double> &values) {
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

// Tells the set that a rule may have changed, which no rule has.
void s_touchOneRule(const Scanner &scanner) {
    for (unsigned int kind = Heuristic::Rule::Header; kind <= Heuristic::Rule::Meta; ++kind) {
        for (const Heuristic::RefRule &rule :
             *scanner.rules().rules(Heuristic::DEFAULT, static_cast<Heuristic::Rule::Type>(kind))) {
            rule->ordinal(rule->ordinal());
            return;
        }
    }
}

} // namespace

const std::vector<RuleDirectory> &ruleDirectories() {
    static const std::vector<RuleDirectory> s_directories = s_ruleDirectories();
    return s_directories;
}

std::vector<Message> readMessages() {
    std::vector<Message> all;
    for (const fs::path &file : s_messageFiles()) {
        std::ostringstream content;
        content << std::ifstream(file, std::ios::binary).rdbuf();
        std::string bytes = content.str();
        const Mail mail = MailReader().read(bytes.data(), bytes.size());
        const langID language = Scanner::selectLanguage(mail.properties()->part().operator->());
        all.push_back({std::move(bytes), mail.properties(), mail.sender(), language});
    }
    return all;
}

const std::vector<Message> &messages() {
    static const std::vector<Message> s_messages = readMessages();
    return s_messages;
}

Scanner load(const RuleDirectory &directory, Way way) {
    Scanner scanner{File::Path(directory.path)};
    if (way == Way::Walk) {
        s_touchOneRule(scanner);
    }
    return scanner;
}

Scanner &loaded(const RuleDirectory &directory, Way way) {
    struct Loaded {
        std::string name;
        Scanner scanner;
    };
    static Loaded s_loaded[2];
    Loaded &slot = s_loaded[way == Way::Indexed ? 0 : 1];
    if (slot.name != directory.name) {
        slot.scanner = Scanner();
        slot.scanner = load(directory, way);
        slot.name = directory.name;
    }
    return slot.scanner;
}

double MessageTimes::pass(const std::function<double(std::size_t)> &seconds) {
    double total = 0;
    for (std::size_t i = 0; i < samples_.size(); ++i) {
        samples_[i].push_back(seconds(i * step_));
        total += samples_[i].back();
    }
    return total;
}

std::vector<double> MessageTimes::medians() const {
    std::vector<double> all;
    all.reserve(samples_.size());
    std::transform(samples_.begin(), samples_.end(), std::back_inserter(all), s_median);
    return all;
}

double MessageTimes::mean() const {
    return s_meanOf(medians());
}

void MessageTimes::report(benchmark::State &state) const {
    state.counters["mean_us"] = mean() * kMicrosPerSecond;
    state.counters["median_us"] = s_median(medians()) * kMicrosPerSecond;
    state.counters["messages"] = static_cast<double>(samples_.size());
}

int run(int argc, char **argv, const std::function<void()> &registerAll) {
    Logger::instance(false).sink([](unsigned int, int, const std::string &) {});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    try {
        registerAll();
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception &failure) {
        std::cerr << "error: " << failure.what() << '\n';
        return EXIT_FAILURE;
    }
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}

} // namespace Corvane::Benchmarks
