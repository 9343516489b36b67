// The daemon's verdict on a message is that of a scan of its file: over the messages below
// CORVANE_MAIL_DIR, or the tests' own, with the example rules or those of CORVANE_RULES_DIR.

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "corvane/RuleSet.h"
#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "report/Numbers.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

namespace fs = std::filesystem;

std::string fromEnvironment(const char *name, const char *otherwise) {
    const char *chosen = std::getenv(name);
    return chosen != nullptr ? chosen : otherwise;
}

std::string withoutReturns(const std::string &text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text.compare(at, 2, "\r\n") != 0) {
            result += text[at];
        }
    }
    return result;
}

// Whether a server would hand over these bytes again: it makes headers of the lines up to the empty
// one, and what is none it would mend first.
bool isPlain(const std::string &bytes) {
    std::size_t at = 0;
    while (at < bytes.size() && bytes[at] != '\n') {
        const std::size_t end = bytes.find('\n', at);
        const std::string line = bytes.substr(at, end - at);
        const std::size_t colon = line.find(':');
        const bool isFold = at > 0 && (line.front() == ' ' || line.front() == '\t');
        const bool isHeader =
            colon != std::string::npos && colon > 0 && line.find_first_of(" \t") > colon;
        if (end == std::string::npos || (!isFold && !isHeader) ||
            line.find('\0') != std::string::npos || line.find('\r') != std::string::npos ||
            line.size() > MilterClient::kChunkBytes / 2) {
            return false;
        }
        at = end + 1;
    }
    return at < bytes.size() && at > 0;
}

// As the status header has them, and how many there are.
std::string summary(const corvane::Verdict &verdict, float threshold) {
    constexpr std::size_t kShown = 50;
    std::string names;
    for (std::size_t each = 0; each < verdict.hits().size() && each < kShown; ++each) {
        names += (names.empty() ? "" : ",") + verdict.hits()[each].name;
    }
    names +=
        verdict.hits().size() > kShown ? ",+" + std::to_string(verdict.hits().size() - kShown) : "";
    return std::string(verdict.over() ? "hit" : "clean") +
           ";score=" + Reporting::shortest(Reporting::shownTotal(verdict, threshold)) +
           ";threshold=5;rules=" + (names.empty() ? "none" : names) + ';';
}

std::string withoutBlanks(const std::string &text) {
    std::string result;
    for (const char byte : text) {
        result += byte == ' ' || byte == '\t' ? "" : std::string(1, byte);
    }
    return result;
}

TEST(DaemonMail, HasTheVerdictOfAScanOfTheFile) {
    const TempDir directory;
    fs::create_symlink(fromEnvironment("CORVANE_RULES_DIR", CORVANE_EXAMPLE_RULES_DIR),
                       directory.path("rules"));
    const auto rules = corvane::RuleSet::load(directory.path("rules"));
    Daemon daemon(directory, "[scan]\nbudget = 0\n");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    corvane::ScanOptions options;
    options.sender = "joe@example.org";
    unsigned int compared = 0;
    unsigned int mended = 0;
    const std::string root = fromEnvironment("CORVANE_MAIL_DIR", CORVANE_TEST_DATA_DIR);
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        Mail mail;
        mail.bytes = entry.is_regular_file() ? withoutReturns(TempDir::read(entry.path())) : "";
        if (!isPlain(mail.bytes)) {
            ++mended;
            continue;
        }
        const std::string expected = summary(rules.scan(mail.bytes, options), options.threshold);
        const std::string status = withoutBlanks(client.deliver(mail).status());
        EXPECT_EQ(status.substr(0, expected.size()), expected) << entry.path();
        ++compared;
    }
    EXPECT_GT(compared, 0U);
    std::cout << compared << " messages compared, " << mended << " files left out\n";
    EXPECT_EQ(daemon.stop(), 0);
}

} // namespace
} // namespace Corvane::Milter
