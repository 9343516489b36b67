#ifndef CORVANE_TESTS_DAEMON_UPHEAVAL_H
#define CORVANE_TESTS_DAEMON_UPHEAVAL_H

// Reloads and restarts of a daemon beside traffic: good rules, the same ones, and ten kinds of what
// cannot be taken. Tells what each generation scores.
//
//     Upheaval upheaval(directory);           // writes the first rules
//     Daemon daemon(directory, "");
//     upheaval.steer(daemon);
//     for (...) { upheaval.reload(each); }

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "daemon/Daemon.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {

class Upheaval {
public:
    static constexpr unsigned int kBadKinds = 10;
    static constexpr unsigned int kKinds = kBadKinds + 2;

    explicit Upheaval(const TempDir &directory) : directory_(directory) {
        directory_.makeDirectory("rules");
        writeRules();
    }

    void steer(Daemon &daemon) {
        daemon_ = &daemon;
        config_ = TempDir::read(directory_.path("milter.toml"));
        generations_[ctl("status")["ruleset"]["generation"]] = std::to_string(score_);
    }

    // The score that each generation gives.
    const std::map<std::string, std::string> &generations() const { return generations_; }

    // Kind 0 is other rules, 1 the same ones, the others are bad. Throws where the daemon does not
    // do what it must.
    void reload(unsigned int kind) {
        if (kind == 0) {
            ++score_;
            writeRules();
        } else if (kind > 1) {
            spoil(kind - 2);
        }
        expect("reload", kind > 1 ? "kept" : "replaced");
        mend();
    }

    void restart() {
        ++score_;
        writeRules();
        const nlohmann::json answer = expect("restart", "restarted");
        if (daemon_->follow(answer["pid"]) != 0) {
            throw std::runtime_error("the old process ended with a failure:\n" + daemon_->log());
        }
    }

private:
    void writeRules() const {
        directory_.write("rules/a.cf",
                         "body PRIZE /prize/\nscore PRIZE " + std::to_string(score_) + '\n');
    }

    void spoil(unsigned int kind) const {
        const std::string rules = directory_.path("rules");
        const auto config = [this](const std::string &text) {
            directory_.write("milter.toml", text);
        };
        switch (kind) {
        case 0:
            directory_.write("rules/a.cf", "# nothing\n");
            break;
        case 1:
            std::filesystem::rename(rules, directory_.path("away"));
            break;
        case 2:
            directory_.write("rules/version", "");
            break;
        case 3:
            std::filesystem::create_symlink("nowhere", rules + "/b.cf");
            break;
        case 4:
            std::filesystem::rename(rules, directory_.path("away"));
            directory_.write("rules", "a file");
            break;
        case 5:
            config(config_ + "[scan\n");
            break;
        case 6:
            config(config_ + "[other]\n");
            break;
        case 7:
            config(config_ + "[scan]\nthreshold = \"five\"\n");
            break;
        case 8:
            config(config_ + "[limits]\nmemory_bytes = 1000000\n");
            break;
        default:
            std::filesystem::remove(directory_.path("milter.toml"));
        }
    }

    void mend() const {
        const std::string rules = directory_.path("rules");
        if (std::filesystem::exists(directory_.path("away"))) {
            std::filesystem::remove_all(rules);
            std::filesystem::rename(directory_.path("away"), rules);
        }
        std::filesystem::remove(rules + "/version");
        std::filesystem::remove(rules + "/b.cf");
        directory_.write("milter.toml", config_);
        writeRules();
    }

    nlohmann::json ctl(const std::string &action) const {
        return nlohmann::json::parse(
            corvane({"ctl", "--socket", directory_.path("control.sock"), action}).out, nullptr,
            false);
    }

    nlohmann::json expect(const std::string &action, const std::string &result) {
        nlohmann::json answer = ctl(action);
        const std::string told = answer.is_object() ? answer.value("result", "") : "";
        const bool isKept = answer.is_object() && answer["former"] == answer["current"] &&
                            !answer.value("reason", "").empty();
        if (result == "kept" ? !isKept : told != result) {
            throw std::runtime_error(action + " answers " + answer.dump() + ", not " + result);
        }
        generations_[answer["current"]] = std::to_string(score_);
        return answer;
    }

    const TempDir &directory_;
    Daemon *daemon_ = nullptr;
    std::string config_;
    int score_ = 6;
    std::map<std::string, std::string> generations_;
};

} // namespace Corvane::Milter

#endif
