// corvane explain: what it shows, and what it refuses. Where rules trip is the library's to tell.

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

using testing::HasSubstr;

TEST(Explain, MarksWholeCharactersOfLongTexts) {
    const TempDir directory;
    directory.write("a.cf", "body WORD /w\xC3/\nbody LONG /z+/\nbody NEAR /wor[d]s/\n"
                            "describe NEAR a \x1B word\n");
    const std::string file =
        directory.write("a.eml", "\n" + std::string(50, 'a') + "\xC3\xA4w\xC3\xA4" +
                                     std::string(50, 'b') + "\n" + std::string(300, 'z') + "\n");
    const Outcome outcome =
        corvane({"explain", "--rules", directory.path(), "--rule", "NEAR", file});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out,
                HasSubstr("\n        ..." + std::string(38, 'a') + "\xC3\xA4w\xC3\xA4" +
                          std::string(40, 'b') + "...\n        " + std::string(42, ' ') + "^^\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\n        " + std::string(160, 'z') + "...\n        " +
                                       std::string(160, '^') + "\n"));
    EXPECT_THAT(outcome.out, HasSubstr("a \\x1b word\n    the nearest try: text, line 1, bytes 52 "
                                       "to 53:\n"));
    EXPECT_THAT(outcome.out, HasSubstr("        wor[d]s\n         ^\n"));
}

TEST(Explain, TellsAllAsJsonAndEndsAsAScan) {
    const TempDir directory;
    directory.write("a.cf",
                    "rawbody \xFFONE /\xFFx/\nscore \xFFONE 6\nuri LINK /b/\nmeta BOTH LINK\n");
    const std::string mbox = directory.write(
        "two.mbox", "From a@b Mon Jan  1 00:00:00 2024\n\n\xFFx\n\nFrom a@b Mon Jan  1 00:00:00 "
                    "2024\n\nhttp://b.example/\n");
    const Outcome outcome = corvane(
        {"explain", "--json", "--rules", directory.path(), "--rule", "LINK", "--rule", "X", mbox});
    EXPECT_EQ(outcome.status, 1);
    const std::size_t end = outcome.out.find('\n');
    const auto first = nlohmann::json::parse(outcome.out.substr(0, end));
    EXPECT_EQ(first["index"], 1);
    EXPECT_EQ(first["score"], 6);
    EXPECT_TRUE(first["over"]);
    EXPECT_EQ(first["tripped"][0]["nameHex"], "ff4f4e45");
    EXPECT_EQ(first["tripped"][0]["where"]["matchedHex"], "ff78");
    EXPECT_EQ(first["untripped"][0]["reason"], "no-text");
    EXPECT_EQ(first["untripped"][1], nlohmann::json({{"name", "X"}, {"reason", "not-loaded"}}));
    const auto second = nlohmann::json::parse(outcome.out.substr(end));
    EXPECT_EQ(second["tripped"][0]["where"]["from"], "text");
    EXPECT_EQ(second["tripped"][1]["steps"][0]["operand"], "LINK");
    EXPECT_EQ(second["untripped"].size(), 1U);
}

TEST(Explain, RefusesWhatItCannotDo) {
    const TempDir directory;
    directory.write("a.cf", "body A /x/\n");
    const std::string file = directory.write("a.eml", "\nx\n");
    EXPECT_THAT(corvane({"explain", file}).err, HasSubstr("--rules"));
    EXPECT_THAT(corvane({"explain", "--rules", directory.path("none"), file}).err,
                HasSubstr("does not exist; name the directory"));
    const Outcome missing = corvane(
        {"explain", "--rules", directory.path(), file, directory.path("missing.eml"), file});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("missing.eml"));
    EXPECT_THAT(missing.out, HasSubstr("total 1, not over 5"));
}

} // namespace
} // namespace Corvane
