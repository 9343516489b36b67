// The pages that list things list all of them, with the values that the sources have.

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/parser/MailLimits.h"
#include "support/DocPage.h"

namespace Corvane {
namespace {

using testing::HasSubstr;

// The constants of a source file that are whole numbers, with their values. A product or shift is worked out.
std::map<std::string, unsigned long> s_constants(const std::string &path) {
    const std::string text = TempDir::read(CORVANE_SOURCE_DIR "/" + path);
    const std::regex form(
        "(k[A-Z]\\w*)\\s*=\\s*(0x[0-9A-Fa-f]+|\\d+)U?(?:\\s*(<<|\\*)\\s*(\\d+)U?)?;");
    std::map<std::string, unsigned long> found;
    for (std::sregex_iterator at(text.begin(), text.end(), form), end; at != end; ++at) {
        const std::smatch &match = *at;
        const unsigned long left = std::stoul(match[2], nullptr, 0);
        const unsigned long right = match[3].matched ? std::stoul(match[4]) : 1;
        found[match[1]] = match[3] == "<<" ? left << right : left * right;
    }
    return found;
}

// "32 KiB" in bytes.
unsigned long s_size(const std::string &text) {
    std::istringstream stream(text);
    unsigned long number = 0;
    std::string unit;
    stream >> number >> unit;
    return number << (unit == "KiB" ? 10U : unit == "MiB" ? 20U : 0U);
}

TEST(LimitsPage, NamesEveryLimitOnMailWithItsValue) {
    const auto rows = DocPage("limits.md").rows({"constant", "value", "name", "what lies beyond"});
    const MailLimits limits;
    constexpr auto kLast = static_cast<unsigned int>(MailLimit::StyleRules);
    ASSERT_EQ(rows.size(), kLast + 1);
    auto constants = s_constants("include/host/parser/MailLimits.h");
    for (unsigned int at = 0; at <= kLast; ++at) {
        const auto limit = static_cast<MailLimit>(at);
        EXPECT_EQ(rows[at].cells.at(2), mailLimitName(limit));
        EXPECT_EQ(s_size(rows[at].cells.at(1)), limits.value(limit)) << mailLimitName(limit);
        EXPECT_EQ(constants[rows[at].cells.at(0)], limits.value(limit)) << mailLimitName(limit);
    }
}

TEST(LimitsPage, HasTheValuesOfTheSources) {
    constexpr std::size_t kAtLeast = 14;
    const auto rows = DocPage("limits.md").rows({"constant", "value", "in", "what lies beyond"});
    EXPECT_GE(rows.size(), kAtLeast);
    for (const DocRow &row : rows) {
        auto constants = s_constants(row.cells.at(2));
        EXPECT_EQ(constants.count(row.cells.at(0)), 1U) << row.cells[0] << " in " << row.cells[2];
        EXPECT_EQ(constants[row.cells[0]], s_size(row.cells.at(1))) << row.cells[0];
    }
}

TEST(LogRecordsPage, ListsEveryRecord) {
    const DocPage page("log-records.md");
    std::map<std::string, unsigned long> listed;
    for (const DocRow &row : page.rows({"identifier", "constant", "format", "arguments"})) {
        listed[row.cells.at(1)] = std::stoul(row.cells.at(0), nullptr, 0);
        EXPECT_THAT(page.text(), HasSubstr("**" + row.cells[0] + ", ")) << "not explained";
    }
    auto constants = s_constants("include/heuristic/LogRecords.h");
    constants.erase("kLogLevel");
    EXPECT_EQ(listed, constants);
}

// Pages refer to each other, and to files of the tree, by names that exist.
TEST(Pages, NameFilesThatExist) {
    namespace fs = std::filesystem;
    const fs::path root = CORVANE_SOURCE_DIR;
    const std::regex link("\\]\\(([^)#]+)(?:#[^)]*)?\\)");
    const std::regex file("`((?:cli|docs|examples|include|rules|src|tests)/[\\w./-]+)`");
    unsigned int pages = 0;
    for (const auto &entry : fs::directory_iterator(root / "docs")) {
        if (entry.path().extension() == ".md") {
            const std::string text = DocPage(entry.path().filename().string()).text();
            for (std::sregex_iterator at(text.begin(), text.end(), link), end; at != end; ++at) {
                EXPECT_TRUE(fs::exists(root / "docs" / (*at)[1].str())) << entry << (*at)[0];
            }
            for (std::sregex_iterator at(text.begin(), text.end(), file), end; at != end; ++at) {
                EXPECT_TRUE(fs::exists(root / (*at)[1].str())) << entry << (*at)[0];
            }
            ++pages;
        }
    }
    EXPECT_GT(pages, 0U);
}

} // namespace
} // namespace Corvane
