#include "host/parser/File.h"

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/parser/Exception.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FilePath, JoinsWithOneSlash) {
    EXPECT_EQ(File::Path("dir", "name").asString(), "dir/name");
    EXPECT_EQ(File::Path("dir/", "name").asString(), "dir/name");
    EXPECT_EQ(File::Path("dir", "/name").asString(), "dir/name");
    EXPECT_EQ(File::Path("/", "/name").asString(), "/name");
    EXPECT_EQ(File::Path("", "name").asString(), "name");
    EXPECT_EQ(File::Path("dir", "").asString(), "dir");
    EXPECT_STREQ(File::Path("a//../b/"), "a//../b/");
}

TEST(FilePath, KnowsWhatExists) {
    const TempDir dir;
    const File::Path file(dir.write("file", ""));
    EXPECT_TRUE(file.exists());
    EXPECT_FALSE(file.isDirectory());
    EXPECT_TRUE(File::Path(dir.path()).exists());
    EXPECT_TRUE(File::Path(dir.path()).isDirectory());
    EXPECT_FALSE(File::Path(dir.path(), "none").exists());
}

class Names : public File::Processor {
public:
    int process(const File::Path &file) override {
        found.push_back(std::filesystem::path(file.asString()).filename());
        EXPECT_TRUE(file.exists()) << file.asString();
        return -1;
    }

    void linkBroken(const File::Path &file, int error) override {
        found.push_back(std::filesystem::path(file.asString()).filename().string() + ": " +
                        std::strerror(error));
    }

    std::vector<std::string> found;
};

std::vector<std::string> select(const std::string &directory,
                                const std::list<std::string> &patterns) {
    Names names;
    File::Selector selector(File::Path(directory), names);
    selector.patterns(patterns);
    selector.start();
    return names.found;
}

TEST(FileSelector, VisitsByPatternThenByName) {
    const TempDir dir;
    for (const char *name : {"b.cf2", "a.cf2", "z.cf3", "B.cf2", "\xC3\xA9.cf2", "d.score", "c.cf",
                             ".hidden.cf2", "UPPER.CF2"}) {
        dir.write(name, "");
    }
    EXPECT_THAT(select(dir.path(), {"*.cf3", "*.cf2", "a*", "*.score"}),
                ElementsAre("z.cf3", "B.cf2", "a.cf2", "b.cf2", "\xC3\xA9.cf2", "d.score"));
    EXPECT_THAT(select(dir.path() + "/", {".*.cf2", "[c-d].*"}),
                ElementsAre(".hidden.cf2", "c.cf", "d.score"));
    EXPECT_THAT(select(dir.path(), {}), IsEmpty());
}

TEST(FileSelector, VisitsRegularFilesOnly) {
    const TempDir dir;
    dir.makeDirectory("sub.cf");
    dir.write("sub.cf/inner.cf", "");
    const std::string target = dir.write("target", "");
    std::filesystem::create_symlink(target, dir.path("link.cf"));
    std::filesystem::create_symlink(dir.path("none"), dir.path("dangling.cf"));
    std::filesystem::create_symlink("loop.cf", dir.path("loop.cf"));
    EXPECT_THAT(select(dir.path(), {"*.cf"}),
                ElementsAre("dangling.cf: No such file or directory", "link.cf",
                            "loop.cf: Too many levels of symbolic links"));
}

TEST(FileSelector, OnlyAMissingDirectoryIsNoError) {
    const TempDir dir;
    EXPECT_THAT(select(dir.path("none"), {"*"}), IsEmpty());
    const std::string file = dir.write("file", "");
    try {
        select(file, {"*.cf"});
        FAIL() << "a file is no directory";
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.code(), Exception::kGeneral);
        EXPECT_THAT(failure.asString(), testing::HasSubstr("cannot read " + file));
    }
}

TEST(FileSelector, PassesOnWhatTheProcessorThrows) {
    class Failing : public File::Processor {
    public:
        int process(const File::Path & /*file*/) override {
            throw Exception("Failing", Exception::kEmptyHandle, nullptr, 0);
        }
    } failing;
    const TempDir dir;
    dir.write("a", "");
    File::Selector selector(File::Path(dir.path()), failing);
    selector.patterns({"*"});
    EXPECT_THROW(selector.start(), Exception);
}

constexpr int kMax = 8;

// Reads as the rule-file parser does; the text of a line is what getline() answered, less one.
std::vector<std::string> readLines(std::istream &stream) {
    std::vector<std::string> lines;
    std::string buffer(kMax + 1, '#');
    while (!stream.eof()) {
        const int read = File::getline(stream, buffer.data(), kMax);
        if (read == 0) {
            break;
        }
        EXPECT_LE(read, kMax);
        const auto length = static_cast<std::size_t>(read) - 1;
        EXPECT_EQ(buffer[length], '\0');
        EXPECT_EQ(buffer[kMax], '#');
        lines.push_back(buffer.substr(0, length));
    }
    return lines;
}

struct LinesRow {
    const char *name;
    std::string content;
    std::vector<std::string> expected;
};

void PrintTo(const LinesRow &row, std::ostream *out) {
    *out << row.name;
}

class FileGetline : public testing::TestWithParam<LinesRow> {};

TEST_P(FileGetline, TakesEachLineOnce) {
    std::istringstream text(GetParam().content);
    EXPECT_EQ(readLines(text), GetParam().expected);

    const TempDir dir;
    File::basic_ifstream<char> file(File::Path(dir.write("file", GetParam().content)));
    ASSERT_TRUE(file.is_open());
    EXPECT_EQ(readLines(file), GetParam().expected);
}

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Cases, FileGetline,
    testing::Values(LinesRow{"emptyFile", "", {}}, LinesRow{"lf", "ab\ncd\n", {"ab", "cd"}},
                    LinesRow{"crLf", "ab\r\ncd\r\n", {"ab", "cd"}},
                    LinesRow{"crInside", "a\rb\nc\r\r\n\rd\n", {"a\rb", "c\r", "\rd"}},
                    LinesRow{"noLastLf", "ab\ncd", {"ab", "cd"}},
                    LinesRow{"lastEndsInCr", "ab\r", {"ab\r"}},
                    LinesRow{"emptyLines", "\n\r\na\n\n", {"", "", "a", ""}},
                    LinesRow{"nulBytes", "a\0b\n\0"s, {"a\0b"s, "\0"s}},
                    LinesRow{"maxLess2", "123456\n123456", {"123456", "123456"}},
                    LinesRow{"maxLess1", "1234567\r\n1234567", {"1234567", "1234567"}},
                    LinesRow{"max", "12345678\nx\n12345678", {"1234567", "x", "1234567"}},
                    LinesRow{"maxMore1", "123456789\r\nx\n123456789", {"1234567", "x", "1234567"}},
                    LinesRow{"crAtTheCut", "123456\r\n123456\r8\n", {"123456", "123456\r"}},
                    LinesRow{"highBytes", "\xFF\xFE\n\xFF", {"\xFF\xFE", "\xFF"}}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(FileGetlineState, EndsLikeStdGetline) {
    std::istringstream text("ab\n");
    std::string buffer(kMax, '#');
    EXPECT_EQ(File::getline(text, buffer.data(), 1), 1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_FALSE(text.eof());
    EXPECT_EQ(File::getline(text, buffer.data(), kMax), 0);
    EXPECT_TRUE(text.eof() && text.fail() && !text.bad());
    std::istringstream untouched("ab\n");
    EXPECT_EQ(File::getline(untouched, nullptr, 0), 0);
    EXPECT_EQ(untouched.tellg(), 0);
}

TEST(FileGetlineState, ThrowsWhereReadingFails) {
    const TempDir dir;
    std::ifstream stream(dir.path());
    ASSERT_TRUE(stream.is_open());
    std::string buffer(kMax, '#');
    EXPECT_THROW(File::getline(stream, buffer.data(), kMax), Exception);
    EXPECT_TRUE(stream.bad());
    EXPECT_EQ(File::getline(stream, buffer.data(), kMax), 0);
}

TEST(FileStreams, OpenByPath) {
    const TempDir dir;
    const File::Path path(dir.path(), "file");
    File::basic_ofstream<char> out(path);
    out << "text" << std::flush;
    File::basic_ifstream<char> in;
    EXPECT_FALSE(in.is_open());
    in.open(path);
    std::string text;
    in >> text;
    EXPECT_EQ(text, "text");
}

TEST(FileStreams, AreNotOpenOnMissingFileOrDirectory) {
    const TempDir dir;
    for (const File::Path &path : {File::Path(dir.path(), "none"), File::Path(dir.path())}) {
        File::basic_ifstream<char> in(path);
        EXPECT_FALSE(in.is_open());
        EXPECT_TRUE(in.fail());
        EXPECT_THAT(readLines(in), IsEmpty());
    }
    EXPECT_FALSE(File::basic_ofstream<char>(File::Path(dir.path())).is_open());
}

} // namespace
} // namespace Corvane
