#include "Metrics.h"

#include <fstream>
#include <map>
#include <mutex>
#include <unordered_set>
#include <vector>

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>
#include <unistd.h>

#include "Text.h"
#include "corvane/Engine.h"

namespace Corvane::Milter {

namespace {

using prometheus::BuildCounter;
using prometheus::BuildGauge;
using prometheus::BuildHistogram;
using prometheus::Counter;
using prometheus::Family;
using prometheus::Gauge;
using prometheus::Histogram;
using prometheus::Registry;

Family<Counter> &s_counters(Registry &registry, const char *name, const char *help) {
    return BuildCounter().Name(name).Help(help).Register(registry);
}

Family<Gauge> &s_gauges(Registry &registry, const char *name, const char *help) {
    return BuildGauge().Name(name).Help(help).Register(registry);
}

Histogram &s_histogram(Registry &registry, const char *name, const char *help,
                       const Histogram::BucketBoundaries &bounds) {
    return BuildHistogram().Name(name).Help(help).Register(registry).Add({}, bounds);
}

const Histogram::BucketBoundaries &s_seconds() {
    static const Histogram::BucketBoundaries s_bounds = {0.0001, 0.00025, 0.0005, 0.001, 0.0025,
                                                         0.005,  0.01,    0.025,  0.05,  0.1,
                                                         0.25,   0.5,     1,      2.5,   5};
    return s_bounds;
}

const Histogram::BucketBoundaries &s_scores() {
    static const Histogram::BucketBoundaries s_bounds = {-5, -1, 0, 1,  2,  3, 4,
                                                         5,  6,  8, 10, 15, 20};
    return s_bounds;
}

double s_inSeconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

std::string s_label(const std::string &name) {
    return escaped(name, Charset::Utf8, {}, kMostNameBytes);
}

} // namespace

struct Metrics::Families {
    Registry registry;
    Counter &received =
        s_counters(registry, "corvane_messages_received_total", "Messages that have come whole.")
            .Add({});
    Family<Counter> &messages =
        s_counters(registry, "corvane_messages_total", "Messages by verdict and action.");
    Family<Counter> &errors =
        s_counters(registry, "corvane_errors_total", "Messages without a verdict, by cause.");
    Family<Counter> &rules =
        s_counters(registry, "corvane_rule_hits_total", "Messages that a rule tripped on.");
    Family<Counter> &limits =
        s_counters(registry, "corvane_limits_total", "Messages that a limit cut something off.");
    Counter &putOff = s_counters(registry, "corvane_messages_put_off_total",
                                 "Messages that the mail server could not be told of.")
                          .Add({});
    Counter &refused = s_counters(registry, "corvane_sessions_refused_total",
                                  "Connections beyond limits.sessions.")
                           .Add({});
    Counter &stepLimited = s_counters(registry, "corvane_step_limited_total",
                                      "Tries of rules that took too many steps.")
                               .Add({});
    Family<Counter> &reloads =
        s_counters(registry, "corvane_reloads_total", "Reloads of configuration and rules.");
    Family<Counter> &shadow =
        s_counters(registry, "corvane_shadow_messages_total",
                   "Messages that the rules on trial scored too, by what became of the verdict.");
    Counter &droppedLines = s_counters(registry, "corvane_log_lines_dropped_total",
                                       "Lines of the log that were left out.")
                                .Add({});
    Histogram &score = s_histogram(registry, "corvane_score", "Scores of messages.", s_scores());
    Histogram &scan = s_histogram(registry, "corvane_scan_seconds",
                                  "Time to read a message and try the rules.", s_seconds());
    Histogram &whole = s_histogram(registry, "corvane_message_seconds",
                                   "Time from the sender to the answer.", s_seconds());
    Histogram &wait =
        s_histogram(registry, "corvane_wait_seconds", "Time in line for a scan.", s_seconds());
    Family<Gauge> &info =
        s_gauges(registry, "corvane_ruleset_info", "The rules in place; always 1.");
    Gauge &loaded = s_gauges(registry, "corvane_rules", "Rules of the set in place.").Add({});
    Gauge &sessions =
        s_gauges(registry, "corvane_sessions", "Connections of mail servers.").Add({});
    Gauge &open =
        s_gauges(registry, "corvane_messages_open", "Messages that have begun and not ended.")
            .Add({});
    Gauge &memory = s_gauges(registry, "corvane_resident_memory_bytes", "Resident memory.").Add({});
    std::mutex guard;
    // Guarded by it, as is the end of a counter: that of the rules in place, and those of rules that
    // have tripped, by their labels.
    Gauge *current = nullptr;
    std::map<std::string, Counter *> tripped;

    void trip(const std::vector<corvane::Hit> &hits) {
        for (const corvane::Hit &hit : hits) {
            const std::string label = s_label(hit.name);
            const std::lock_guard<std::mutex> lock(guard);
            Counter *&counter = tripped[label];
            counter = counter == nullptr ? &this->rules.Add({{"rule", label}}) : counter;
            counter->Increment();
        }
    }

    // Rule files come and go; their counters would be kept for ever.
    void forgetAllBut(const std::vector<corvane::Rule> &kept) {
        std::unordered_set<std::string> labels;
        for (const corvane::Rule &rule : kept) {
            labels.insert(s_label(rule.name));
        }
        const std::lock_guard<std::mutex> lock(guard);
        for (auto each = tripped.begin(); each != tripped.end();) {
            if (labels.count(each->first) == 0) {
                this->rules.Remove(each->second);
                each = tripped.erase(each);
            } else {
                ++each;
            }
        }
    }
};

Metrics::Metrics() : families_(std::make_unique<Families>()) {
    // A count that appears as 1 has not increased for who asks by how much: begin at 0.
    for (const char *result : {"replaced", "failed", "empty", "memory"}) {
        families_->reloads.Add({{"result", result}});
    }
}

Metrics::~Metrics() = default;

void Metrics::received() {
    families_->received.Increment();
}

void Metrics::scored(const Scored &scored, std::string_view action, std::chrono::nanoseconds took) {
    Families &all = *families_;
    all.messages
        .Add({{"verdict", std::string(nameOf(scored.status))}, {"action", std::string(action)}})
        .Increment();
    all.whole.Observe(s_inSeconds(took));
    if (scored.cause != Cause::None) {
        all.errors.Add({{"cause", std::string(nameOf(scored.cause))}}).Increment();
    }
    if (scored.status == Status::Skipped) {
        return;
    }
    all.wait.Observe(s_inSeconds(scored.waited));
    all.trip(scored.verdict.hits());
    for (const std::string_view limit : scored.verdict.limits()) {
        all.limits.Add({{"limit", std::string(limit)}}).Increment();
    }
    all.stepLimited.Increment(static_cast<double>(scored.verdict.stepLimited()));
    if (scored.hasVerdict()) {
        all.score.Observe(static_cast<double>(scored.score));
        all.scan.Observe(s_inSeconds(scored.verdict.readingTime() + scored.verdict.scanningTime()));
    }
}

void Metrics::putOff() {
    families_->putOff.Increment();
}

void Metrics::refused() {
    families_->refused.Increment();
}

void Metrics::shadowed(std::string_view result) {
    families_->shadow.Add({{"result", std::string(result)}}).Increment();
}

void Metrics::reloaded(std::string_view result) {
    families_->reloads.Add({{"result", std::string(result)}}).Increment();
}

void Metrics::generation(const corvane::RuleSet &rules) {
    families_->forgetAllBut(rules.rules());
    const std::lock_guard<std::mutex> lock(families_->guard);
    if (families_->current != nullptr) {
        families_->info.Remove(families_->current);
    }
    families_->current = &families_->info.Add(
        {{"generation", rules.generation()}, {"engine", std::string(corvane::engine())}});
    families_->current->Set(1);
    families_->loaded.Set(static_cast<double>(rules.size()));
}

std::string Metrics::text(const Moment &now) {
    {
        const std::lock_guard<std::mutex> lock(families_->guard);
        Counter &dropped = families_->droppedLines;
        dropped.Increment(static_cast<double>(now.droppedLines) - dropped.Value());
    }
    families_->sessions.Set(now.sessions);
    families_->open.Set(now.messages);
    families_->memory.Set(static_cast<double>(residentBytes()));
    return prometheus::TextSerializer().Serialize(families_->registry.Collect());
}

std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t whole = 0;
    std::size_t resident = 0;
    statm >> whole >> resident;
    return statm ? resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) : 0;
}

} // namespace Corvane::Milter
