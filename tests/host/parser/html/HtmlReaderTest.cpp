#include "host/parser/html/HtmlReader.h"

#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "host/parser/Charset.h"
#include "host/parser/html/MetaCharset.h"

namespace Corvane::Html {
namespace {

std::string repeated(const std::string &piece, unsigned int count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (unsigned int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

struct Rendering {
    std::string text;
    std::string sent;
    std::size_t hiddenBytes = 0;
    std::size_t invisibleCharacters = 0;
    std::string uris;
    MailLimitSet hits;
};

Rendering render(const std::string &html, unsigned int maxTagBytes = kMaxHtmlTagBytes) {
    Rendering result;
    MailLimits limits;
    limits.value(MailLimit::HtmlTagBytes, maxTagBytes);
    UriCollector uris(limits, result.hits);
    std::size_t textBytesLeft = limits.value(MailLimit::HtmlBytes);
    HtmlReader reader(limits, result.hits, uris, textBytesLeft);
    reader.feed(html);
    const SentAndSeen text = reader.take();
    result.text = text.seen;
    result.sent = text.differs ? text.sent : "same";
    result.hiddenBytes = text.hiddenBytes;
    result.invisibleCharacters = text.invisibleCharacters;
    const auto *found = dynamic_cast<const UriContainer *>(uris.attribute().operator->());
    for (const auto &[source, list] : found->sourced()) {
        for (const Uri &uri : list) {
            result.uris += std::to_string(source) + uri.asString() + ' ';
        }
    }
    return result;
}

struct HtmlRow {
    const char *name;
    std::string html;
    std::string expected;
};

void PrintTo(const HtmlRow &row, std::ostream *out) {
    *out << row.name;
}

class HtmlReaderText : public testing::TestWithParam<HtmlRow> {};

TEST_P(HtmlReaderText, GivesWhatReaderSees) {
    const std::string &lines = GetParam().expected;
    EXPECT_EQ(render(GetParam().html).text, lines + (lines.empty() ? "" : "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HtmlReaderText,
    testing::Values(
        HtmlRow{"empty", "", ""}, HtmlRow{"plain", "just text", "just text"},
        HtmlRow{"blocks", "<p>one<p>two<div>three<div>four</div>five</div>six<br><br/>seven",
                "one\ntwo\nthree\nfour\nfive\nsix\nseven"},
        HtmlRow{"inlineTags", "V<b></b>ia<i>g</i>r<font size=1>a</font>", "Viagra"},
        HtmlRow{"spaces", " a \n\t b<b> </b> c&nbsp;&#160; d <p> e ", "a b c d\ne"},
        HtmlRow{"table", "<table><tr><td>a<td>b</tr><tr><td>c</td></tr></table>d", "a b\nc\nd"},
        HtmlRow{"preformatted", "<pre>a\n  b\n</pre>c\nd", "a\nb\nc d"},
        HtmlRow{"scripts", "a<script>if (x<y) 'b</b>'</script><style>p{}</style>b<!-- <p>c -->d",
                "abd"},
        HtmlRow{"scriptThatLooksLikeLongTag",
                "<script><x " + repeated("y ", 20000) + "</script><p>seen", "seen"},
        HtmlRow{"entities", "&lt;b&gt; &amp;amp; &eacute;&#x4E2D;&#25991; &bogus; AT&T&#0;",
                "<b> &amp; \u00E9\u4E2D\u6587 &bogus; AT&T\uFFFD"},
        HtmlRow{"metaIsIgnored",
                "<meta charset=iso-8859-1><meta http-equiv=content-type "
                "content='text/html; charset=utf-16'>\u00E9\u4E2D",
                "\u00E9\u4E2D"},
        HtmlRow{"nulBytes", std::string("<b\0>a\0b</b\0>c", 13), "abc"},
        HtmlRow{"unclosed", "<p>a<b>b<i title='c", "ab"},
        HtmlRow{"titleAndHead", "<html><head><title>T</title></head><body>B</body></html>C",
                "B\nC\nT"},
        HtmlRow{"strayEndTags", "</x>a</html>b</body></html>c<p>d</p></body></html>e</p></html>f",
                "a\nb\nc\nd\ne\nf"},
        HtmlRow{"secondDocument",
                "<html><body>a</body></html><html><head><style>x</style></head>"
                "<body>b</body></html>",
                "a\nb"},
        HtmlRow{"comments",
                "a<!-->b<!--->c<!-- > -- --!>d<!--<!x>-->e</!--x--></><p title='<!--'>f</P><!--g",
                "abcde\nf\n<!--"},
        HtmlRow{"markupInScript", "<script>'<!--</html>'</script>a<style><!-- </style>b", "ab"},
        HtmlRow{"declarations",
                "<?xml version='1.0'?><!DOCTYPE html><html xmlns='x'><!x>a"
                "<![CDATA[b]]><![if !mso]>c<![endif]><?php d ?>e",
                "ace"}),
    [](const auto &row) { return std::string(row.param.name); });

struct LinkRow {
    const char *name;
    std::string html;
    std::string expected; // each with a blank behind it
};

void PrintTo(const LinkRow &row, std::ostream *out) {
    *out << row.name;
}

class HtmlLinks : public testing::TestWithParam<LinkRow> {};

TEST_P(HtmlLinks, ListsWhereTheyLead) {
    std::string expected;
    std::istringstream links(GetParam().expected);
    for (std::string link; links >> link;) {
        expected += "2" + link + ' ';
    }
    EXPECT_EQ(render(GetParam().html).uris, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HtmlLinks,
    testing::Values(
        LinkRow{"attributes",
                "<a HREF=' http://a/?x=1&amp;y=2 '>x</a><img src=//i/1.gif><form action=\"/go\">"
                "<a href></a><a href=http://a/?x=1&amp;y=2>x</a><img alt=''>",
                "http://a/?x=1&y=2 //i/1.gif /go"},
        LinkRow{"glued",
                "<a/href=\"http://a/\">x</a><a/b/href=http://b>x</a><img/src=c><a a=\"b\"/href=d>x"
                "</a><img\fsrc=e>",
                "http://a/ http://b c d e"},
        LinkRow{"references", "<a href='http&colon;&sol;&sol;a&period;b&#x2f;'>x</a>",
                "http://a.b/"},
        LinkRow{"otherAttributes",
                "<button formaction=a></button><td background=b><video poster=c></video>"
                "<object data=d></object><svg><image xlink:href=e /></svg><input src=f>",
                "a b c d e f"},
        LinkRow{"srcset", "<img srcset='a 1x, b,c 2x,,d (x, y) 3x, e'>", "a b,c d e"},
        LinkRow{"refresh",
                "<meta http-equiv=Refresh content='5 ; URL = \"http://a/\" x'>"
                "<meta http-equiv=refresh content='0,http://b'><meta content='0;url=http://c'>",
                "http://a/ http://b"},
        LinkRow{"css",
                "<style>@import \"a\"; @import url(b); p{background:url( 'c' )}"
                "@media x{p{background:URL(d)}}/*url(e)*/</style><p style='background:url(\"f\")'>",
                "a b c d f"},
        LinkRow{"vml",
                "<!--[if gte mso 9]><v:rect href=\"a\"><v:fill src='b'/></v:rect><![endif]-->",
                "a b"},
        LinkRow{"plainComment", "<!-- <a href=a>x</a> -->", ""},
        LinkRow{"asBrowsersRead",
                "<a href='ht\ntp:\\\\a\\b?c\\d'>x</a><a href=' \x01https:/e'>x</a>",
                "http:\\\\a\\b?c\\d http://a/b?c\\d \x01https:/e https://e"},
        LinkRow{
            "base",
            "<a href=b>x</a><base href='http://a/c/d?e'><base href=http://z><a href=../f?g>x</a>"
            "<a href=/h>x</a><a href=//i>x</a><a href=?j>x</a><a href=mailto:k>x</a>",
            "b http://a/c/d?e http://a/c/b http://z ../f?g http://a/f?g /h http://a/h //i "
            "http://i ?j http://a/c/d?j mailto:k"},
        LinkRow{"text", "see http://a/<b>b</b> <span hidden>www.c.example</span>",
                "http://a/b http://www.c.example"},
        LinkRow{"foreignStyle", "<svg><style><a href=b>x</a></style></svg>", "b"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(HtmlReaderText, HiddenLinksLeaveRoomForShownOnes) {
    std::string html;
    for (unsigned int i = 0; i <= kMaxUris; ++i) {
        html +=
            "<a href=" + std::to_string(i) + "x>" + (i % 2 == 0 ? "" : "<b hidden>x</b>") + "</a>";
    }
    const Rendering result = render(html + "<a href=http://shown>seen</a>");
    EXPECT_NE(result.uris.find("2http://shown "), std::string::npos);
    EXPECT_EQ(result.hits, MailLimitSet{MailLimit::Uris});
}

TEST(HtmlReaderText, CutsValuesBetweenCharacters) {
    constexpr unsigned int kLimit = 5;
    EXPECT_EQ(render("<img alt='\u4E2D\u4E2D'>", kLimit).text, "\u4E2D\n");
}

TEST(HtmlReaderText, CutsLongValue) {
    constexpr unsigned int kLimit = 64;
    for (const unsigned int length : {kLimit - 1, kLimit, kLimit + 1, 5 * kLimit}) {
        for (const std::string quote : {"\"", "'", ""}) {
            const std::string junk(5 * kLimit, 'x');
            const std::string tag = "<a id2=" + quote + junk + quote + " " + junk +
                                    " href=" + quote + std::string(length, 'u') + quote + ">";
            const Rendering result = render("one<p>" + tag + "two</a><p>three", kLimit);
            EXPECT_EQ(result.text, "one\ntwo\nthree\n") << tag;
            EXPECT_EQ(result.uris, "2" + std::string(std::min(length, kLimit), 'u') + " ");
            EXPECT_EQ(result.hits.count(MailLimit::HtmlTagBytes), length > kLimit ? 1U : 0U);
        }
    }
}

// Each of these takes minutes or gigabytes where a parser is not kept in check.
TEST(HtmlReaderText, HostileHtmlIsAnswered) {
    constexpr unsigned int kMany = 100000;
    std::string attributes = "<p";
    std::string tags;
    for (unsigned int i = 0; i < kMany; ++i) {
        attributes += " a" + std::to_string(i);
        tags += i % 2000 == 0 ? (i == 0 ? "<p" : "><p") : "";
        tags += " b" + std::to_string(i) + "='>'";
    }
    const std::string rows[] = {repeated("<font>", kMany),
                                repeated("<b>", kMany) + "<div>" + repeated("<i>", kMany) +
                                    repeated("</b>", kMany),
                                repeated("<table><tr><td>", kMany),
                                repeated("&amp;", 4 * kMany),
                                repeated("&#", 4 * kMany),
                                repeated("<", 10 * kMany),
                                repeated("<a b='", kMany),
                                repeated("<!--", kMany),
                                attributes + ">",
                                tags + ">",
                                repeated("a<!x>", 4 * kMany),
                                repeated("</html>", 4 * kMany),
                                "<a " + repeated("<!--", 4 * kMany),
                                repeated("</x>", 4 * kMany)};
    for (const std::string &html : rows) {
        const Rendering result = render(html + "'\" --><p>last words http://last");
        const std::string name = html.substr(0, 20);
        EXPECT_NE(result.uris.find("2http://last"), std::string::npos) << name;
        EXPECT_TRUE(result.text.size() > kMaxTextBytes ||
                    result.text.find("last words") != std::string::npos)
            << name;
    }
}

TEST(HtmlReaderText, EndsBetweenCharactersAtItsLimit) {
    const std::string text = "a\u00E9\u4E2D\u4E2D\U0001F600b";
    for (std::size_t bytes = 0; bytes <= text.size(); ++bytes) {
        MailLimitSet hits;
        const MailLimits limits;
        UriCollector uris(limits, hits);
        std::size_t textBytesLeft = bytes;
        HtmlReader reader(limits, hits, uris, textBytesLeft);
        reader.feed(text);
        const std::string seen = reader.take().seen;
        EXPECT_TRUE(isValidUtf8(seen.data(), seen.size())) << bytes;
        EXPECT_GE(seen.size() + 3, bytes);
        EXPECT_EQ(hits.count(MailLimit::HtmlBytes), bytes < text.size() ? 1U : 0U);
    }
}

TEST(MetaCharset, FindsDeclaration) {
    EXPECT_EQ(metaCharset("<META http-equiv=Content-Type content=\"text/html; Charset = "
                          "KOI8-R\">"),
              "koi8-r");
    EXPECT_EQ(metaCharset("<meta name=x><meta charset='big5'/>"), "big5");
    EXPECT_EQ(metaCharset("<meta charset"), "");
    EXPECT_EQ(metaCharset("charset=big5<meta name=x>charset=big5"), "");
    EXPECT_EQ(metaCharset(""), "");
    EXPECT_EQ(metaCharset(std::string(5000, ' ') + "<meta charset=big5>"), "");
}

} // namespace
} // namespace Corvane::Html
