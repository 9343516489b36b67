// docs/embedding.md quotes the example program as it is, and tells what it prints.

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "heuristic/LogRecords.h"
#include "support/DocPage.h"
#include "support/RuleSet.h"

namespace Corvane {
namespace {

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
