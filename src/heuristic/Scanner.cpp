#include "heuristic/Scanner.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "heuristic/LoadObserver.h"
#include "heuristic/LogRecords.h"
#include "heuristic/RuleFactory.h"
#include "heuristic/RuleIndex.h"
#include "host/parser/Exception.h"
#include "host/parser/Logger.h"

namespace Corvane::Heuristic {

namespace {

constexpr int kReadyWaits = 3;
constexpr unsigned int kReadyWaitMillis = 3;
constexpr unsigned int kAllPercent = 100;

// Lines of a README are read in pieces of this size, terminator included.
constexpr const char *kReadme = "README";
constexpr std::size_t kVersionLineBytes = 256;
constexpr std::string_view kMajorKey = "CF_MAJOR_VERSION=";
constexpr std::string_view kMinorKey = "CF_HR_VERSION=";

using Getter = RefRuleList &(RuleContainer::*)(langID) const;

// Every list of rules of one language, in the order in which they are counted.
constexpr std::array<Getter, 6> kLists = {&RuleContainer::headerRules,  &RuleContainer::bodyRules,
                                          &RuleContainer::rawBodyRules, &RuleContainer::uriRules,
                                          &RuleContainer::fullRules,    &RuleContainer::metaRules};

template <class Visit>
void s_forEachList(const RuleContainer &rules, Visit visit) {
    for (int language = DEFAULT; language < ALL; ++language) {
        for (const Getter list : kLists) {
            visit((rules.*list)(static_cast<langID>(language)));
        }
    }
}

// Counts the rules of a list that take part in scans. The stream is where a listing of them would go; it is not open.
int s_exportRules(const RefRuleList &rules, File::basic_ofstream<char> & /*listing*/) {
    return static_cast<int>(std::count_if(rules->begin(), rules->end(), [](const RefRule &rule) {
        return !rule.isNull() && rule->active();
    }));
}

int s_countActive(const RuleContainer &rules) {
    File::basic_ofstream<char> notOpen;
    int active = 0;
    s_forEachList(rules, [&](const RefRuleList &list) { active += s_exportRules(list, notOpen); });
    return active;
}

// The version text " (vMAJOR.MINOR)" of a README, "" where it has none. A key is looked for anywhere in its
// line, but what follows is cut at the key's own length; a last line that no line end closes loses its last byte. Both
// are relied on by the versions in use.
std::string s_version(std::istream &readme) {
    std::string version;
    std::array<char, kVersionLineBytes> buffer{};
    while (readme.getline(buffer.data(), buffer.size()), readme.gcount() > 0) {
        const auto consumed = static_cast<std::size_t>(readme.gcount());
        const std::string_view line(buffer.data(), consumed > 1 ? consumed - 1 : consumed);
        if (line.find(kMajorKey) != std::string_view::npos) {
            version.append(" (v").append(line.substr(kMajorKey.size())).append(".");
        } else if (line.find(kMinorKey) != std::string_view::npos) {
            version.append(line.substr(kMinorKey.size())).append(")");
            break;
        }
    }
    return version;
}

std::string s_version(const RuleSource &source) {
    if (!source.files.has_value()) {
        const File::Path path(source.directory, kReadme);
        std::error_code ignored;
        // To open a pipe would wait for whoever writes to it.
        if (!std::filesystem::is_regular_file(path.asString(), ignored)) {
            return {};
        }
        File::basic_ifstream<char> stream(path);
        return s_version(stream);
    }
    const auto found = source.files->find(kReadme);
    std::istringstream stream(found != source.files->end() ? found->second : std::string());
    return s_version(stream);
}

std::string s_version(const std::vector<RuleSource> &sources) {
    std::string version;
    for (auto source = sources.begin(); version.empty() && source != sources.end(); ++source) {
        version = s_version(*source);
    }
    return version;
}

} // namespace

Mutex Scanner::m_mutex;
std::atomic<bool> Scanner::m_ready{false};

ScannerRules::ScannerRules() : ruleCount(0) {}

ScannerRules::~ScannerRules() = default;

Scanner::Scanner() : Ref<ScannerRules>(new ScannerRules) {
    // Makes every list, so that even an empty set is only read by scans.
    s_forEachList(rules(), [](const RefRuleList &) {});
}

Scanner::Scanner(const File::Path &directory) : Ref<ScannerRules>(new ScannerRules) {
    load({{directory.asString(), {}}}, nullptr);
}

Scanner::Scanner(const std::vector<RuleSource> &sources, LoadObserver &observer)
    : Ref<ScannerRules>(new ScannerRules) {
    load(sources, &observer);
}

void Scanner::load(const std::vector<RuleSource> &sources, LoadObserver *observer) {
    const RuleFileParser parser(sources, rules(), observer);
    const int active = s_countActive(rules());
    const std::string version = s_version(sources);
    (*this)->ruleCount = parser.ruleCount();
    (*this)->index_ = std::make_unique<const RuleIndex>(rules());
    Logger::instance(false).log(kLogRulesLoaded, kLogLevel, "%u\x01%d\x01%s", ruleCount(), active,
                                version.c_str());
    m_ready = true;
    if (observer != nullptr) {
        observer->loaded(ruleCount(), active, version);
    }
}

Scanner::Scanner(const Scanner &) = default;
Scanner::Scanner(Scanner &&) noexcept = default;
Scanner &Scanner::operator=(const Scanner &) = default;
Scanner &Scanner::operator=(Scanner &&) noexcept = default;
Scanner::~Scanner() = default;

Scanner Scanner::instance(const File::Path *directory, bool reset) {
    // Guarded by m_mutex.
    static Scanner s_current;
    try {
        if (directory != nullptr || reset) {
            Scanner fresh = directory != nullptr ? Scanner(*directory) : Scanner();
            Scanner result = fresh;
            // The old set leaves with fresh, after the lock: dropping its last handle frees thousands of rules.
            const Synchronized lock(m_mutex);
            std::swap(s_current, fresh);
            return result;
        }
        if (!waitUntilReady()) {
            Logger::instance(false).log(kLogNotReady, kLogLevel, "%s", " ");
            return {};
        }
        const Synchronized lock(m_mutex);
        return s_current;
    } catch (const Exception &failure) {
        Logger::instance(false).log(kLogLoadFailed, kLogLevel, "%s", failure.asString().c_str());
        return {};
    }
}

bool Scanner::waitUntilReady() {
    for (int wait = 0; !m_ready && wait < kReadyWaits; ++wait) {
        ts_usleep(0, kReadyWaitMillis);
    }
    return m_ready;
}

bool Scanner::ready() const {
    return m_ready;
}

RuleContainer &Scanner::rules() const {
    return (*this)->container;
}

unsigned int Scanner::ruleCount() const {
    return (*this)->ruleCount;
}

unsigned int Scanner::getordinalCutoff(unsigned int percent) const {
    if (percent == 0) {
        return 0;
    }
    if (percent == kAllPercent) {
        return ruleCount() + 1;
    }
    return ruleCount() * percent / kAllPercent + 1;
}

} // namespace Corvane::Heuristic
