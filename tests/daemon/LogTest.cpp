// The log while nobody reads it.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "Log.h"
#include "daemon/Daemon.h"
#include "daemon/MilterClient.h"
#include "support/Command.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::HasSubstr;

class Pipe {
public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() {
        ::close(ends_[0]);
        closeWriting();
    }

    int writing() const { return ends_[1]; }
    void closeWriting() {
        if (ends_[1] >= 0) {
            ::close(ends_[1]);
            ends_[1] = -1;
        }
    }

    // All that comes, to the end or to the end of so many lines.
    std::string read() const { return readLines(std::numeric_limits<std::ptrdiff_t>::max()); }
    std::string readLines(std::ptrdiff_t lines) const {
        std::string all;
        std::array<char, 65536> bytes{};
        for (ssize_t got = 1; got > 0 && lines > 0;) {
            got = ::read(ends_[0], bytes.data(), bytes.size());
            all.append(bytes.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
            lines -= std::count(bytes.begin(), bytes.begin() + std::max<ssize_t>(got, 0), '\n');
        }
        return all;
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

LogLine numbered(std::uint64_t number) {
    return LogLine(LogLevel::Info, "test")
        .add("number", number)
        .add("filling", std::string(number % 5000, 'x'), 5000);
}

// Of lines that were written by several threads: how many, and how many are said to be missing.
struct Account {
    explicit Account(const std::string &text) {
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            EXPECT_EQ(line.rfind("time=", 0), 0U) << "cut: " << line;
            const std::string mark = "event=log_dropped lines=";
            const std::size_t at = line.find(mark);
            if (at == std::string::npos) {
                ++written;
            } else {
                missing += std::stoull(line.substr(at + mark.size()));
                ++notices;
            }
        }
    }

    std::uint64_t written = 0;
    std::uint64_t missing = 0;
    std::uint64_t notices = 0;
};

TEST(Log, LeavesOutAndCountsWhatNobodyReads) {
    constexpr std::uint64_t kLines = 2500;
    Pipe pipe;
    std::string text;
    std::thread reader;
    std::uint64_t dropped = 0;
    {
        const Log log(pipe.writing());
        const auto write = [&log] {
            for (std::uint64_t each = 0; each < kLines; ++each) {
                log.write(numbered(each));
            }
        };
        std::thread other(write);
        write();
        other.join();
        dropped = log.dropped();
        EXPECT_GT(dropped, 0U);
        reader = std::thread([&] { text = pipe.read(); });
        log.flush();
        log.write(numbered(1));
    }
    pipe.closeWriting();
    reader.join();
    const Account account(text);
    EXPECT_EQ(account.missing, dropped);
    EXPECT_EQ(account.written + account.missing, 2 * kLines + 1);
    EXPECT_GT(account.notices, 0U);
}

TEST(Log, EndsThoughNobodyReads) {
    Pipe pipe;
    {
        const Log log(pipe.writing());
        for (std::uint64_t each = 4000; each < 4200; ++each) {
            log.write(numbered(each));
        }
        // Far less than is kept, and more than a pipe holds.
        EXPECT_EQ(log.dropped(), 0U);
    }
    // For the thread that is still at it.
    EXPECT_EQ(Account(pipe.readLines(200)).written, 200U);
}

TEST(Log, WritesTheLastLinesBeforeTheEnd) {
    Pipe pipe;
    {
        const Log log(pipe.writing());
        for (std::uint64_t each = 0; each < 20; ++each) {
            log.write(numbered(each));
        }
    }
    pipe.closeWriting();
    EXPECT_EQ(Account(pipe.read()).written, 20U);
}

TEST(Log, KeepsNoMessageWaiting) {
    TempDir directory;
    directory.makeDirectory("rules");
    directory.write("rules/a.cf", "body PRIZE /prize/\n");
    Daemon daemon(directory, "");
    MilterClient client(daemon.socket());
    ASSERT_TRUE(client.negotiate());
    Mail mail;
    mail.bytes = "Subject: hello\nMessage-ID: <" + std::string(500, 'm') + "@x>\n\nprize\n";
    daemon.leaveUnread(true);
    // Some 700 bytes of log each, far more than a pipe holds.
    constexpr int kMessages = 400;
    for (int each = 0; each < kMessages; ++each) {
        ASSERT_EQ(client.deliver(mail).code, 'a') << each;
    }
    EXPECT_EQ(corvane({"ctl", "--socket", directory.path("control.sock"), "status"}).status, 0);
    daemon.leaveUnread(false);
    for (int each = 0; each < kMessages; ++each) {
        ASSERT_TRUE(daemon.waitFor("event=message ")) << each;
    }
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("event=stopped"));
}

} // namespace
} // namespace Corvane::Milter
