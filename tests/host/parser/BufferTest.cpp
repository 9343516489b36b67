#include "host/parser/Buffer.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace {

Buffer copyOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

Buffer viewOf(const std::string &text) {
    return {text.data(), static_cast<unsigned int>(text.size()), true};
}

void append(Buffer &buffer, const std::string &text) {
    buffer.append(reinterpret_cast<const unsigned char *>(text.data()),
                  static_cast<unsigned int>(text.size()));
}

TEST(Buffer, ChangingViewNeverTouchesViewedBytes) {
    const std::string owner = "abcdef";
    Buffer view = viewOf(owner);
    EXPECT_EQ(reinterpret_cast<const char *>(view.data()), owner.data());

    Buffer shorter = view;
    shorter.length(0);
    append(shorter, "XYZ");
    EXPECT_EQ(shorter.asString(), "XYZ");

    Buffer grown = view.mid(2);
    grown.length(6);
    EXPECT_EQ(grown.asString(), std::string("cdef\0\0", 6));
    EXPECT_EQ(view.asString(), "abcdef");
    EXPECT_EQ(owner, "abcdef");
}

TEST(Buffer, ChangingCopyLeavesSharersAlone) {
    Buffer original = copyOf("abcdef");
    Buffer cut = original;
    const Buffer tail = original.mid(4);
    EXPECT_EQ(cut.data(), original.data());
    cut.length(2);
    append(cut, "12345678");
    EXPECT_EQ(cut.asString(), "ab12345678");
    EXPECT_EQ(original.asString(), "abcdef");
    append(original, "!");
    EXPECT_EQ(original.asString(), "abcdef!");
    EXPECT_EQ(tail.asString(), "ef");
}

TEST(Buffer, ReusesItsRoom) {
    Buffer scratch(1024, 0);
    EXPECT_TRUE(scratch.isEmpty());
    append(scratch, std::string(1024, 'x'));
    const unsigned char *bytes = scratch.data();
    scratch.length(0);
    append(scratch, "line");
    EXPECT_EQ(scratch.data(), bytes);
    EXPECT_EQ(scratch.capacity(), 1024U);
    EXPECT_TRUE(Buffer(-1, 0).isEmpty());
}

TEST(Buffer, AppendsItself) {
    Buffer buffer = copyOf("ab");
    for (int i = 0; i < 4; ++i) {
        buffer.append(buffer);
    }
    EXPECT_EQ(buffer.length(), 32U);
    buffer.append(buffer.data() + 1, 3);
    EXPECT_EQ(buffer.mid(30).asString(), "abbab");

    const std::string owner = "xy";
    Buffer view = viewOf(owner);
    view.append(view.data(), 1);
    EXPECT_EQ(view.asString(), "xyx");
}

TEST(Buffer, RefusesToReachFourGiB) {
    Buffer buffer = copyOf("abc");
    EXPECT_THROW(buffer.append(buffer.data(), 0xFFFFFFFFU), Exception);
    EXPECT_EQ(buffer.asString(), "abc");
}

TEST(Buffer, GrowsWithZeroBytes) {
    Buffer buffer = copyOf("abcdef");
    buffer.length(1);
    buffer.length(3);
    EXPECT_EQ(buffer.asString(), std::string("a\0\0", 3));
}

TEST(Buffer, EmptyOnesHoldNothing) {
    const Buffer fromNull(nullptr, 0, true);
    EXPECT_EQ(fromNull, Buffer(nullptr, 0, false));
    EXPECT_EQ(fromNull.mid(0), Buffer());
    EXPECT_EQ(copyOf("ab").mid(2), Buffer());
    EXPECT_EQ(copyOf("ab").mid(3), Buffer());
    Buffer appended;
    appended.append(fromNull);
    EXPECT_EQ(appended.asString(), "");
}

TEST(Buffer, AtThrowsOutOfRange) {
    const Buffer buffer = copyOf("\xFF");
    EXPECT_EQ(buffer.at(0), 0xFF);
    try {
        buffer.at(1);
        FAIL() << "at(1) of one byte must throw";
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.code(), Exception::kGeneral);
    }
}

struct FindRow {
    const char *name;
    const char *needle;
    int from;
    int expected;
};

void PrintTo(const FindRow &row, std::ostream *out) {
    *out << row.name;
}

class BufferFind : public testing::TestWithParam<FindRow> {};

TEST_P(BufferFind, AnswersFirstOffset) {
    const Buffer text = copyOf("abcabc");
    EXPECT_EQ(text.find(copyOf(GetParam().needle), GetParam().from), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BufferFind,
    testing::Values(FindRow{"first", "bc", 0, 1}, FindRow{"later", "bc", 2, 4},
                    FindRow{"atItsStart", "bc", 4, 4}, FindRow{"beyondLast", "bc", 5, -1},
                    FindRow{"negativeFrom", "a", -7, 0}, FindRow{"fromIsEnd", "a", 6, -1},
                    FindRow{"emptyAtEnd", "", 6, 6}, FindRow{"emptyBeyondEnd", "", 7, -1},
                    FindRow{"longerThanText", "abcabca", 0, -1}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(Buffer, FindsWhiteSpaceInAsciiSenseOnly) {
    const Buffer text = copyOf("a\xA0\x85\v b");
    EXPECT_EQ(text.findWhiteSpace(0), 3);
    EXPECT_EQ(text.findNonWhiteSpace(3), 5);
    EXPECT_EQ(text.findWhiteSpace(5), -1);
    EXPECT_EQ(text.findWhiteSpace(6), -1);
    EXPECT_EQ(text.findNonWhiteSpace(6), -1);
    EXPECT_EQ(text.findNonWhiteSpace(-3), 0);
}

std::vector<std::string> takeLines(LineBuffer &lines) {
    std::vector<std::string> taken;
    Buffer line(1024, 0);
    for (lines.getLine(line, '\n'); !line.isEmpty(); lines.getLine(line, '\n')) {
        taken.push_back(line.asString());
    }
    return taken;
}

using Lines = std::vector<std::string>;

TEST(LineBuffer, GivesCompleteLinesOnly) {
    LineBuffer lines(copyOf("one\n\ntwo\r\nrest"));
    EXPECT_EQ(takeLines(lines), (Lines{"one\n", "\n", "two\r\n"}));
    EXPECT_FALSE(lines.endOfBuffer());
    EXPECT_EQ(lines.mid(lines.startOfLine()).asString(), "rest");
    EXPECT_TRUE(LineBuffer().endOfBuffer());
}

TEST(LineBuffer, LineOwnsItsBytes) {
    std::string owner = "first\nsecond\n";
    LineBuffer lines(viewOf(owner));
    Buffer line;
    lines.getLine(line, '\n');
    owner.assign(owner.size(), '#');
    EXPECT_EQ(line.asString(), "first\n");
}

TEST(LineBuffer, KeepsPendingBytesAcrossAppends) {
    LineBuffer lines;
    lines.append(copyOf("ab\ncd"));
    EXPECT_EQ(takeLines(lines), Lines{"ab\n"});
    lines.append(copyOf("ef"));
    EXPECT_TRUE(takeLines(lines).empty());
    lines.append(copyOf("\ng\nh"));
    EXPECT_EQ(takeLines(lines), (Lines{"cdef\n", "g\n"}));
    EXPECT_EQ(lines.mid(lines.startOfLine()).asString(), "h");
    lines = copyOf("new\n");
    EXPECT_EQ(takeLines(lines), Lines{"new\n"});
    EXPECT_TRUE(lines.endOfBuffer());
}

TEST(LineBuffer, DoesNotGrowWithWhatWasTaken) {
    LineBuffer lines;
    const Buffer piece = copyOf(std::string(500, 'x') + "\n" + std::string(500, 'y'));
    for (int i = 0; i < 1000; ++i) {
        lines.append(piece);
        takeLines(lines);
    }
    EXPECT_LT(lines.length(), 3 * piece.length());
}

TEST(LineBuffer, ChangedDelimiterSearchesAgain) {
    LineBuffer lines(copyOf("a;b"));
    Buffer line;
    lines.getLine(line, '\n');
    EXPECT_TRUE(line.isEmpty());
    lines.getLine(line, ';');
    EXPECT_EQ(line.asString(), "a;");
}

TEST(LineBuffer, SurvivesBeingCutBelowItsPosition) {
    LineBuffer lines(copyOf("ab\ncd\n"));
    takeLines(lines);
    lines.length(1);
    EXPECT_TRUE(lines.endOfBuffer());
    EXPECT_EQ(lines.startOfLine(), 1U);
    EXPECT_TRUE(takeLines(lines).empty());
    lines.append(copyOf("x\n"));
    EXPECT_EQ(takeLines(lines), Lines{"x\n"});

    LineBuffer unfinished(copyOf("abcdefghij"));
    takeLines(unfinished);
    unfinished.length(3);
    unfinished.append(copyOf("de\nfg"));
    EXPECT_EQ(takeLines(unfinished), Lines{"abcde\n"});
}

} // namespace
} // namespace Corvane
