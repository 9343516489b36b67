// docs/lint.md: each code that the command has is there, and its example leads to it.

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

struct Entry {
    std::string level;
    std::string example; // empty where there is none
};

void s_replace(std::string &text, const std::string &mark, const std::string &bytes) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark)) {
        text.replace(at, mark.size(), bytes);
    }
}

// The example with the bytes that its marks stand for.
std::string s_withBytes(std::string example) {
    s_replace(example, "{TAB}", "\t");
    s_replace(example, "{CR}", "\r");
    s_replace(example, "{NUL}", std::string(1, '\0'));
    s_replace(example, "{BOM}", "\xEF\xBB\xBF");
    const std::regex run("\\{a\\*(\\d+)\\}");
    std::smatch found;
    while (std::regex_search(example, found, run)) {
        example =
            found.prefix().str() + std::string(std::stoul(found[1]), 'a') + found.suffix().str();
    }
    return example;
}

std::map<std::string, Entry> s_page() {
    const std::string page = TempDir::read(CORVANE_DOCS_DIR "/lint.md");
    const std::regex heading("\n### `([a-z-]+)` \\((error|warning)\\)\n");
    std::map<std::string, Entry> entries;
    for (std::sregex_iterator each(page.begin(), page.end(), heading), end; each != end; ++each) {
        const auto from = static_cast<std::size_t>(each->position()) + each->str().size();
        const std::string section = page.substr(from, page.find("\n##", from) - from);
        const std::string open = "```faulty\n";
        const std::size_t start = section.find(open);
        Entry entry{(*each)[2], {}};
        if (start != std::string::npos) {
            const std::size_t text = start + open.size();
            entry.example = s_withBytes(section.substr(text, section.find("```", text) - text));
        }
        entries.emplace((*each)[1], entry);
    }
    return entries;
}

TEST(LintPage, HasAnExampleThatLeadsToEachCode) {
    for (const auto &[code, entry] : s_page()) {
        // No text leads to it: the loader takes any for a score.
        if (code == "score-refused") {
            continue;
        }
        const std::string found = corvane({"lint", "--each", "--stdin", "a.cf"}, entry.example).out;
        EXPECT_NE(found.find(": " + entry.level + ' ' + code + ": "), std::string::npos)
            << code << ": " << found;
    }
}

TEST(LintPage, HasTheCodesThatThereAre) {
    std::set<std::string> codes;
    const std::regex place("(?:Level::(?:Error|Warning)|add\\(pattern, [^,\"]+),\\s*\"([a-z-]+)\"");
    for (const auto &file : std::filesystem::directory_iterator(CORVANE_DOCS_DIR "/../cli")) {
        if (file.path().extension() != ".cpp") {
            continue;
        }
        const std::string source = TempDir::read(file.path().string());
        for (std::sregex_iterator each(source.begin(), source.end(), place), end; each != end;
             ++each) {
            codes.insert((*each)[1]);
        }
    }
    std::set<std::string> told;
    for (const auto &[code, entry] : s_page()) {
        told.insert(code);
    }
    EXPECT_EQ(told, codes);
}

} // namespace
} // namespace Corvane
