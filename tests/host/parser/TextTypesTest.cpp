#include "host/parser/TextTypes.h"

#include <string>

#include <gtest/gtest.h>

#include "support/ReadMail.h"

namespace Corvane {
namespace {

TEST(TextTypes, EnrichedLosesItsMarkup) {
    EXPECT_EQ(enrichedText("<bold>Now</bold> is <color><param>red</param>the</color> time\nfor "
                           "all\n\n\nmen <<tag>\n"),
              "Now is the time for all\n\nmen <tag> ");
    EXPECT_EQ(enrichedText("<nofill>a\nb</nofill>\nc"), "a\nb c");
    EXPECT_EQ(enrichedText("1 < 2 <" + std::string(80, 'x') + "> <"),
              "1 < 2 <" + std::string(80, 'x') + "> <");
    EXPECT_EQ(enrichedText("<param>never closed"), "");
}

TEST(TextTypes, RichTextLosesItsMarkup) {
    EXPECT_EQ(richText("<bold>a</bold>\nb<nl>c<comment>no <bold></comment><lt>d>"), "a b\nc<d>");
}

TEST(TextTypes, CalendarShowsItsWords) {
    const std::string unfolded = unfoldedCalendar(
        "BEGIN:VCALENDAR\r\nSUMMARY;LANGUAGE=en;X=\"a:b\":Win a\r\n  car\r\nUID:x\r\n"
        "DESCRIPTION:one\\ntwo\\, three\\\\\r\nlocation:here\r\nURL:http://a.ex\r\n ample/\r\n");
    EXPECT_EQ(calendarText(unfolded), "Win a car\none\ntwo, three\\\nhere\n");
    EXPECT_NE(unfolded.find("URL:http://a.example/"), std::string::npos);
}

TEST(TextTypes, KnowsHtmlByItsTags) {
    for (const char *html : {"<!DOCTYPE html>", "x\n<P>", "<a\nhref=x>", "<br/>", "<Table >"}) {
        EXPECT_TRUE(looksLikeHtml(html)) << html;
    }
    for (const char *text :
         {"", "<", "a < b", "<a@b.example>", "<http://a>", "</p>", "<pre", "<p"}) {
        EXPECT_FALSE(looksLikeHtml(text)) << text;
    }
}

// Texts of other types are read where they are all there is, or what the author prefers.
TEST(TextTypes, AreReadAsTheOnlyOrThePreferredAlternative) {
    const std::string calendar = "Content-Type: text/calendar\n\nSUMMARY:invited\n";
    const std::string enriched = "Content-Type: text/enriched\n\n<bold>rich</bold>\n";
    const std::string alternative = "Content-Type: multipart/alternative; boundary=a\n\n--a\n";
    const TextRow rows[] = {
        {"root", calendar, "invited\n", ""},
        {"only", alternative + enriched + "--a--", "rich\n", ""},
        {"preferred", alternative + "\nplain\n--a\n" + enriched + "--a--", "plain\nrich\n", ""},
        {"notPreferred", alternative + enriched + "--a\n\nplain\n--a--", "plain\n", ""}};
    for (const TextRow &row : rows) {
        EXPECT_EQ(Reading(row.message).text(), row.text) << row.name;
    }
    EXPECT_EQ(Reading("Content-Type: text/calendar\n\nURL:http://a.ex\n ample/x\n").uris(),
              "1http://a.example/x ");
}

} // namespace
} // namespace Corvane
