// What hides a text from its reader, and what only looks as if it did.
#include <string>

#include <gtest/gtest.h>

#include "host/parser/html/HtmlReader.h"

namespace Corvane::Html {
namespace {

struct Shown {
    SentAndSeen text;
    MailLimitSet hits;
};

Shown show(const std::string &html) {
    Shown shown;
    const MailLimits limits;
    UriCollector uris(limits, shown.hits);
    std::size_t textBytesLeft = limits.value(MailLimit::HtmlBytes);
    HtmlReader reader(limits, shown.hits, uris, textBytesLeft);
    reader.feed(html);
    shown.text = reader.take();
    return shown;
}

std::string filler(const std::string &word) {
    constexpr std::size_t kBytes = 4096;
    std::string text;
    while (text.size() < kBytes) {
        text += word + ' ';
    }
    return "<p>" + text + "</p>";
}

std::string repeated(unsigned int count, const std::string &piece) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

std::string classes(unsigned int count) {
    std::string names;
    for (unsigned int i = 0; i < count; ++i) {
        names += 'c' + std::to_string(i) + ' ';
    }
    return names;
}

const std::string kShowing = ".show{display:block!important}</style>";
const std::string kShown = "<div class=show style='display:none'>kettle</div>";

struct Row {
    const char *name;
    std::string html; // around the word "kettle"
};

void PrintTo(const Row &row, std::ostream *out) {
    *out << row.name;
}

// Where the word stands in a text between two long ones.
struct Place {
    std::size_t word;
    std::size_t behind;
};

Place placeOf(const std::string &text) {
    return {text.find("kettle"), text.find("behind")};
}

class NearMiss : public testing::TestWithParam<Row> {};

TEST_P(NearMiss, StaysInPlace) {
    const SentAndSeen text = show(filler("before") + GetParam().html + filler("behind")).text;
    const Place place = placeOf(text.seen);
    ASSERT_NE(place.word, std::string::npos);
    EXPECT_LT(place.word, place.behind) << text.seen.substr(text.seen.size() - 100);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, NearMiss,
    testing::Values(
        Row{"invalidDisplay", "<div style='display:nonee'>kettle</div>"},
        Row{"otherImportant", "<div style='display:none !ie'>kettle</div>"},
        Row{"hackedValue", "<div style='display:none\\9'>kettle</div>"},
        Row{"laterDisplay", "<div style='display:none;display:block'>kettle</div>"},
        Row{"importantDisplay", "<div style='display:block!important;display:none'>kettle</div>"},
        Row{"displayInString", "<div style='font-family:\"x;display:none\"'>kettle</div>"},
        Row{"displayInComment", "<div style='/*display:none*/color:red'>kettle</div>"},
        Row{"displayInBrackets", "<div style='background:url(x;display:none)'>kettle</div>"},
        Row{"customProperty", "<div style='--x:display:none;mso-hide:all'>kettle</div>"},
        Row{"offScreen",
            "<div style='position:absolute;left:-9999px;text-indent:-999px'>kettle</div>"},
        Row{"visibleInHidden",
            "<div style='visibility:hidden'><b style='visibility:visible'>kettle</b></div>"},
        Row{"sizedInTiny", "<div style='font-size:0'><b style='font-size:12px'>kettle</b></div>"},
        Row{"negativeSize", "<div style='font-size:-1px'>kettle</div>"},
        Row{"smallSize", "<div style='font-size:1px;line-height:0'>kettle</div>"},
        Row{"sizeZeroOfFont", "<font size=0>kettle</font>"},
        Row{"fontWithoutFamily", "<div style='font:0/0'>kettle</div>"},
        Row{"faint", "<div style='opacity:0.01'>kettle</div>"},
        Row{"opacityWithUnit", "<div style='opacity:0px'>kettle</div>"},
        Row{"flatButNotCutOff", "<div style='max-height:0;height:0'>kettle</div>"},
        Row{"flatInline", "<span style='max-height:0;overflow:hidden'>kettle</span>"},
        Row{"flatButPadded",
            "<div style='max-height:0;overflow:hidden;padding:20px 0'>kettle</div>"},
        Row{"flatButAtLeastHigh",
            "<div style='height:0;min-height:1em;overflow:hidden'>kettle</div>"},
        Row{"heightOfUnknown", "<div style='height:0%;overflow:hidden'>kettle</div>"},
        Row{"narrowButNotCutOff", "<div style='width:0'>kettle</div>"},
        Row{"narrowCell", "<table><tr><td width=0 style='width:0;overflow:hidden'>kettle</table>"},
        Row{"whiteOnNothing", "<font color=white>kettle</font>"},
        Row{"nearlyWhite", "<div style='color:#fffffe;background:#fff'>kettle</div>"},
        Row{"whiteOnPicture", "<div style='color:#fff;background:#fff url(x.png)'>kettle</div>"},
        Row{"whiteWithShadow",
            "<div style='color:#fff;background:#fff;text-shadow:0 0 2px #000'>kettle</div>"},
        Row{"linkInWhite", "<div style='color:#fff;background:#fff'><a href=x>kettle</a></div>"},
        Row{"invalidColour", "<div style='background:#fff;color:#ffff;color:#fffff'>"
                             "<b style='color:#000'>kettle</b></div>"},
        Row{"tableInQuirks",
            "<div style='font-size:0'><table><tr><td>kettle</td></tr></table></div>"},
        Row{"hiddenButDisplayed", "<div hidden style='display:block'>kettle</div>"},
        Row{"blockEndsParagraph", "<p style='display:none'>x<div>kettle</div>"},
        Row{"itemEndsItem", "<ul><li style='display:none'>x<li>kettle</ul>"},
        Row{"cellEndsCell", "<table><tr><td hidden>x<td>kettle</table>"},
        Row{"textBeforeTable", "<table style='display:none'>kettle<tr><td>x</table>"},
        Row{"formattingEnds", "<b style='display:none'>x<div></b>kettle</div>"},
        Row{"endTagWithoutEffect", "<div><b></div></i>kettle</b>"},
        Row{"styleForPrint",
            "<style media=print>.a{display:none}</style><div class=a>kettle</div>"},
        Row{"mediaRule",
            "<style>@media (max-width:1px){.a{display:none}}</style><div class=a>kettle</div>"},
        Row{"otherClass", "<style>.a.b{display:none}</style><div class='a c'>kettle</div>"},
        Row{"otherParent", "<style>.a>.b{display:none}</style>"
                           "<div class=a><i><b class=b>kettle</b></i></div>"},
        Row{"heavierRule", "<style>#a{display:block}.b{display:none}</style>"
                           "<div id=a class=b>kettle</div>"},
        Row{"importantRule", "<style>.a{display:block!important}</style>"
                             "<div class=a style='display:none'>kettle</div>"},
        Row{"hoverRule", "<style>.a:hover{display:none}</style><div class=a>kettle</div>"},
        Row{"invalidSelector", "<style>.a,..b{display:none}</style><div class=a>kettle</div>"},
        Row{"strayBrace", "<style>}.a{display:none}</style><div class=a>kettle</div>"},
        Row{"laterStyle", "<div class=a>kettle</div><style>.a{display:none}</style>"},
        Row{"doubtfulRuleShows", "<style>.a{display:none}.a[x]{display:block}</style>"
                                 "<div class=a>kettle</div>"},
        Row{"manyClasses", "<style>" + kShowing + "<div class='" + classes(40) +
                               "show' style='display:none'>kettle</div>"},
        Row{"tooManyClasses", "<style>" + kShowing + "<div class='" + classes(300) +
                                  "show' style='display:none'>kettle</div>"},
        Row{"behindTooManyRules",
            "<style>" + repeated(kMaxStyleRules, ".a{opacity:0}") + kShowing + kShown},
        Row{"behindTooMuchWork", "<style>" + repeated(3000, "i i .a{opacity:0}") + kShowing +
                                     repeated(300, "<i class=a>") + kShown},
        Row{"behindLongRule", "<style>" + repeated(6000, "i,b") + ',' + kShowing + kShown},
        Row{"deepRule", "<style>" + repeated(40, "b ") + kShowing + repeated(40, "<b>") + kShown},
        Row{"longPicture", "<style>.a{color:#fff;background:url(data:image/png;base64," +
                               repeated(20000, "A") +
                               ")}</style><div style='background:#fff'><p class=a>kettle</div>"},
        Row{"formattingThatShowsReopens", "<p>" + repeated(9, "<i style='visibility:hidden'>") +
                                              "<b style='visibility:visible'>x</p>kettle"},
        Row{"shownDeepInside", "<p style='visibility:hidden'>" + repeated(300, "<span>") +
                                   "<b style='visibility:visible'>kettle</b>"},
        Row{"ruleOfConditionalComment", "<!--[if mso]><style>.a{display:none}</style><![endif]-->"
                                        "<div class=a>kettle</div>"},
        Row{"elementOfConditionalComment",
            "<!--[if mso]><div style='display:none'><![endif]-->kettle<!--[if mso]></div>"
            "<![endif]-->"},
        Row{"conditionalComment", "<!--[if mso]><p>kettle</p><![endif]-->"},
        Row{"revealedComment", "<!--[if !mso]><!--><p>kettle</p><!--<![endif]-->"},
        Row{"noscript", "<noscript>kettle</noscript>"},
        Row{"pictureText", "<img src=x alt=kettle>"},
        Row{"button", "<input type=submit value=kettle>"},
        Row{"behindLongStyle", "<style>" + std::string(3U << 20U, 'x') + "</style>kettle"}),
    [](const auto &row) { return std::string(row.param.name); });

class HiddenText : public testing::TestWithParam<Row> {};

TEST_P(HiddenText, FollowsBehindWhatIsSeen) {
    const SentAndSeen text = show(filler("before") + GetParam().html + filler("behind")).text;
    const Place seen = placeOf(text.seen);
    ASSERT_NE(seen.word, std::string::npos);
    EXPECT_GT(seen.word, seen.behind);
    EXPECT_TRUE(text.differs);
    EXPECT_GE(text.hiddenBytes, std::string("kettle").size());
    const Place sent = placeOf(text.sent);
    EXPECT_LT(sent.word, sent.behind);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HiddenText,
    testing::Values(
        Row{"displayNone", "<div style='DISPLAY : None'>kettle</div>"},
        Row{"escapedName", "<div style='d\\69splay:n\\6fne'>kettle</div>"},
        Row{"comment", "<div style='display/**/:/**/none'>kettle</div>"},
        Row{"nested", "<div style='display:none'><p><b>kettle</b></p></div>"},
        Row{"visibility", "<span style='visibility:hidden'>kettle</span>"},
        Row{"hiddenAttribute", "<p hidden>kettle</p>"},
        Row{"template", "<template>kettle</template>"},
        Row{"iframe", "<iframe><p>kettle</p></iframe>"},
        Row{"fontSize", "<span style='font-size:0px'>kettle</span>"},
        Row{"fontSizeOfParent",
            "<div style='font-size:0'><b style='font-size:2em'>kettle</b></div>"},
        Row{"fontShorthand", "<span style='font:bold 0/0 a'>kettle</span>"},
        Row{"opacity", "<span style='opacity:.0'>kettle</span>"},
        Row{"negativeOpacity", "<span style='opacity:-1'>kettle</span>"},
        Row{"flat", "<div style='max-height:0px;overflow:hidden'>kettle</div>"},
        Row{"narrow", "<div style='width:0;overflow:hidden'>kettle</div>"},
        Row{"flatFloat", "<i style='float:left;height:0;overflow:clip'>kettle</i>"},
        Row{"sameColour", "<div style='color:#FFF;background:white'>kettle</div>"},
        Row{"sameColourOfAttributes",
            "<table bgcolor=ffffff><tr><td><font color='#fff'>kettle</table>"},
        Row{"sameColourOfAncestors",
            "<div style='background-color:rgb(255,255,255)'><p><i style='color:#ffffffff'>kettle"
            "</i></p></div>"},
        Row{"transparent", "<span style='color:transparent'>kettle</span>"},
        Row{"classRule", "<style><!-- .a , .x{display:none} --></style><i class='b a'>kettle</i>"},
        Row{"combinedRule", "<style>div#d > p.a.b{display:none}</style>"
                            "<div id=d><p class='b a'>kettle</p></div>"},
        Row{"descendantRule", "<style>.a b{display:none}</style>"
                              "<p class=a><i><b>kettle</b></i></p>"},
        Row{"laterRule", "<style>.a{display:block}.a{display:none}</style>"
                         "<div class=a>kettle</div>"},
        Row{"importantRule", "<style>.a{display:none!important}</style>"
                             "<div class=a style='display:block'>kettle</div>"},
        Row{"ruleBehindOthers", "<style>@import 'x';@media x{.b{c:d}}\n.a{display:none}</style>"
                                "<div class=a>kettle</div>"},
        Row{"ruleThatHoverUndoes", "<style>.a{display:none}.a:hover{display:block}</style>"
                                   "<div class=a>kettle</div>"},
        Row{"formattingReopens", "<p><b style='display:none'>x</p>kettle</b>"},
        Row{"negatedComment", "<!--[if !mso]><p>kettle</p><![endif]-->"},
        Row{"pictureOfADot", "<img src=x width=1 height=1 alt=kettle>"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(HtmlReaderText, TellsHiddenTextAndInvisibleCharacters) {
    const SentAndSeen plain = show("<p>one<p>two").text;
    EXPECT_FALSE(plain.differs);
    EXPECT_EQ(plain.sent, "");
    const SentAndSeen text =
        show("<p>V<i hidden>xx</i>ia<i hidden>yy</i>g&shy;ra &zwnj;&nbsp; now<p title=tip>end")
            .text;
    EXPECT_EQ(text.seen, "Viagra now\nend\ntip\nxx yy\n");
    EXPECT_EQ(text.sent, "Vxxiayyg\u00ADra \u200C now\nend\ntip\n");
    EXPECT_EQ(text.hiddenBytes, 5U);
    EXPECT_EQ(text.invisibleCharacters, 2U);
}

TEST(HtmlReaderText, TablesOfDocumentsWithTypeTakeSizesOver) {
    const std::string html = "<table><tr><td>kettle</table>";
    EXPECT_EQ(show("<div style='font-size:0'>" + html).text.hiddenBytes, 0U);
    EXPECT_EQ(show("<!doctype html><div style='font-size:0'>" + html).text.hiddenBytes, 6U);
}

TEST(HtmlReaderText, LongLinesKeepTheirWords) {
    std::string words;
    for (unsigned int i = 0; i < 5000; ++i) {
        words += "wo&shy;rd" + std::to_string(i) + " ";
    }
    std::string expected;
    for (unsigned int i = 0; i < 5000; ++i) {
        expected += (i == 0 ? "word" : " word") + std::to_string(i);
    }
    const SentAndSeen text = show(words).text;
    EXPECT_EQ(text.seen, expected + "\n");
    EXPECT_EQ(text.invisibleCharacters, 5000U);
    EXPECT_NE(text.sent.find("wo\u00ADrd4999\n"), std::string::npos);
}

} // namespace
} // namespace Corvane::Html
