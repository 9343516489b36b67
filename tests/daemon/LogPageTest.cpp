// The log's page against what the daemon writes.

#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

std::string sources() {
    std::string all;
    for (const auto &entry : std::filesystem::directory_iterator(CORVANE_DAEMON_SOURCES)) {
        if (entry.path().extension() == ".cpp") {
            all += TempDir::read(entry.path().string());
        }
    }
    return all;
}

std::set<std::string> wordsIn(const std::string &text, const std::string &form) {
    const std::regex expression(form);
    std::set<std::string> words;
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
        words.insert((*at)[1]);
    }
    return words;
}

TEST(LogPage, HasEachEventAndField) {
    const std::string code = sources();
    const std::string page = TempDir::read(CORVANE_OPERATING_PAGE);
    const std::string log =
        page.substr(page.find("## The log"), page.find("## Sizing") - page.find("## The log"));
    std::set<std::string> written = wordsIn(code, "LogLine(?: line)?\\([^;\"]*\"([a-z_]+)\"");
    EXPECT_GT(written.size(), 10U);
    written.merge(wordsIn(code, "\\.add(?:Escaped|Millis)?\\(\"([a-z_]+)\","));
    const std::set<std::string> told = wordsIn(log, "`(?:event=)?([a-z_]+)`");
    for (const std::string &word : written) {
        EXPECT_EQ(told.count(word), 1U) << word;
    }
}

} // namespace
} // namespace Corvane::Milter
