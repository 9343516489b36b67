// docs/embedding.md quotes the example program as it is, and tells what it prints.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "heuristic/LogRecords.h"
#include "support/DocPage.h"
#include "support/RuleSet.h"

namespace Corvane {
namespace {

// Runs a program by its command line; answers what it prints, and its exit status in *status.
std::string printedBy(const std::string &command, int *status) {
    const TempDir scratch;
    const int raw =
        std::system((command + " >" + scratch.path("out") + " 2>" + scratch.path("err")).c_str());
    *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return TempDir::read(scratch.path("out"));
}

TEST(Embedding, PageQuotesTheProgramsOnTheDoor) {
    const DocPage page("embedding.md");
    for (const std::string example : {"score", "filter"}) {
        EXPECT_EQ(page.joined("cpp " + example),
                  TempDir::read(CORVANE_SOURCE_DIR "/examples/" + example + "/main.cpp"));
    }
    EXPECT_THAT(TempDir::read(CORVANE_SOURCE_DIR "/examples/score/CMakeLists.txt"),
                testing::EndsWith("\n\n" + page.joined("cmake score")));
}

// As the page says; and whoever includes one reads it.
TEST(Embedding, HeadersOfTheDoorAreShort) {
    std::size_t headers = 0;
    for (const auto &entry :
         std::filesystem::directory_iterator(CORVANE_SOURCE_DIR "/include/corvane")) {
        const std::string text = TempDir::read(entry.path().string());
        EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 120) << entry.path();
        EXPECT_NE(
            DocPage("embedding.md").text().find("corvane/" + entry.path().filename().string()),
            std::string::npos)
            << "the page does not name " << entry.path();
        ++headers;
    }
    EXPECT_GT(headers, 0U);
}

TEST(Embedding, ProgramsOnTheDoorPrintWhatThePageSays) {
    const DocPage page("embedding.md");
    const TempDir scratch;
    Heuristic::RuleSet rules("score");
    rules.add("a.cf", page.joined("rules score"));
    const std::string message = scratch.write("mail", page.joined("message score"));
    const std::string directory = rules.path().asString();
    int status = 0;
    EXPECT_EQ(printedBy(CORVANE_SCORE_EXAMPLE " " + directory + " <" + message, &status),
              page.joined("output score"));
    EXPECT_EQ(status, 1);
    EXPECT_EQ(printedBy(CORVANE_FILTER_EXAMPLE " " + message + ' ' + directory, &status),
              page.joined("output filter"));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(printedBy(CORVANE_SCORE_EXAMPLE " /nonexistent <" + message, &status), "");
    EXPECT_EQ(status, 2);
}

TEST(Embedding, PageQuotesTheWholeProgram) {
    EXPECT_EQ(DocPage("embedding.md").joined("cpp"),
              TempDir::read(CORVANE_SOURCE_DIR "/examples/embed/main.cpp"));
    EXPECT_THAT(TempDir::read(CORVANE_SOURCE_DIR "/examples/embed/CMakeLists.txt"),
                testing::EndsWith("\n\n" + DocPage("embedding.md").joined("cmake")));
}

TEST(Embedding, ProgramPrintsWhatThePageSays) {
    const DocPage page("embedding.md");
    const TempDir scratch;
    Heuristic::RuleSet rules("embed");
    Heuristic::RuleSet broken("broken");
    rules.add("a.cf", page.joined("rules"));
    broken.add("version", "").add("a.cf", page.joined("rules"));
    const std::string line = CORVANE_EMBED_EXAMPLE " " +
                             scratch.write("mail", page.joined("message")) + ' ' +
                             rules.path().asString() + ' ' + broken.path().asString() + " >" +
                             scratch.path("out") + " 2>" + scratch.path("err");
    const int status = std::system(line.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(TempDir::read(scratch.path("out")), page.joined("output"));
    const std::string log = TempDir::read(scratch.path("err"));
    EXPECT_NE(log.find("info 300002c: 6 6 \n"), std::string::npos) << log;
    EXPECT_NE(log.find("warning 300002e: "), std::string::npos) << log;
}

} // namespace
} // namespace Corvane
