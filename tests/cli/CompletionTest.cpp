// What shells complete, and the manual pages of the subcommands: what is committed is what the command's
// options give, and the shells that there are complete by it. With CORVANE_UPDATE_COMPLETION in the
// environment all of it is written anew.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CommandTree.h"
#include "support/Completion.h"
#include "support/ManPages.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kScripts = CORVANE_SOURCE_DIR "/completion/";

TEST(Completion, IsWhatTheOptionsGive) {
    const std::vector<std::pair<Shell, std::string>> scripts = {
        {Shell::Bash, "corvane.bash"}, {Shell::Zsh, "_corvane"}, {Shell::Fish, "corvane.fish"}};
    Cli::CommandTree tree;
    tree.app().set_version_flag("--version", std::string());
    for (const auto &[shell, name] : scripts) {
        const std::string made = completionOf(tree.app(), shell);
        if (std::getenv("CORVANE_UPDATE_COMPLETION") != nullptr) {
            std::ofstream(kScripts + name, std::ios::binary) << made;
        }
        EXPECT_EQ(TempDir::read(kScripts + name), made)
            << name << ": run this test with CORVANE_UPDATE_COMPLETION=1, and commit what changes";
    }
}

TEST(ManPageTest, IsWhatHelpSays) {
    const std::string directory = CORVANE_SOURCE_DIR "/docs/man/subcommands/";
    Cli::CommandTree tree;
    const auto pages = manPagesOf(tree.app());
    for (const auto &[name, made] : pages) {
        if (std::getenv("CORVANE_UPDATE_COMPLETION") != nullptr) {
            std::ofstream(directory + name, std::ios::binary) << made;
        }
        EXPECT_EQ(TempDir::read(directory + name), made)
            << name << ": run this test with CORVANE_UPDATE_COMPLETION=1, and commit what changes";
    }
    const auto files = std::filesystem::directory_iterator(directory);
    EXPECT_EQ(static_cast<std::size_t>(std::distance(begin(files), end(files))), pages.size());
}

// What a shell says to a script, which runs in a directory with one file and one directory.
std::string answer(const std::string &shell, const std::string &script) {
    const TempDir directory;
    directory.makeDirectory("here");
    directory.makeDirectory("here/mail");
    directory.write("here/mine.eml", "");
    const std::string line = "cd " + directory.path("here") + " && " + shell + ' ' +
                             directory.write("script", script) + " >" + directory.path("out") +
                             " 2>&1";
    EXPECT_EQ(std::system(line.c_str()), 0) << TempDir::read(directory.path("out"));
    return TempDir::read(directory.path("out"));
}

bool hasShell(const std::string &shell) {
    return std::system(("command -v " + shell + " >/dev/null").c_str()) == 0;
}

std::string bashOn(const std::string &words, int last) {
    return answer("bash", ". " + kScripts + "corvane.bash\nCOMP_WORDS=(" + words +
                              ")\nCOMP_CWORD=" + std::to_string(last) +
                              "\n_corvane\necho \" ${COMPREPLY[*]} \"\n");
}

TEST(Completion, OfBashFollowsSubcommandsAndValues) {
    EXPECT_THAT(bashOn("corvane c", 1), HasSubstr(" corpus ctl "));
    EXPECT_THAT(bashOn("corvane corpus r", 2), HasSubstr(" run report "));
    EXPECT_THAT(bashOn("corvane corpus run --s", 3),
                AllOf(HasSubstr(" --shard "), HasSubstr(" --sets "), Not(HasSubstr(" --sarif "))));
    EXPECT_THAT(bashOn("corvane scan --rules m", 3),
                AllOf(HasSubstr(" mail "), Not(HasSubstr("mine"))));
    EXPECT_THAT(bashOn("corvane scan m", 2), AllOf(HasSubstr("mail"), HasSubstr("mine.eml")));
    EXPECT_EQ(bashOn("corvane scan --threshold m", 3), "  \n");
}

// Most of what zsh calls is there in a terminal alone; stand-ins tell what is called.
TEST(Completion, OfZshFollowsSubcommandsAndValues) {
    if (!hasShell("zsh")) {
        return;
    }
    const auto zshOn = [](const std::string &words) {
        return answer("zsh -f",
                      "compdef() { }\n_files() { echo files $* }\n_message() { echo none }\n"
                      "_describe() { echo ${(P)@[-1]} }\n. " +
                          kScripts + "_corvane\nwords=(" + words +
                          ")\nCURRENT=${#words}\nPREFIX=$words[-1]\n_corvane\n");
    };
    EXPECT_THAT(zshOn("corvane corpus r"), AllOf(HasSubstr("run:"), HasSubstr("diff:")));
    EXPECT_THAT(zshOn("corvane corpus run --s"),
                AllOf(HasSubstr("--shard:"), Not(HasSubstr("--sarif"))));
    EXPECT_EQ(zshOn("corvane scan --rules m"), "files -/\n");
    EXPECT_EQ(zshOn("corvane scan --threshold m"), "none\n");
    EXPECT_EQ(zshOn("corvane scan m"), "files\n");
}

TEST(Completion, OfFishFollowsSubcommandsAndValues) {
    if (!hasShell("fish")) {
        return;
    }
    const auto fishOn = [](const std::string &line) {
        return answer("HOME=$PWD fish",
                      "source " + kScripts + "corvane.fish\ncomplete -C '" + line + "'\n");
    };
    EXPECT_THAT(fishOn("corvane corpus r"), AllOf(HasSubstr("run\t"), HasSubstr("report\t")));
    EXPECT_THAT(fishOn("corvane corpus run --s"),
                AllOf(HasSubstr("--shard"), Not(HasSubstr("--sarif"))));
    EXPECT_THAT(fishOn("corvane scan --rules m"),
                AllOf(HasSubstr("mail/"), Not(HasSubstr("mine"))));
    EXPECT_THAT(fishOn("corvane scan m"), HasSubstr("mine.eml"));
}

} // namespace
} // namespace Corvane
