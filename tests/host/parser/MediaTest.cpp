#include "host/parser/Media.h"

#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/parser/Exception.h"
#include "support/TempDir.h"

namespace Corvane {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::AllOf;
using testing::HasSubstr;

Buffer copyOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

template <class Operation>
std::string failureOf(Operation operation) {
    try {
        operation();
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.code(), Exception::kGeneral);
        return failure.asString();
    }
    return "no failure";
}

TEST(FileMediaIn, FillsUpToMaxAndEndsEmpty) {
    const TempDir dir;
    const std::string content = std::string(40000, 'x') + "\0\xFF end"s;
    FileMediaIn in(dir.write("file", content));
    Buffer bytes = copyOf("old");
    std::string all;
    for (const unsigned int max : {0U, 16U, 512U, 20000U, 100000U}) {
        in.read(bytes, max);
        all += bytes.asString();
        EXPECT_EQ(bytes.length(), max == 100000U ? content.size() - 20528 : max);
    }
    EXPECT_EQ(all, content);
    in.read(bytes, 512);
    EXPECT_TRUE(bytes.isEmpty());
}

// Each piece is sent when the one before was taken, so that no read of the pipe can fill max.
TEST(FileMediaIn, LoopsOnShortReads) {
    const TempDir dir;
    const std::string pipe = dir.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRWXU), 0);
    std::thread sender([&pipe] {
        const int writer = open(pipe.c_str(), O_WRONLY);
        for (const char *piece : {"ab", "cd", "ef"}) {
            EXPECT_EQ(write(writer, piece, 2), 2);
            for (int pending = 1; pending > 0; std::this_thread::yield()) {
                ASSERT_EQ(ioctl(writer, FIONREAD, &pending), 0);
            }
        }
        close(writer);
    });
    FileMediaIn in(pipe);
    Buffer bytes;
    in.read(bytes, 4);
    EXPECT_EQ(bytes.asString(), "abcd");
    in.read(bytes, 4);
    EXPECT_EQ(bytes.asString(), "ef");
    sender.join();
}

TEST(FileMediaIn, ThrowsWhereItCannotOpen) {
    const TempDir dir;
    EXPECT_THAT(failureOf([&] { FileMediaIn(dir.path("none")); }),
                HasSubstr("cannot open " + dir.path("none") + ": No such file or directory"));
    EXPECT_THAT(failureOf([&] { FileMediaIn(dir.path()); }), HasSubstr("Is a directory"));
}

TEST(TempFile, LivesAsLongAsAnyHandleAndIsPrivate) {
    const TempDir dir;
    Ref<TempFile> file;
    MediaOut sink;
    {
        TempFileMediaOut out(dir.path("ruleXXXXXX"), true);
        file = out.tmpfile();
        sink = out;
        EXPECT_THAT(file->name(), testing::MatchesRegex(dir.path("rule") + "......"));
        struct stat status {};
        ASSERT_EQ(stat(file->name().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & ALLPERMS, mode_t{S_IRUSR | S_IWUSR});
        out.write(copyOf("one "));
    }
    sink.write(copyOf(""));
    sink.write(copyOf("two"));
    sink.end();
    sink.end();
    EXPECT_EQ(TempDir::read(file->name()), "one two");
    const std::string name = file->name();
    sink = MediaOut();
    EXPECT_TRUE(fs::exists(name));
    file = Ref<TempFile>();
    EXPECT_FALSE(fs::exists(name));
}

TEST(TempFile, StaysWhereAskedTo) {
    const TempDir dir;
    std::string name;
    {
        TempFileMediaOut out(dir.path("keptXXXXXX"), false);
        name = out.tmpfile()->name();
        out.write(copyOf("text"));
    }
    EXPECT_EQ(TempDir::read(name), "text");
}

TEST(TempFile, IsNotInheritedByOtherPrograms) {
    const TempDir dir;
    const int next = dup(STDERR_FILENO);
    close(next);
    const TempFile file(dir.path("ruleXXXXXX"), true);
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
}

TEST(TempFile, ClosedOneTakesNothing) {
    const TempDir dir;
    TempFileMediaOut out(dir.path("ruleXXXXXX"), true);
    out.close();
    out.close();
    out.end();
    EXPECT_THAT(failureOf([&] { out.write(copyOf("x")); }), HasSubstr("after it was closed"));
}

TEST(TempFile, MakesItsDirectoryForAllUsers) {
    const TempDir dir;
    const mode_t former = umask(S_IRWXG | S_IRWXO);
    { const TempFileMediaOut out(dir.path("tmp/ruleXXXXXX"), true); }
    umask(former);
    struct stat status {};
    ASSERT_EQ(stat(dir.path("tmp").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & ALLPERMS, mode_t{S_ISVTX | ACCESSPERMS});
    EXPECT_TRUE(fs::is_empty(dir.path("tmp")));
}

TEST(TempFile, NamesDirectoryReasonAndRemedy) {
    const TempDir dir;
    dir.write("file", "");
    const auto make = [](const std::string &pattern) {
        return failureOf([&] { TempFileMediaOut(pattern, true); });
    };
    EXPECT_THAT(make(dir.path("a/b/ruleXXXXXX")),
                AllOf(HasSubstr("in " + dir.path("a/b") + ": No such file"),
                      HasSubstr("install -d -m 1777 " + dir.path("a/b"))));
    EXPECT_THAT(make(dir.path("file/ruleXXXXXX")), HasSubstr("file: Not a directory"));
    EXPECT_THAT(make(dir.path("ruleXXXXX")), HasSubstr("end the name pattern in XXXXXX"));
    EXPECT_FALSE(fs::exists(dir.path("a")));
}

// The limit makes one write short and the next one fail.
TEST(TempFile, ReportsWhatCannotBeWrittenAndGoes) {
    const TempDir dir;
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    auto *formerHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tight{1000, former.rlim_max};
    std::string failure;
    {
        TempFileMediaOut out(dir.path("ruleXXXXXX"), true);
        setrlimit(RLIMIT_FSIZE, &tight);
        failure = failureOf([&] { out.write(copyOf(std::string(1500, 'x'))); });
        setrlimit(RLIMIT_FSIZE, &former);
        EXPECT_EQ(fs::file_size(out.tmpfile()->name()), 1000U);
    }
    std::signal(SIGXFSZ, formerHandler);
    EXPECT_THAT(failure,
                HasSubstr("cannot write a temporary file in " + dir.path() + ": File too large"));
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

class Doubler : public MediaOutDecoratorImpl {
public:
    void write(const Buffer &bytes) override {
        output().write(bytes);
        output().write(bytes);
    }
    void end() override {}
};

TEST(MediaOutDecorator, FeedsTheSinkOfTheHandleItWasGiven) {
    const TempDir dir;
    MediaOutDecorator stage(new Doubler);
    TempFileMediaOut first(dir.path("ruleXXXXXX"), true);
    {
        const TempFileMediaOut second(dir.path("ruleXXXXXX"), true);
        stage.attach(second);
    }
    stage.write(copyOf("to the second "));
    stage.attach(first);
    stage.write(copyOf("ab"));
    stage.end();
    first.write(copyOf("!"));
    EXPECT_EQ(TempDir::read(first.tmpfile()->name()), "abab!");

    static_cast<MediaOut &>(stage) = first;
    EXPECT_THAT(failureOf([&] { stage.attach(first); }), HasSubstr("passes nothing on"));
}

TEST(MediaOut, EmptyHandleThrowsCode1) {
    MediaOut empty;
    try {
        empty.write(Buffer());
        FAIL() << "an empty handle must throw";
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.code(), Exception::kEmptyHandle);
    }
}

} // namespace
} // namespace Corvane
