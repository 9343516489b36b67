// The pages on the command show what it prints and name the options that it has.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/Command.h"
#include "support/DocPage.h"

namespace Corvane {
namespace {

namespace fs = std::filesystem;

// The files of the page, in a directory without the letters that mark encrypted files in its name.
class Example {
public:
    explicit Example(const DocPage &page)
        : path_(fs::temp_directory_path() / ("corvane-docs-" + std::to_string(getpid()))) {
        const std::string kFile = "file ";
        fs::remove_all(path_);
        if (!page.joined("rules").empty()) {
            write("rules/a.cf", page.joined("rules"));
        }
        for (const DocBlock &block : page.blocks()) {
            if (block.info.rfind(kFile, 0) == 0) {
                write(block.info.substr(kFile.size()), block.text);
            }
        }
    }
    Example(const Example &) = delete;
    Example &operator=(const Example &) = delete;
    ~Example() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }

    // What a shell in the directory shows for the line, standard error included.
    std::string shown(const std::string &line) const {
        const TempDir scratch;
        const std::string programs = fs::path(CORVANE_COMMAND).parent_path().string();
        const std::string script =
            "PATH=" + programs + ":$PATH\ncd " + path_.string() + "\n" + line;
        const std::string shell =
            "sh " + scratch.write("script", script) + " >" + scratch.path("out") + " 2>&1";
        EXPECT_EQ(std::system(shell.c_str()), 0);
        return TempDir::read(scratch.path("out"));
    }

private:
    void write(const std::string &name, const std::string &text) const {
        fs::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name, std::ios::binary) << text;
    }

    fs::path path_;
};

// Without what differs from run to run, or from one state of the sources to the next.
std::string s_lasting(const std::string &text) {
    const std::string timeless =
        std::regex_replace(text, std::regex("\"ms\":[-+.e0-9]+"), "\"ms\":0");
    return std::regex_replace(timeless, std::regex("\"engine\":\"[^\"]+\""), "\"engine\":\"\"");
}

// Runs the commands of a page one after the other, in one directory.
void expectShown(const std::string &name, unsigned int least) {
    const DocPage page(name);
    const Example example(page);
    unsigned int shown = 0;
    for (const DocBlock &block : page.blocks()) {
        const std::size_t end = block.text.find('\n');
        if (block.info == "console" && end != std::string::npos) {
            const std::string line = block.text.substr(2, end - 2);
            EXPECT_EQ(s_lasting(example.shown(line)), s_lasting(block.text.substr(end + 1)))
                << line;
            ++shown;
        }
    }
    EXPECT_GE(shown, least);
}

TEST(OutputFormatPage, ShowsWhatTheCommandPrints) {
    constexpr unsigned int kLeast = 5;
    expectShown("output-format.md", kLeast);
}

TEST(AuthoringPage, ShowsWhatTheCommandPrints) {
    constexpr unsigned int kLeast = 13;
    expectShown("authoring.md", kLeast);
}

TEST(PipelinePage, ShowsWhatTheCommandPrints) {
    constexpr unsigned int kLeast = 8;
    expectShown("ci.md", kLeast);
}

std::set<std::string> s_found(const std::string &text, const std::string &form) {
    const std::regex expression(form);
    std::set<std::string> found;
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
        found.insert((*at)[1]);
    }
    return found;
}

TEST(ManPage, NamesTheOptionsThatThereAre) {
    std::string help = corvane({"--help"}).out;
    for (const char *subcommand :
         {"scan", "explain", "text", "lint", "encrypt", "decrypt", "ctl"}) {
        help += corvane({subcommand, "--help"}).out;
    }
    help += corvane({"ctl", "profile", "--help"}).out;
    for (const char *subcommand : {"run", "report", "diff", "tune", "merge", "export"}) {
        help += corvane({"corpus", subcommand, "--help"}).out;
    }
    const std::string page = TempDir::read(CORVANE_DOCS_DIR "/man/corvane.1");
    EXPECT_EQ(s_found(page, "Fl (-?[a-z]+)"), s_found(help, "(?:^|[ ,\\n])-(-?[a-z]+)"));
}

} // namespace
} // namespace Corvane
