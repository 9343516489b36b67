#include "host/parser/UriScan.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

using Texts = std::vector<std::string>;

class Collected {
public:
    explicit Collected(const MailLimits &limits = MailLimits())
        : limits_(limits), collector_(limits_, hits_) {}

    UriCollector &operator*() { return collector_; }
    const MailLimitSet &hits() const { return hits_; }

    Texts of(unsigned int source) const {
        const auto *uris = dynamic_cast<const UriContainer *>(collector_.attribute().operator->());
        Texts texts;
        const auto found = uris->sourced().find(source);
        if (found != uris->sourced().end()) {
            for (const Uri &uri : found->second) {
                texts.push_back(uri.asString());
            }
        }
        return texts;
    }

private:
    MailLimits limits_;
    MailLimitSet hits_;
    UriCollector collector_;
};

struct ScanRow {
    const char *name;
    std::string text;
    Texts expected;
};

void PrintTo(const ScanRow &row, std::ostream *out) {
    *out << row.name;
}

class UriScan : public testing::TestWithParam<ScanRow> {};

TEST_P(UriScan, FindsUrisOfText) {
    Collected collected;
    (*collected).scan(UriContainer::kText, GetParam().text, TextEnd::Whole);
    EXPECT_EQ(collected.of(UriContainer::kText), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UriScan,
    testing::Values(
        ScanRow{"schemes",
                "see HTTP://A.example/x?y=1#z, https://b.example; ftp://c.example/d.",
                {"HTTP://A.example/x?y=1#z", "https://b.example", "ftp://c.example/d"}},
        ScanRow{"listHeader",
                "<https://l.example/u/1>, <mailto:leave@l.example?subject=x>",
                {"https://l.example/u/1", "mailto:leave@l.example?subject=x"}},
        ScanRow{"bareName",
                "www.a.example/p WWW.B.example, (www.c.example).",
                {"http://www.a.example/p", "http://WWW.B.example", "http://www.c.example"}},
        ScanRow{"noBareName", "www. www.. awww.a.b x@www.a.b a.www.b.c xhttp://a.b http:/a.b", {}},
        ScanRow{"noHost", "http:// http://. https://) mailto: http://\"x", {}},
        ScanRow{"brackets",
                "(http://a.example/x_(y)) [http://b.example/[z]] http://c.example/(x",
                {"http://a.example/x_(y)", "http://b.example/[z]", "http://c.example/(x"}},
        ScanRow{"quotes",
                "\"http://a.example/'\" 'http://b.example/?'!",
                {"http://a.example/", "http://b.example/"}},
        ScanRow{"repeats", "http://a.b http://c.d http://a.b", {"http://a.b", "http://c.d"}},
        ScanRow{"insideUri",
                "http://a.b/?u=http://c.d/&w=www.e.f",
                {"http://a.b/?u=http://c.d/&w=www.e.f"}},
        ScanRow{"textWithoutBlanks",
                "请看http://a.example/路径，http://www.b.example。www.c.example谢谢",
                {"http://a.example/", "http://www.b.example", "http://www.c.example"}},
        ScanRow{"foreignHost",
                "http://пример.рф/a http://p\u0430y.example/b",
                {"http://пример.рф/a", "http://p\u0430y.example/b"}},
        ScanRow{"lineEnds", "http://a.b/c\nd\r\nhttp://e.f\r\n", {"http://a.b/c", "http://e.f"}},
        ScanRow{"nulBytes", std::string("http://a.b\0c", 12), {"http://a.b"}}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(UriCollector, KeepsSourcesApart) {
    Collected collected;
    (*collected).scan(UriContainer::kHeader, "http://a.b", TextEnd::Whole);
    (*collected).scan(UriContainer::kText, "http://a.b", TextEnd::Whole);
    (*collected).addAttribute(UriContainer::kHtml, "http://a.b");
    for (const unsigned int source : {0U, 1U, 2U}) {
        EXPECT_EQ(collected.of(source), Texts{"http://a.b"});
    }
}

TEST(UriCollector, CleansAttributes) {
    Collected collected;
    for (const char *value : {" ht\r\n tp://a.b/c d\t", "/rel", "//host/x", "javascript:go()", "",
                              " \n", "#top", "CID:1@x", "data:image/png;base64,AA"}) {
        (*collected).addAttribute(UriContainer::kHtml, value);
    }
    EXPECT_EQ(collected.of(UriContainer::kHtml),
              (Texts{"ht tp://a.b/c d", "/rel", "//host/x", "javascript:go()"}));
}

TEST(UriCollector, BoundsNumberAndLength) {
    constexpr unsigned int kLimit = 20;
    for (const unsigned int count : {kLimit - 1, kLimit, kLimit + 1}) {
        MailLimits limits;
        limits.value(MailLimit::Uris, kLimit);
        limits.value(MailLimit::UriBytes, kLimit);
        Collected collected(limits);
        for (unsigned int i = 0; i < count; ++i) {
            (*collected)
                .scan(i % 2, "http://a/" + std::to_string(i) + " http://a/0", TextEnd::Whole);
        }
        EXPECT_EQ(collected.of(0).size() + collected.of(1).size(), std::min(count + 1, kLimit));
        EXPECT_EQ(collected.hits().count(MailLimit::Uris), count + 1 > kLimit ? 1U : 0U);

        Collected lengths(limits);
        (*lengths).scan(0, std::string("http://") + std::string(count - 7, 'x'), TextEnd::Whole);
        EXPECT_EQ(lengths.of(0).front().size(), std::min(count, kLimit));
        EXPECT_EQ(lengths.hits().count(MailLimit::UriBytes), count > kLimit ? 1U : 0U);
    }
}

TEST(UriCollector, HiddenOnesLeaveRoomForShownOnes) {
    const std::string filler(kMaxUriBytes - 10, 'x');
    Collected collected;
    for (std::size_t bytes = 0; bytes <= kMaxUriBytesOfAll; bytes += filler.size()) {
        (*collected)
            .addAttribute(UriContainer::kHtml, std::to_string(bytes) + filler, UriSight::Hidden);
    }
    EXPECT_EQ(collected.hits(), MailLimitSet{MailLimit::Uris});
    (*collected).addAttribute(UriContainer::kHtml, "http://shown.example/");
    EXPECT_EQ(collected.of(UriContainer::kHtml).back(), "http://shown.example/");
}

TEST(UriCollector, TellsWhatBecomesOfALink) {
    MailLimits limits;
    limits.value(MailLimit::Uris, 2);
    limits.value(MailLimit::UriBytes, 4);
    Collected collected(limits);
    const auto outcome = [&collected](const char *uri) {
        return (*collected).addAttribute(UriContainer::kHtml, uri).outcome;
    };
    using Outcome = UriCollector::Outcome;
    EXPECT_EQ(outcome(" a\n"), Outcome::Added);
    EXPECT_EQ(outcome("a"), Outcome::Known);
    EXPECT_EQ(outcome("abcdX"), Outcome::Added);
    EXPECT_EQ(outcome("abcdY"), Outcome::Added) << "only the fronts are the same";
    EXPECT_EQ(outcome("#a"), Outcome::Dropped);
    EXPECT_EQ(outcome("b"), Outcome::Dropped);
}

TEST(UriCollector, HostileTextIsAnswered) {
    std::string text;
    for (const char *piece :
         {"www.", "http://", "http://www.", "a.", "://", ")", "http://)", ":."}) {
        for (int i = 0; i < 200000; ++i) {
            text += piece;
        }
        text += ' ';
    }
    Collected collected;
    (*collected).scan(UriContainer::kText, text, TextEnd::Whole);
    EXPECT_EQ(collected.hits(), MailLimitSet{MailLimit::UriBytes});
}

TEST(UriCollector, LeavesOutWhatReachesTheCut) {
    Collected collected;
    (*collected).scan(UriContainer::kText, "http://a.b http://evil", TextEnd::Cut);
    EXPECT_EQ(collected.of(UriContainer::kText), Texts{"http://a.b"});
}

} // namespace
} // namespace Corvane
