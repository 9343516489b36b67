// Which messages the arguments of a scan stand for.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "MessageSource.h"
#include "support/TempDir.h"

namespace Corvane::Cli {
namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr unsigned int kMaxBytes = 200000;

class MessageSourceTest : public testing::Test {
protected:
    std::vector<RawMessage> read(const Texts &names, unsigned int maxBytes = kMaxBytes) const {
        Texts paths;
        for (const std::string &name : names) {
            paths.push_back(directory_.path(name));
        }
        MessageSource source(paths, maxBytes);
        std::vector<RawMessage> messages;
        while (const std::optional<RawMessage> message = source.next()) {
            messages.push_back(*message);
        }
        return messages;
    }

    // Labels relative to the test's directory.
    Texts labels(const Texts &names) const {
        Texts labels;
        for (const RawMessage &message : read(names)) {
            labels.push_back(MessageSource::label(message.file, message.index)
                                 .substr(directory_.path().size() + 1) +
                             (message.failure.empty() ? "" : " failed"));
        }
        return labels;
    }

    Texts texts(const std::string &content, unsigned int maxBytes = kMaxBytes) const {
        directory_.write("box", content);
        Texts texts;
        for (const RawMessage &message : read({"box"}, maxBytes)) {
            texts.push_back(message.bytes.asString());
        }
        return texts;
    }

    const TempDir directory_;
};

TEST_F(MessageSourceTest, DirectoriesGiveTheirFilesInByteOrder) {
    for (const char *name : {"d", "d/sub", "d/.hidden", "d/Zz"}) {
        directory_.makeDirectory(name);
    }
    for (const char *name : {"d/b", "d/B", "d/a\xff", "d/.dot", "d/sub/x", "d/.hidden/y", "z"}) {
        directory_.write(name, "x\n");
    }
    ASSERT_EQ(mkfifo(directory_.path("d/pipe").c_str(), S_IRUSR | S_IWUSR), 0);
    ASSERT_EQ(symlink("..", directory_.path("d/up").c_str()), 0);
    ASSERT_EQ(symlink("b", directory_.path("d/link").c_str()), 0);
    ASSERT_EQ(symlink("nothing", directory_.path("d/lost").c_str()), 0);
    EXPECT_THAT(labels({"z", "d", "no"}), ElementsAre("z", "d/B", "d/a\xff", "d/b", "d/link",
                                                      "d/lost failed", "d/sub/x", "no failed"));
}

TEST_F(MessageSourceTest, MaildirsGiveCurAndNewOnly) {
    for (const char *name : {"d", "d/m", "d/m/new", "d/m/cur", "d/m/tmp", "d/m/other"}) {
        directory_.makeDirectory(name);
    }
    for (const char *name : {"d/m/new/2", "d/m/cur/1:2,S", "d/m/tmp/3", "d/m/other/4", "d/m/5"}) {
        directory_.write(name, "x\n");
    }
    EXPECT_THAT(labels({"d"}), ElementsAre("d/m/cur/1:2,S", "d/m/new/2"));
}

TEST_F(MessageSourceTest, MboxesAreSplitBehindEmptyLinesOnly) {
    EXPECT_THAT(texts("A: b\n\nFrom c\n"), ElementsAre("A: b\n\nFrom c\n"));
    EXPECT_THAT(texts("From a\nA: 1\n\nx\n\n\nFrom b\nB: 2\n\nFro\nFrom y\n>From z\n\n"),
                ElementsAre("A: 1\n\nx\n\n", "B: 2\n\nFro\nFrom y\n>From z\n"));
    EXPECT_THAT(texts("From a\r\nA: 1\r\n\r\nx\r\n\r\nFrom b\r\nB: 2\r\n\r\ny"),
                ElementsAre("A: 1\r\n\r\nx\r\n", "B: 2\r\n\r\ny"));
    EXPECT_THAT(texts("From a\n\nFrom b"), ElementsAre("", ""));
}

// Lines longer than what is read at once, and a separator cut by its edge wherever that is.
TEST_F(MessageSourceTest, MboxesDoNotDependOnHowTheyAreRead) {
    for (std::size_t length = 65515; length < 65540; ++length) {
        const std::string line(length, 'x');
        const Texts expected = {line + "\n", line + line};
        EXPECT_TRUE(texts("From a\n" + line + "\n\nFrom b\n" + line + line) == expected) << length;
    }
}

TEST_F(MessageSourceTest, OneByteTooManyIsKeptToTell) {
    EXPECT_THAT(texts("From a\n123456789\n\nFrom b\n1\n", 4), ElementsAre("12345", "1\n"));
    EXPECT_THAT(texts("123456789\n", 4), ElementsAre("12345"));
}

} // namespace
} // namespace Corvane::Cli
