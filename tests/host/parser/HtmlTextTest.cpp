#include "host/parser/HtmlText.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace Corvane {
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
    std::string uris;
    MailLimitSet hits;
};

Rendering render(const std::string &html, unsigned int maxTagBytes = kMaxHtmlTagBytes) {
    Rendering result;
    MailLimits limits;
    limits.value(MailLimit::HtmlTagBytes, maxTagBytes);
    UriCollector uris(limits, result.hits);
    result.text = htmlToText(html, limits, result.hits, uris);
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

class HtmlToText : public testing::TestWithParam<HtmlRow> {};

TEST_P(HtmlToText, GivesWhatReaderSees) {
    const std::string &lines = GetParam().expected;
    EXPECT_EQ(render(GetParam().html).text, lines + (lines.empty() ? "" : "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HtmlToText,
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
        HtmlRow{"entities", "&lt;b&gt; &amp;amp; &eacute;&#x4E2D;&#25991; &bogus; AT&T &#0;",
                "<b> &amp; \u00E9\u4E2D\u6587 &bogus; AT&T"},
        HtmlRow{"metaIsIgnored",
                "<meta charset=iso-8859-1><meta http-equiv=content-type "
                "content='text/html; charset=utf-16'>\u00E9\u4E2D",
                "\u00E9\u4E2D"},
        HtmlRow{"nulBytes", std::string("<b\0>a\0b</b\0>c", 13), "abc"},
        HtmlRow{"unclosed", "<p>a<b>b<i title='c", "ab"},
        HtmlRow{"titleAndHead", "<html><head><title>T</title></head><body>B</body></html>C",
                "T\nB\nC"},
        HtmlRow{"strayEndTags", "</x>a</html>b</body></html>c<p>d</p></body></html>e</p></html>f",
                "a\nb\nc\nd\ne\nf"},
        HtmlRow{"secondDocument",
                "<html><body>a</body></html><html><head><style>x</style></head>"
                "<body>b</body></html>",
                "a\nb"},
        HtmlRow{"comments",
                "a<!-->b<!--->c<!-- > -- --!>d<!--<!x>-->e</!--x--></><p title='<!--'>f</P><!--g",
                "abcde\nf"},
        HtmlRow{"markupInScript", "<script>'<!--</html>'</script>a<style><!-- </style>b", "ab"},
        HtmlRow{"declarations",
                "<?xml version='1.0'?><!DOCTYPE html><html xmlns='x'><!x>a"
                "<![CDATA[b]]><![if !mso]>c<![endif]><?php d ?>e",
                "ace"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(HtmlToText, CollectsUris) {
    const Rendering result =
        render("<base href='http://base/'><a HREF=' http://a/?x=1&amp;y=2 '>http://shown</a>"
               "<img src=//i/1.gif><form action=\"/go\"><a href></a><a href=http://a/?x=1&amp;y=2>"
               "<img alt='http://no'>");
    EXPECT_EQ(result.uris, "2http://a/?x=1&y=2 2//i/1.gif 2/go ");
    EXPECT_TRUE(result.hits.empty());
}

TEST(HtmlToText, CutsLongTag) {
    constexpr unsigned int kLimit = 64;
    for (const unsigned int length : {kLimit - 1, kLimit, kLimit + 1, 5 * kLimit}) {
        for (const char quote : {'"', '\'', ' '}) {
            const std::string start = std::string("<a href=u id=") + quote;
            const std::string end = std::string(1, quote) + ">";
            const std::string tag =
                start + std::string(length - start.size() - end.size(), 'x') + end;
            ASSERT_EQ(tag.size(), length);
            const Rendering result = render("one<p>" + tag + "two</a><p>three", kLimit);
            EXPECT_EQ(result.text, "one\ntwo\nthree\n") << tag;
            EXPECT_EQ(result.uris, "2u ");
            EXPECT_EQ(result.hits.count(MailLimit::HtmlTagBytes), length > kLimit ? 1U : 0U);
        }
    }
}

// Each of these takes minutes or gigabytes where a parser is not kept in check.
TEST(HtmlToText, HostileHtmlIsAnswered) {
    constexpr unsigned int kMany = 100000;
    std::string attributes = "<p";
    std::string tags;
    for (unsigned int i = 0; i < kMany; ++i) {
        attributes += " a" + std::to_string(i);
        tags += i % 2000 == 0 ? (i == 0 ? "<p" : "><p") : "";
        tags += " b" + std::to_string(i) + "='>'";
    }
    const std::pair<std::string, bool> rows[] = {
        {repeated("<font>", kMany), false},
        {repeated("<b>", kMany) + "<div>" + repeated("<i>", kMany) + repeated("</b>", kMany),
         false},
        {repeated("<table><tr><td>", kMany), false},
        {repeated("&amp;", 4 * kMany), false},
        {repeated("&#", 4 * kMany), false},
        {repeated("<", 10 * kMany), false},
        {repeated("<a b='", kMany), true},
        {repeated("<!--", kMany), false},
        {attributes + ">", true},
        {tags + ">", true},
        {repeated("a<!x>", 4 * kMany), false},
        {repeated("</html>", 4 * kMany), false},
        {"<a " + repeated("<!--", 4 * kMany), true},
        {repeated("</x>", 4 * kMany), false}};
    for (const auto &[html, cut] : rows) {
        const Rendering result = render(html + "'\" --><p>last words");
        const std::string name = html.substr(0, 20);
        EXPECT_EQ(result.hits.count(MailLimit::HtmlTagBytes), cut ? 1U : 0U) << name;
        EXPECT_NE(result.text.find("last words"), std::string::npos) << name;
    }
}

TEST(HtmlMetaCharset, FindsDeclaration) {
    EXPECT_EQ(htmlMetaCharset("<META http-equiv=Content-Type content=\"text/html; Charset = "
                              "KOI8-R\">"),
              "koi8-r");
    EXPECT_EQ(htmlMetaCharset("<meta name=x><meta charset='big5'/>"), "big5");
    EXPECT_EQ(htmlMetaCharset("<meta charset"), "");
    EXPECT_EQ(htmlMetaCharset("charset=big5<meta name=x>charset=big5"), "");
    EXPECT_EQ(htmlMetaCharset(""), "");
    EXPECT_EQ(htmlMetaCharset(std::string(5000, ' ') + "<meta charset=big5>"), "");
}

} // namespace
} // namespace Corvane
