#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "host/parser/Budget.h"
#include "host/parser/Charset.h"
#include "support/ReadMail.h"

namespace Corvane {
namespace {

const std::string kMultipart = "Content-Type: multipart/mixed; boundary=\"b\"\n\n";
const std::string kAlternative = "Content-Type: multipart/alternative; boundary=\"a\"\n\n";

class MailText : public testing::TestWithParam<TextRow> {};

TEST_P(MailText, IsPutTogether) {
    const Reading mail(GetParam().message);
    EXPECT_EQ(mail.text(), GetParam().text);
    EXPECT_EQ(mail.alternative(), GetParam().alternative);
    EXPECT_TRUE(mail.mail().limitsHit().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Structure, MailText,
    testing::Values(
        TextRow{"plain", "A: b\n\nhello", "hello\n", "none"},
        TextRow{"htmlOnly", "Content-Type: text/html\n\n<p>a<p>b", "a\nb\n", "none"},
        TextRow{"alternative",
                kAlternative + "preamble\n--a\n\nplain\n--a\nContent-Type: text/html\n\n<b>html"
                               "\n--a--\nepilogue",
                "plain\n", "html\n"},
        TextRow{"htmlBeforePlain",
                kAlternative + "--a\nContent-Type: text/html\n\n<b>html\n--a\n\nplain\n--a--",
                "plain\n", "html\n"},
        TextRow{"alternativeOfRelated",
                kAlternative + "--a\n\nplain\n--a\nContent-Type: multipart/related; boundary=r\n\n"
                               "--r\nContent-Type: text/html\n\nhtml\n--r\nContent-Type: image/gif"
                               "\n\nGIF\n--r--\n--a--",
                "plain\n", "html\n"},
        TextRow{"htmlBesidePlainInOneBranch",
                kAlternative + "--a\n" + kMultipart +
                    "--b\n\nplain\n--b\nContent-Type: text/html\n\nhtml\n--b--\n--a--",
                "plain\nhtml\n", "none"},
        TextRow{"othersFollow",
                kMultipart + "--b\nContent-Type: text/html\n\nhtml\n--b\n\nplain\n--b\n"
                             "Content-Type: text/enriched\n\nrich\n--b--",
                "plain\nhtml\nrich\n", "none"},
        TextRow{"othersInFront",
                kMultipart + "--b\nContent-Type: text/csv\n\ncsv\n--b\nContent-Type: text/html"
                             "\n\nhtml\n--b--",
                "html\ncsv\n", "none"},
        TextRow{"firstDispositionCounts",
                "Content-Disposition: inline\nContent-Disposition: attachment\n\nseen", "seen\n",
                "none"},
        TextRow{"envelopeMark", "From a@b.example Mon Jan  5 2026\nA: b\n\nbody", "body\n", "none"},
        TextRow{"proseLikeEnvelopeMark", "From here on\n\nbody", "From here on\n\nbody\n", "none"},
        TextRow{"base64WithoutPadding", "Content-Transfer-Encoding: base64\n\naGVsbG8", "hello\n",
                "none"},
        TextRow{"base64BehindPadding", "Content-Transfer-Encoding: base64\n\naA==\nZWxs=bw",
                "hello\n", "none"},
        TextRow{"twoAlternatives",
                kMultipart + "--b\n" + kAlternative +
                    "--a\n\none\n--a\nContent-Type: text/html\n\n1\n--a--\n--b\n" + kAlternative +
                    "--a\n\ntwo\n--a\nContent-Type: text/html\n\n2\n--a--\n--b--",
                "one\ntwo\n", "1\n2\n"},
        TextRow{"calendarIsNoText",
                kAlternative + "--a\n\nplain\n--a\nContent-Type: text/calendar\n\nBEGIN\n--a--",
                "plain\n", "none"},
        TextRow{"attachmentsAreLeft",
                kMultipart +
                    "--b\nContent-Disposition: Attachment; filename=x\n\nno\n--b\n"
                    "Content-Disposition: inline\n\nyes\n--b\nContent-Type: message/rfc822\n"
                    "Content-Disposition: attachment\n\nContent-Type: text/plain\n\nno\n--b--",
                "yes\n", "none"},
        TextRow{"noText", "Content-Type: image/png\n\nPNG", "none", "none"}),
    [](const auto &row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Damage, MailText,
    testing::Values(
        TextRow{"headersOnly", "A: b\n", "", "none"},
        TextRow{"noHeaders", "hello\nworld: x", "hello\nworld: x\n", "none"},
        TextRow{"onlyNuls", std::string(3, '\0'), std::string(3, '\0') + "\n", "none"},
        TextRow{"mailbox", "From a@b Mon Jan 1\nA: b\n\nhello", "hello\n", "none"},
        TextRow{"missingEnd", kMultipart + "--b\n\none\n\n--b\n\ntwo", "one\ntwo\n", "none"},
        TextRow{"noBoundaryParameter", "Content-Type: multipart/mixed\n\n--b\n\nx", "--b\n\nx\n",
                "none"},
        TextRow{"noPart", kMultipart + "only a preamble", "only a preamble\n", "none"},
        TextRow{"boundaryIsWholeLine",
                kMultipart + "--b \t\n\n--bb\n --b\n--b-\n--b-- x\n--b--\t\nepilogue",
                "--bb\n --b\n--b-\n--b-- x\n", "none"},
        TextRow{"boundaryEndsHeaders",
                kMultipart + "--b\nContent-Type: text/html\n--b\nX: y\n\nplain\n--b--", "plain\n",
                "none"},
        TextRow{"blanksEndHeaders", "A: b\n \t\nhello\n\nC: d", "hello\n\nC: d\n", "none"},
        TextRow{"strayLinesBeforeBoundary",
                kMultipart + "--b\nA: b\nstray\n--b\nC: d\n\ntwo\n--b--", "stray\ntwo\n", "none"},
        TextRow{"bodyWithoutEmptyLine", "A: b\nhello\nworld\n\nC: d", "hello\nworld\n\nC: d\n",
                "none"},
        TextRow{"boundaryLooksLikeHeader",
                "Content-Type: multipart/mixed; boundary=\"b:c\"\n\n--b:c\n--b:c\n\nx", "x\n",
                "none"},
        TextRow{"outerBoundaryEndsInner",
                kMultipart + "--b\n" + kAlternative +
                    "--a\n\none\n--b\n\ntwo\n--a\nstill two\n--b--",
                "one\ntwo\n--a\nstill two\n", "none"},
        TextRow{"carriageReturns",
                "A: b\rContent-Type: multipart/mixed; boundary=b\r\r--b\r\ro\rn\r"
                "--b\r\rt\r--b--\r",
                "o\nn\nt\n", "none"},
        TextRow{"crLf",
                "Content-Type: multipart/mixed;\r\n boundary=b\r\n\r\n--b\r\n\r\nx\r\ny\r\n"
                "--b--\r\n",
                "x\r\ny\n", "none"},
        TextRow{"badTypes",
                kMultipart + "--b\nContent-Type: ;\n\none\n--b\nContent-Type: html\n\n<two>\n--b\n"
                             "Content-Type: TEXT/HTML;;charset\n\n<p>three\n--b--",
                "one\n<two>\nthree\n", "none"},
        TextRow{"firstTypeCounts", "Content-Type: text/html\nContent-Type: text/plain\n\n<p>x",
                "x\n", "none"}),
    [](const auto &row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Decoding, MailText,
    testing::Values(
        TextRow{"base64", "Content-Transfer-Encoding: BASE64 (x)\n\naGVs\nb*G8=\n", "hello\n",
                "none"},
        TextRow{"quotedPrintable",
                "Content-Transfer-Encoding: \"quoted-printable\"\nContent-Type: text/plain;"
                "charset=iso-8859-1\n\nh=E9l=\nlo=ZZ",
                "h\u00E9llo=ZZ\n", "none"},
        TextRow{"uuencode",
                "Content-Transfer-Encoding: x-uuencode\n\nbegin 644 x\n%:&5L;&\\`\n`\nend\n",
                "hello\n", "none"},
        TextRow{"unknownEncoding", "Content-Transfer-Encoding: rot13\n\nuryyb", "uryyb\n", "none"},
        TextRow{"declaredCharset", "Content-Type: text/plain; charset=\"koi8-r\"\n\n\xF0\xF2",
                "\u041F\u0420\n", "none"},
        TextRow{"metaCharset", "Content-Type: text/html\n\n<meta charset=koi8-r>\xF0\xF2",
                "\u041F\u0420\n", "none"},
        TextRow{"metaCharsetUtf16", "Content-Type: text/html\n\n<meta charset=utf-16>\u00E9\n",
                "\u00E9\n", "none"},
        TextRow{"declaredBeatsMeta",
                "Content-Type: text/html; charset=utf-8\n\n<meta charset=koi8-r>\u00E9", "\u00E9\n",
                "none"},
        TextRow{"noCharset", "A: b\n\n\xE9", "\u00E9\n", "none"},
        TextRow{"badBytes", "Content-Type: text/plain; charset=utf-8\n\na\xE9z", "a\uFFFDz\n",
                "none"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(MailReader, NamesDeclaredCharsetAndMarksAlternative) {
    const Reading mail(kAlternative +
                       "--a\nContent-Type: text/plain; charset=\" Big5 \"\n\nx\n--a\n"
                       "Content-Type: text/html; charset=x-none\n\n\xE9\n--a--");
    EXPECT_EQ(mail.attribute(MPartAttribute::Text)->charset(), "Big5");
    EXPECT_EQ(mail.attribute(MPartAttribute::Text)->flags(), 0U);
    EXPECT_EQ(mail.attribute(MPartAttribute::AltText)->charset(), "x-none");
    EXPECT_EQ(mail.attribute(MPartAttribute::AltText)->flags(), MPartText::kDiffers);
    EXPECT_EQ(Reading("A: b\n\nx").attribute(MPartAttribute::Text)->charset(), "");
}

TEST(MailReader, TellsWhatIsHidden) {
    const Reading mail(kAlternative +
                       "--a\nContent-Type: text/plain; charset=utf-8\n\nx\u200By\n--a\n"
                       "Content-Type: text/html\n\nx&shy;y<i hidden>four</i>\n--a--");
    EXPECT_EQ(mail.mail().disguise().hiddenTextBytes, 4U);
    EXPECT_EQ(mail.mail().disguise().invisibleCharacters, 2U);
}

TEST(MailReader, KeepsHeadersAsReceivedButUnfolded) {
    const Reading mail("\xEF\xBB\xBFReturn-Path: <Joe@B.example>\r\n"
                       "Subject:  =?utf-8?Q?a?=\r\n\t=?utf-8?Q?b?= \r\nEmpty:\r\n \r\n"
                       "X: y\r\nstray line\r\n\xE9: line\r\n  more\r\nX-8bit : caf\xE9\r\nSUBJECT: "
                       "second\r\n\r\nbody: x\r\n");
    EXPECT_EQ(mail.header("subject"), "=?utf-8?Q?a?=\t=?utf-8?Q?b?= ");
    EXPECT_EQ(mail.header("x-8BIT"), "caf\xE9");
    EXPECT_EQ(mail.header("Empty"), "");
    EXPECT_EQ(mail.mail().properties()->headers()->size(), 6U);
    EXPECT_EQ(mail.mail().sender().address(), "Joe@B.example");
    EXPECT_EQ(mail.raw(), "body: x\r\n");
}

TEST(MailReader, DecodesNothingOnceTheBudgetHasEnded) {
    const std::string message = "Subject: x\nContent-Type: multipart/mixed; boundary=b\n\n"
                                "--b\n\nfirst\n--b\n\nsecond\n--b--\n";
    Budget budget(std::chrono::nanoseconds(0));
    budget.end();
    const Budget::Use use(budget);
    const Mail mail = MailReader().read(message.data(), message.size());
    EXPECT_EQ(mail.properties()->headers().find("Subject").value(), "x");
    const MimePart &part = *mail.properties()->part();
    const auto *text = dynamic_cast<const MPartText *>(part.findAttr(MPartAttribute::Text));
    EXPECT_TRUE(text == nullptr || text->text().isEmpty());
    const auto *raw = dynamic_cast<const MPartText *>(part.findAttr(MPartAttribute::RawText));
    ASSERT_NE(raw, nullptr);
    EXPECT_GT(raw->text().length(), 0U);
}

TEST(MailReader, EmptyMessageHasNoMainPart) {
    const Mail mail = MailReader().read(nullptr, 0);
    EXPECT_EQ(mail.properties()->headers()->size(), 0U);
    EXPECT_EQ(mail.properties()->part().operator->(), nullptr);
    EXPECT_TRUE(mail.sender().isNull());
}

TEST(MailReader, TakesUrisOfEverySource) {
    const Reading mail("List-Unsubscribe: <http://h>\n" + kAlternative +
                       "--a\n\nhttp://t\n--a\nContent-Type: text/html\n\n"
                       "<a href='http://l'>http://s</a>\n--a--");
    EXPECT_EQ(mail.uris(), "0http://h 1http://t 2http://l 2http://s ");
}

struct LimitRow {
    const char *name;
    MailLimit limit;
    unsigned int value;
    // A message of which count units count for the limit.
    std::function<std::string(unsigned int count)> message;
    // What is left of it, in the same units.
    std::function<std::size_t(const Reading &mail)> kept;
};

void PrintTo(const LimitRow &row, std::ostream *out) {
    *out << row.name;
}

class MailLimitsTest : public testing::TestWithParam<LimitRow> {};

TEST_P(MailLimitsTest, CutsAndReportsWhatIsBeyond) {
    const LimitRow &row = GetParam();
    MailLimits limits;
    limits.value(row.limit, row.value);
    for (const unsigned int count : {row.value - 1, row.value, row.value + 1}) {
        const Reading mail(row.message(count), limits);
        EXPECT_EQ(row.kept(mail), std::min(count, row.value)) << count;
        EXPECT_EQ(mail.mail().limitsHit(),
                  count > row.value ? MailLimitSet{row.limit} : MailLimitSet())
            << count << ' ' << mailLimitName(row.limit);
    }
}

std::string htmlMail(const std::string &html) {
    return "Content-Type: text/html\n\n" + html;
}

std::string nested(unsigned int depth) {
    std::string message;
    for (unsigned int i = 0; i < depth; ++i) {
        const std::string boundary = "b" + std::to_string(i);
        message += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary +
                   "\n\nx\n--" + boundary + "\n";
    }
    return message;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MailLimitsTest,
    testing::Values(
        LimitRow{"messageBytes", MailLimit::MessageBytes, 40,
                 [](unsigned int n) { return "A: b\n\n" + std::string(n - 6, 'x'); },
                 [](const Reading &mail) { return mail.raw().size() + 5; }},
        LimitRow{"headers", MailLimit::Headers, 9,
                 [](unsigned int n) { return repeated("A: b\n c\n", n) + "\nx"; },
                 [](const Reading &mail) { return mail.mail().properties()->headers()->size(); }},
        LimitRow{"headerBytes", MailLimit::HeaderBytes, 100,
                 [](unsigned int n) {
                     return "Content-Type: text/plain\nA: " + std::string(45, 'a') +
                            "\nB: " + std::string(n - 55, 'x') + "\n\nx";
                 },
                 [](const Reading &mail) {
                     EXPECT_EQ(mail.header("Content-Type"), "text/plain");
                     const std::size_t bytes = 50 + 5 + mail.header("B").size();
                     return mail.hit(MailLimit::HeaderBytes) ? 100U : bytes;
                 }},
        LimitRow{"headerValue", MailLimit::HeaderValueBytes, 50,
                 [](unsigned int n) { return "S: abc\n " + std::string(n - 4, 'x') + "\n\nx"; },
                 [](const Reading &mail) { return mail.header("S").size(); }},
        LimitRow{"textBytes", MailLimit::TextBytes, 50,
                 [](unsigned int n) { return "A: b\n\n" + std::string(n - 1, 'x') + "\n"; },
                 [](const Reading &mail) { return mail.text().size(); }},
        LimitRow{"textBytesWithoutLineEnd", MailLimit::TextBytes, 50,
                 [](unsigned int n) { return htmlMail(std::string(n - 1, 'x')); },
                 [](const Reading &mail) { return mail.text().size(); }},
        LimitRow{"rawBodyBytes", MailLimit::RawBodyBytes, 50,
                 [](unsigned int n) { return "A: b\n\n" + std::string(n - 1, 'x') + "\n"; },
                 [](const Reading &mail) { return mail.raw().size(); }},
        LimitRow{"decodedBytes", MailLimit::DecodedBytes, 50,
                 [](unsigned int n) {
                     return kMultipart + "--b\n\n" + std::string(20, 'x') + "\n--b\n" +
                            "Content-Transfer-Encoding: quoted-printable\n\n" +
                            repeated("=41", n - 20) + "\n--b--";
                 },
                 [](const Reading &mail) { return mail.text().size() - 2; }},
        LimitRow{"htmlBytes", MailLimit::HtmlBytes, 50,
                 [](unsigned int n) {
                     return kMultipart + "--b\n" + htmlMail(std::string(20, 'x')) + "\n--b\n" +
                            htmlMail(std::string(n - 20, 'x')) + "\n--b--";
                 },
                 [](const Reading &mail) { return mail.text().size() - 2; }}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(MailReader, CutsTextBetweenLinesAndCharacters) {
    MailLimits limits;
    limits.value(MailLimit::TextBytes, 20);
    limits.value(MailLimit::RawBodyBytes, 20);
    EXPECT_EQ(Reading("A: b\n\n0123456789\n0123456789\n", limits).text(), "0123456789\n");
    // An early line end would hide nearly everything behind it.
    EXPECT_EQ(Reading("A: b\n\n0\n" + std::string(30, 'x'), limits).raw(),
              "0\n" + std::string(17, 'x') + "\n");
    EXPECT_EQ(Reading("A: b\n\n" + std::string(18, 'x') + "\u4E2D\u6587", limits).text(),
              std::string(18, 'x') + "\n");
}

TEST(MailReader, HostileMessagesAreAnswered) {
    struct Row {
        std::string message;
        MailLimitSet limits;
        std::string textStart;
    };
    constexpr std::size_t kMany = 100000;
    std::string attributes;
    for (std::size_t i = 0; i < kMany; ++i) {
        attributes += " a" + std::to_string(i);
    }
    const Row rows[] = {
        {"A: b\n\n" + std::string(33U << 20U, 'x'),
         {MailLimit::MessageBytes, MailLimit::DecodedBytes, MailLimit::TextBytes,
          MailLimit::RawBodyBytes},
         "xxx"},
        {"Content-Transfer-Encoding: base64\n\n" + std::string(32U << 20U, 'A'),
         {MailLimit::MessageBytes, MailLimit::DecodedBytes, MailLimit::TextBytes,
          MailLimit::RawBodyBytes},
         std::string(3, '\0')},
        {"Subject: " + std::string(256U << 10U, 'x') + "\nB: c\n\nbody",
         {MailLimit::HeaderValueBytes},
         "body\n"},
        {"Subject: x\n" + repeated(" y\n", kMany / 10) + repeated("A: b\n", kMany) + "\nbody",
         {MailLimit::Headers, MailLimit::HeaderBytes, MailLimit::HeaderValueBytes},
         "body\n"},
        {htmlMail(repeated("<font>", 500000 / 6) + "seen"), {MailLimit::RawBodyBytes}, "seen\n"},
        {htmlMail("<p" + attributes + ">seen"), {MailLimit::RawBodyBytes}, "seen\n"},
        {htmlMail(repeated("<a href=http://x.example>", kMany)), {MailLimit::RawBodyBytes}, ""},
        {kMultipart + repeated("--b\n\n", kMany), {MailLimit::RawBodyBytes}, ""},
        {kMultipart + repeated("--b\n\nx\n", kMany),
         {MailLimit::Parts, MailLimit::TextBytes, MailLimit::RawBodyBytes},
         "x\n"},
        {nested(10000),
         {MailLimit::NestingDepth, MailLimit::Parts, MailLimit::RawBodyBytes},
         "x\n"}};
    for (const Row &row : rows) {
        const Reading mail(row.message);
        EXPECT_EQ(mail.mail().limitsHit(), row.limits) << row.message.substr(0, 60);
        EXPECT_EQ(mail.text().substr(0, row.textStart.size()), row.textStart);
        EXPECT_LE(mail.header("Subject").size(), kMaxHeaderValueBytes);
    }
}

TEST(MailReader, FileThatCannotBeReadIsNamed) {
    for (const std::string path : {"/nonexistent/mail", "/"}) {
        try {
            MailReader().read(File::Path(path));
            FAIL() << path;
        } catch (const Exception &failure) {
            EXPECT_EQ(failure.message(), "MailReader::read");
            EXPECT_EQ(failure.code(), Exception::kGeneral);
            EXPECT_EQ(failure.parameters().at(0).substr(0, path.size() + 2), path + ": ");
        }
    }
}

// A message in a string is one, whatever it looks like; a file is named by a path.
TEST(MailReader, TakesAMessageInAString) {
    const std::string message = "Subject: hello\n\ntext\n";
    EXPECT_EQ(Reading(MailReader().read(message)).header("Subject"), "hello");
    EXPECT_EQ(Reading(MailReader().read("Subject: hello\n\n")).header("Subject"), "hello");
    EXPECT_EQ(Reading(MailReader().read(std::string_view("/dev/null"))).text(), "/dev/null\n");
}

TEST(MailReader, ReadsFilesAndStreamsToTheLimit) {
    MailLimits limits;
    limits.value(MailLimit::MessageBytes, 200000);
    const Reading device(MailReader(limits).read(File::Path("/dev/zero")));
    EXPECT_TRUE(device.hit(MailLimit::MessageBytes));
    EXPECT_EQ(MailReader().read(File::Path("/dev/null")).properties()->headers()->size(), 0U);
}

void expectSaneText(const MPartText *found, std::size_t maxBytes) {
    if (found == nullptr) {
        return;
    }
    const std::string text = found->text().asString();
    EXPECT_LE(text.size(), maxBytes);
    EXPECT_TRUE(text.empty() || text.back() == '\n');
    if (maxBytes == kMaxTextBytes) {
        EXPECT_TRUE(isValidUtf8(text.data(), text.size()));
    }
}

// Every message below CORVANE_MAIL_DIR, or the tests' own ones.
TEST(MailReader, RealMessagesKeepTheContract) {
    const char *chosen = std::getenv("CORVANE_MAIL_DIR");
    const std::string directory = chosen != nullptr ? chosen : CORVANE_TEST_DATA_DIR "/mail";
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.path().extension() != ".eml") {
            continue;
        }
        SCOPED_TRACE(entry.path().string());
        const Reading mail(MailReader().read(File::Path(entry.path().string())));
        ++count;
        if (mail.mail().properties()->part().operator->() == nullptr) {
            EXPECT_EQ(entry.file_size(), 0U);
            continue;
        }
        ASSERT_NE(mail.attribute(MPartAttribute::RawText), nullptr);
        expectSaneText(mail.attribute(MPartAttribute::RawText), kMaxRawBodyBytes);
        expectSaneText(mail.attribute(MPartAttribute::Text), kMaxTextBytes);
        expectSaneText(mail.attribute(MPartAttribute::AltText), kMaxTextBytes);
        EXPECT_LE(mail.mail().properties()->headers()->size(), kMaxHeaders);
        mail.uris();
    }
    EXPECT_GT(count, 0U);
}

TEST(MailReader, SeesWholeUrisOfCutHeaders) {
    const std::string padding(kMaxHeaderValueBytes - 10, 'x');
    const Reading mail("A: " + padding + " http://b.example/path http://c.example/\n\n");
    EXPECT_EQ(mail.header("A").size(), kMaxHeaderValueBytes);
    EXPECT_EQ(mail.uris(), "0http://b.example/path 0http://c.example/ ");
}

} // namespace
} // namespace Corvane
