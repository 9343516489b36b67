// What stands in front of a text must not hide it, however much it is and whatever it looks like.

#include "host/parser/MimeStructure.h"

#include <string>

#include <gtest/gtest.h>

#include "support/ReadMail.h"

namespace Corvane {
namespace {

const std::string kMixed = "Content-Type: multipart/mixed; boundary=b\n\n";
const std::string kMessagePart = "--b\nContent-Type: message/rfc822\n";
const std::string kInner = "From: a@b.example\nSubject: =?utf-8?Q?inner?=\n\nhttp://in.example/\n";

std::string multipart(const std::string &contentType, const std::string &delimiter) {
    return "Content-Type: " + contentType + "\n\npreamble\n" + delimiter +
           "\nContent-Transfer-Encoding: base64\n\naGVsbG8=\n" + delimiter + "--\n";
}

class BoundaryForm : public testing::TestWithParam<TextRow> {};

TEST_P(BoundaryForm, IsFound) {
    EXPECT_EQ(Reading(GetParam().message).text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BoundaryForm,
    testing::Values(
        TextRow{"empty", multipart("multipart/mixed; boundary=\"\"", "--"), "hello\n", ""},
        TextRow{"tenThousandLetters",
                multipart("multipart/mixed; boundary=\"" + std::string(10000, 'x') + "\"",
                          "--" + std::string(10000, 'x')),
                "hello\n", ""},
        TextRow{"behindALongParameter",
                multipart("multipart/mixed; name=\"" + std::string(20000, 'x') + "\"; boundary=b",
                          "--b"),
                "hello\n", ""},
        TextRow{"apostrophesBelongToIt", multipart("multipart/mixed; boundary='b'", "--'b'"),
                "hello\n", ""},
        TextRow{"apostrophesAroundIt", multipart("multipart/mixed; boundary='b'", "--b"), "hello\n",
                ""},
        TextRow{"escapes", multipart("multipart/mixed; boundary=\"a\\\"b\"", "--a\"b"), "hello\n",
                ""},
        TextRow{"blankWithoutQuotes", multipart("multipart/mixed; boundary=a b; x=y", "--a b"),
                "hello\n", ""},
        TextRow{"commentBehindIt", multipart("multipart/mixed; boundary=b(c)", "--b"), "hello\n",
                ""},
        TextRow{"openQuote", multipart("multipart/mixed; boundary=\"b", "--b"), "hello\n", ""},
        TextRow{"folded", multipart("multipart/mixed;\n\tboundary=\n \"b\"", "--b"), "hello\n", ""},
        TextRow{"numberedPieces",
                multipart("multipart/mixed; boundary*1=c; boundary*0=\"b\"", "--bc"), "hello\n",
                ""},
        TextRow{"extended", multipart("multipart/mixed; boundary*=us-ascii'en'b%2Dc", "--b-c"),
                "hello\n", ""},
        TextRow{"noSemicolon", multipart("multipart/mixed boundary=b", "--b"), "hello\n", ""},
        TextRow{"openComment", multipart("multipart/mixed; (x; boundary=b", "--b"), "hello\n", ""},
        TextRow{"nulInTheType",
                multipart(std::string("multi\0part/mixed\0; boundary=b", 29), "--b"), "hello\n",
                ""},
        TextRow{"typeThatIsNone", multipart("<multipart/alternative>; boundary=b", "--b"),
                "hello\n", ""},
        TextRow{"endsInDashes", multipart("multipart/mixed; boundary=\"b--\"", "--b--"), "hello\n",
                ""},
        TextRow{"sameInside",
                kMixed + "--b\n" + multipart("multipart/mixed; boundary=b", "--b") +
                    "\n--b\n\nbehind\n--b--",
                "hello\nbehind\n", ""}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(MimeStructure, NothingInFrontHidesATextOrCutsUnnamed) {
    struct Row {
        const char *what;
        std::string message;
        MailLimitSet limits;
    };
    std::string nested;
    for (unsigned int i = 0; i < kMaxNestingDepth + 300; ++i) {
        const std::string boundary = "b" + std::to_string(i);
        nested +=
            "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + '\n';
    }
    const std::string text = "--b\nContent-Type: text/html\n\nhidden <b>text</b>\n--b--\n";
    const std::string picture = "--b\nContent-Type: image/png\n\nx\n";
    const Row rows[] = {
        {"empty parts", kMixed + repeated("--b\n\n", 5000) + text, {}},
        {"empty multiparts",
         kMixed + repeated("--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n--c--\n", 5000) +
             text,
         {}},
        {"pictures", kMixed + repeated(picture, 5000) + text, {}},
        {"parts", kMixed + repeated("--b\n\n.\n", 5000) + text, {MailLimit::Parts}},
        {"nesting",
         nested + "Content-Type: text/html\n\nhidden <b>text",
         {MailLimit::NestingDepth}},
        {"headers",
         repeated("A: b\n", 5000) + "Content-Transfer-Encoding: base64\n\naGlkZGVuIHRleHQ=",
         {MailLimit::Headers}},
        {"headers of a part",
         kMixed + "--b\n" + repeated("A: b\n", 5000) +
             "Content-Transfer-Encoding: base64\n\naGlkZGVuIHRleHQ=\n--b--",
         {}},
        {"a long header",
         "A: " + std::string(2U << 20U, 'x') +
             "\nContent-Transfer-Encoding: base64\n\naGlkZGVuIHRleHQ=",
         {MailLimit::HeaderValueBytes}},
        {"blank lines", "A: b\n\n" + repeated("\n", 200000) + "hidden text\n", {}}};
    for (const Row &row : rows) {
        const Reading mail(row.message);
        EXPECT_NE(mail.text().find("hidden text\n"), std::string::npos) << row.what;
        MailLimitSet hits = mail.mail().limitsHit();
        hits.erase(MailLimit::RawBodyBytes);
        EXPECT_EQ(hits, row.limits) << row.what;
    }
}

TEST(MimeStructure, HeadersThatMatterAreKeptWhereverTheyStand) {
    std::string headers;
    for (const char *name : {"Subject", "FROM", "to", "Cc", "Reply-To", "Date", "Message-Id",
                             "Return-Path", "List-Id", "List-Unsubscribe", "MIME-Version"}) {
        headers += std::string(name) + ": first <a@b.example>\n" + name + ": second\n";
    }
    const Reading mail(repeated("X: y\n", 3000) + headers + "\nbody\n");
    EXPECT_EQ(mail.mail().properties()->headers()->size(), kMaxHeaders + 11U);
    EXPECT_EQ(mail.header("Subject"), "first <a@b.example>");
    EXPECT_EQ(mail.header("List-Unsubscribe"), "first <a@b.example>");
    EXPECT_EQ(mail.mail().sender().address(), "a@b.example");
    EXPECT_EQ(mail.mail().limitsHit(), MailLimitSet{MailLimit::Headers});
}

// Too many parts are read in several tables; what is an alternative of what is known within one.
TEST(MimeStructure, ReadsPartsBeyondTheLimitAsFurtherText) {
    MailLimits limits;
    limits.value(MailLimit::Parts, 2);
    const std::string html = "Content-Type: text/html\n\n";
    const Reading mail("Content-Type: multipart/alternative; boundary=a\n\n--a\n" + html +
                           "1\n--a\n\n2\n--a\n" + html + "3\n--a\n\n4\n--a\n" + html + "5\n--a--\n",
                       limits);
    EXPECT_EQ(mail.text(), "2\n4\n5\n");
    EXPECT_EQ(mail.alternative(), "1\n3\n");
    EXPECT_EQ(mail.mail().limitsHit(), MailLimitSet{MailLimit::Parts});
}

TEST(MimeStructure, EntersMessagesThatAreShown) {
    const TextRow rows[] = {
        {"root", "Content-Type: message/rfc822\n\n" + kInner, "inner\nhttp://in.example/\n", ""},
        {"inline", kMixed + "--b\n\nouter\n" + kMessagePart + "\n" + kInner + "--b--",
         "outer\ninner\nhttp://in.example/\n", ""},
        {"base64",
         kMixed + kMessagePart +
             "Content-Transfer-Encoding: base64\n\n"
             "U3ViamVjdDogaW5uZXIKQ29udGVudC1UeXBlOiB0ZXh0L2h0bWwKCjxhIGhyZWY9aHR0cDovL2luLmV4"
             "YW1wbGUvPng8L2E+Cg==\n--b--",
         "inner\nx\n", ""},
        {"digest", "Content-Type: multipart/digest; boundary=b\n\n--b\n\n" + kInner + "--b--",
         "inner\nhttp://in.example/\n", ""}};
    for (const TextRow &row : rows) {
        const Reading mail(row.message);
        EXPECT_EQ(mail.text(), row.text) << row.name;
        EXPECT_NE(mail.uris().find("http://in.example/ "), std::string::npos) << row.name;
    }
    const Reading attached(kMixed + "--b\n\nouter\n" + kMessagePart +
                           "Content-Disposition: attachment\n\n" + kInner + "--b--");
    EXPECT_EQ(attached.text(), "outer\n");
    EXPECT_EQ(attached.uris(), "");
}

TEST(MimeStructure, InnerMessageHasAlternativesOfItsOwn) {
    const Reading mail(kMixed + kMessagePart +
                       "\nSubject: s\nContent-Type: multipart/alternative; boundary=a\n\n"
                       "--a\nContent-Type: text/plain; charset=koi8-r\n\nplain\n--a\n"
                       "Content-Type: text/html\n\n<p>html\n--a--\n--b--");
    EXPECT_EQ(mail.text(), "s\nplain\n");
    EXPECT_EQ(mail.alternative(), "html\n");
    EXPECT_EQ(mail.attribute(MPartAttribute::Text)->charset(), "koi8-r");
}

TEST(MimeStructure, EntersMessagesWithinTheLimitOnNesting) {
    MailLimits limits;
    limits.value(MailLimit::NestingDepth, 3);
    for (const unsigned int depth : {2U, 3U, 4U}) {
        const Reading mail(repeated("Content-Type: message/rfc822\n\n", depth) + "\ntext\n",
                           limits);
        EXPECT_EQ(mail.text(), depth > 3 ? "none" : "text\n") << depth;
        EXPECT_EQ(mail.hit(MailLimit::NestingDepth), depth > 3) << depth;
    }
}

} // namespace
} // namespace Corvane
