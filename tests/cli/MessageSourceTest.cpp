// Which messages the arguments of a scan stand for.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "MailboxMark.h"
#include "MessageSource.h"
#include "support/TempDir.h"

namespace Corvane::Cli {
namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr unsigned int kMaxBytes = 200000;

class MessageSourceTest : public testing::Test {
protected:
    std::vector<RawMessage> read(const Texts &names, unsigned int maxBytes = kMaxBytes,
                                 const Texts &include = {}) const {
        Texts paths;
        for (const std::string &name : names) {
            paths.push_back(directory_.path(name));
        }
        MessageSource source(paths, include, maxBytes);
        std::vector<RawMessage> messages;
        while (const std::optional<RawMessage> message = source.next()) {
            messages.push_back(*message);
        }
        return messages;
    }

    // Labels relative to the test's directory.
    Texts labels(const Texts &names, const Texts &include = {}) const {
        Texts labels;
        for (const RawMessage &message : read(names, kMaxBytes, include)) {
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
            texts.push_back(message.bytes);
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

TEST_F(MessageSourceTest, IncludeChoosesFilesOfDirectoriesByName) {
    for (const char *name : {"d.eml", "d.eml/sub"}) {
        directory_.makeDirectory(name);
    }
    for (const char *name : {"d.eml/a.eml", "d.eml/a.txt", "d.eml/sub/b.eml", "d.eml/x1", "z"}) {
        directory_.write(name, "x\n");
    }
    EXPECT_THAT(labels({"z", "d.eml"}, {"*.eml"}),
                ElementsAre("z", "d.eml/a.eml", "d.eml/sub/b.eml"));
    EXPECT_THAT(labels({"d.eml"}, {"b.*", "x[0-9]"}), ElementsAre("d.eml/sub/b.eml", "d.eml/x1"));
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

// A mailbox mark of a sender.
std::string s_mark(const std::string &sender) {
    return "From " + sender + " Tue Sep  1 09:01:00 2026\n";
}

TEST_F(MessageSourceTest, MboxesAreSplitBehindEmptyLinesOnly) {
    const std::string a = s_mark("a");
    const std::string b = s_mark("b");
    EXPECT_THAT(texts("A: b\n\n" + a), ElementsAre("A: b\n\n" + a));
    EXPECT_THAT(texts(a + "A: 1\n\nx\n\n\n" + b + "B: 2\n\nFro\n" + a + ">" + a + "\n"),
                ElementsAre("A: 1\n\nx\n\n", "B: 2\n\nFro\n" + a + ">" + a));
    const std::string crlf = "From b Tue Sep  1 09:01:00 2026\r\n";
    EXPECT_THAT(texts(crlf + "A: 1\r\n\r\nx\r\n\r\n" + crlf + "B: 2\r\n\r\ny"),
                ElementsAre("A: 1\r\n\r\nx\r\n", "B: 2\r\n\r\ny"));
    EXPECT_THAT(texts(a + "\n" + b.substr(0, b.size() - 1)), ElementsAre("", ""));
}

TEST_F(MessageSourceTest, TextThatBeginsLikeAMarkIsText) {
    const std::string talk = "From here on we take the train at 09:01.\n";
    EXPECT_THAT(texts(s_mark("a") + "A: 1\n\nx\n\n" + talk + "\n" + s_mark("b") + "B: 2\n"),
                ElementsAre("A: 1\n\nx\n\n" + talk, "B: 2\n"));
    EXPECT_THAT(texts("From a\nA: 1\n"), ElementsAre("From a\nA: 1\n"));
}

// Lines longer than what is read at once, and a mark cut by its edge wherever that is.
TEST_F(MessageSourceTest, MboxesDoNotDependOnHowTheyAreRead) {
    for (std::size_t length = 65470; length < 65540; ++length) {
        const std::string line(length, 'x');
        const Texts expected = {line + "\n", line + line};
        EXPECT_TRUE(texts(s_mark("a") + line + "\n\n" + s_mark("b") + line + line) == expected)
            << length;
    }
}

TEST_F(MessageSourceTest, OneByteTooManyIsKeptToTell) {
    EXPECT_THAT(texts(s_mark("a") + "123456789\n\n" + s_mark("b") + "1\n", 4),
                ElementsAre("12345", "1\n"));
    EXPECT_THAT(texts("123456789\n", 4), ElementsAre("12345"));
}

TEST(MailboxMark, IsASenderAndADateInAnyOrder) {
    const struct {
        const char *line;
        bool isMark;
    } rows[] = {
        {"From joe@example.org Tue Sep  1 09:01:00 2026", true},
        {"From joe@example.org Tue Sep  1 09:01:00 2026\r\n", true},
        {"From joe@example.org  Tue Sep 01 9:01 2026", true},
        {"From - Tue Sep 01 09:01:00 2026", true},
        {"From MAILER-DAEMON Tue Sep  1 09:01:00 2026", true},
        {"From  Tue Sep  1 09:01:00 2026", true},
        {"From joe Tue Sep  1 09:01:00 MET DST 2026", true},
        {"From joe Tue Sep  1 09:01:00 2026 +0200", true},
        {"From joe@example.org Tue, 1 Sep 2026 09:01:00 +0200 (CEST)", true},
        {"From joe 1 Sep 2026 09:01", true},
        {"From joe!host Tue Sep  1 09:01:00 2026 remote from example", true},
        {"From \"joe doe\"@example.org Tue Sep  1 09:01:00 2026", true},
        {"From\tjoe Tue Sep  1 09:01:00 2026", false},
        {"From joe", false},
        {"From ", false},
        {"From here on we met at 09:01 on 1 Sep 2026", false},
        {"From me at 09:01 Tue 1 Sep 2026", false},
        {"From joe Tue Sep  1 09:01:00", false},
        {"From joe Tue Sep  1 2026", false},
        {"From joe Tue Sep  1 09:01:00:00 2026", false},
        {"From joe Tue Sep  1 091:00 2026", false},
        {"From joe Tue Sep  1 Sep 09:01 2026", false},
        {"From joe Tue Sep  1 09:01 2026.", false},
        {">From joe Tue Sep  1 09:01:00 2026", false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(isMailboxMark(row.line), row.isMark) << row.line;
    }
}

} // namespace
} // namespace Corvane::Cli
