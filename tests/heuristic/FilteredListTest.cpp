// Rules and messages that were made to cost much: scans of them need no more memory than they may,
// and find what the walk over the lists finds.

#include "heuristic/FilteredList.h"

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "heuristic/FullRule.h"
#include "heuristic/Scanner.h"
#include "support/LogCapture.h"
#include "support/Message.h"
#include "support/RuleSet.h"
#include "support/Rules.h"

namespace Corvane::Heuristic {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

std::string repeated(const std::string &part, std::size_t times) {
    std::string text;
    text.reserve(part.size() * times);
    for (; times > 0; --times) {
        text += part;
    }
    return text;
}

// So many rules of one kind, in whose definition # stands for the number.
std::string numbered(const std::string &kind, const std::string &definition, std::size_t count) {
    std::string rules;
    for (std::size_t i = 0; i < count; ++i) {
        std::string each = definition;
        for (std::size_t at = each.find('#'); at != each.npos; at = each.find('#')) {
            each.replace(at, 1, std::to_string(i));
        }
        rules += kind + " R" + std::to_string(i) + '_' + kind + ' ' + each + '\n';
    }
    return rules;
}

struct HostileRow {
    const char *name;
    std::string rules;
    std::function<void(Message &)> fill;
    std::string stream; // through a tap
    std::size_t tripped;
};

void PrintTo(const HostileRow &row, std::ostream *out) {
    *out << row.name;
}

class HostileScan : public testing::TestWithParam<HostileRow> {
protected:
    static Names scan(Scanner &scanner, float threshold) {
        Message message;
        GetParam().fill(message);
        RefMatches matches = RefMatches::create();
        matches->threshold(threshold);
        FullTap tap(scanner, scanner.rules().fullRules(DEFAULT), matches, 0, false);
        tap.write(viewOf(GetParam().stream));
        scanner.process(matches, message.properties(), EmailAddress(), 0, false);
        if (!message.headers()->headers().empty()) {
            scanner.check(matches, DEFAULT, HeaderContainer(*message.headers()), 0, false);
        }
        return namesOf(*matches);
    }

    // What the calling thread keeps of its scans.
    static std::size_t keptBytes(const Scanner &scanner) {
        const RuleIndex index(scanner.rules());
        FilteredList list(index, DEFAULT, Rule::Body, 0);
        return FilteredPass(list).memoryBytes();
    }

    RuleSet set_;
};

TEST_P(HostileScan, FindsWhatTheWalkFinds) {
    const LogCapture log;
    Scanner filtered(set_.add("a.cf", GetParam().rules).path());
    Scanner walked(set_.path());
    const RefRule &rule = walked.rules().rules(DEFAULT, Rule::Header)->empty()
                              ? walked.rules().fullRules(DEFAULT)->front()
                              : walked.rules().headerRules(DEFAULT)->front();
    rule->ordinal(rule->ordinal());
    EXPECT_EQ(scan(filtered, 0.0F).size(), GetParam().tripped);
    for (const float threshold : {0.0F, 0.5F, 1.5F, 20.5F}) {
        EXPECT_EQ(scan(filtered, threshold), scan(walked, threshold)) << threshold;
    }
    EXPECT_LE(keptBytes(filtered),
              ScanMemory::kMostBytes + filtered.ruleCount() * ScanMemory::kMostBytesOfARule);
}

const std::string kNoFullRule = "full NONE /(?!)/\n";

void fillNothing(Message &) {}

std::function<void(Message &)> filledWith(const std::string &raw) {
    return [raw](Message &message) { message.text("", raw).raw(raw); };
}

std::function<void(Message &)> filledWithUris(std::size_t count, const std::string &rest) {
    return [count, rest](Message &message) {
        const Ref<MPartAttribute> found(new UriContainer);
        for (std::size_t i = 0; i < count; ++i) {
            dynamic_cast<UriContainer &>(*found).add(
                UriContainer::kText, Uri("http://" + std::to_string(i) + ".example/" + rest));
        }
        message.attribute(MPartAttribute::Uris, found);
    };
}

const HostileRow kRows[] = {
    {"literalOfAllRules", kNoFullRule + numbered("rawbody", "/zq#x/", 1000),
     filledWith(repeated("zq\n", 3000) + "zq7x"), "", 1},
    {"literalOfAllRulesThatMatchSoon", kNoFullRule + numbered("rawbody", "/zq|y#/", 300),
     filledWith(repeated("x\n", 5) + repeated("zq\n", 3000)), "", 300},
    {"phrasesLookedBack", kNoFullRule + numbered("rawbody", "/Q#(?:x[^x]{0,60}){20}viagra/", 200),
     filledWith(repeated(repeated("xviagra ", 100) + '\n', 30) + "Q7" + repeated("xab", 20) +
                "viagra\n"),
     "", 1},
    {"longLinesOfLiterals", numbered("full", "/(?:zq|offer|cash)#x/", 50), fillNothing,
     repeated(repeated("zqoffercash", 5000) + "zq7x\n", 3), 1},
    {"lineTooLongToCopy",
     "full CASE /Replica/i\nfull TWO /offer.*cash/i\nfull SPACED /v[\\W_]{0,2}i[\\W_]{0,2}a/\n"
     "full NONE /zqzq/\nfull END /x$/\n",
     fillNothing, "rEPLICA" + repeated("x", 3 * kMiB) + " v-i-a OFFER CASH x\n", 4},
    {"automataOnLongLines", numbered("full", "/(?:of+|an?d|x?f)[r-v\\W]*[=!<e.]#/", 20),
     fillNothing, repeated(repeated("cashafxfe", 700) + '\n', 9) + "of=7\n", 1},
    {"urisOfAllRules", kNoFullRule + numbered("uri", "/example.x?/", 50), filledWithUris(500, "x"),
     "", 50},
    {"urisForFewRules", kNoFullRule + numbered("uri", "/^http:..#4.ex/", 4),
     filledWithUris(100, repeated("y", 3000)), "", 3},
    {"uriTooLongToCopy", kNoFullRule + numbered("uri", "/^http:..#.*z$/", 9),
     filledWithUris(3, repeated("y", kMiB / 4) + 'z'), "", 3},
    {"headerTooLongToCopy",
     "header RAW X:raw =~ /z$/\nheader VALUE X =~ /z$/\nheader NOT X !~ /q/\nheader ALL ALL =~ "
     "/^X: y/\nheader THERE exists:X\nfull FULL /^X: y.*z$/\n",
     [](Message &message) {
         message.header("A", "a").header("X", repeated("y", kMiB / 4) + 'z').header("X", "q");
     },
     "", 6},
    {"addressesOfAllHeaders",
     kNoFullRule + "header ADDR From:addr =~ /example/\nheader NAME *:name =~ /Joe7/\n",
     [](Message &message) {
         for (int i = 0; i < 300; ++i) {
             message.header("From", "Joe" + std::to_string(i) + " <a@b.example>");
         }
     },
     "", 2},
    {"selectorsThatFitAllNames",
     kNoFullRule + numbered("header", "*a* =~ /v#x/", 50) + numbered("uri", "/#/", 1) +
         numbered("header", "X-*a# =~ /v/", 300),
     [](Message &message) {
         for (int i = 0; i < 3000; ++i) {
             message.header("X-a" + std::to_string(i), "v");
         }
         message.header("abc", "v3x");
     },
     "", 251},
};

INSTANTIATE_TEST_SUITE_P(Rows, HostileScan, testing::ValuesIn(kRows),
                         [](const auto &row) { return std::string(row.param.name); });

// One pass over many texts, all of which hold the literal of all rules: what the search finds is
// bounded.
TEST(FilteredPass, StaysWithinItsMemory) {
    constexpr std::size_t kRules = 2000;
    constexpr std::uint32_t kLines = 16000;
    RuleSet set;
    const Scanner scanner(set.add("a.cf", numbered("rawbody", "/zq#x/", kRules)).path());
    const RuleIndex index(scanner.rules());
    const std::string text = repeated("zq\n", kLines) + "zq77x";
    FilteredList list(index, DEFAULT, Rule::RawBody, 0);
    FilteredPass pass(list);
    for (std::uint32_t line = 0; line < kLines; ++line) {
        pass.add(3 * line, 3);
    }
    pass.add(3 * kLines, 5);
    pass.select(reinterpret_cast<const unsigned char *>(text.data()), text.size());
    EXPECT_LE(pass.memoryBytes(), ScanMemory::kMostBytes + kRules * ScanMemory::kMostBytesOfARule);
    EXPECT_EQ(pass.nextUnit(0, kLines + 1), kLines);
    RefMatches matches = RefMatches::create();
    pass.addMatches(kLines, Buffer(), matches);
    EXPECT_EQ(namesOf(*matches), Names{"R77_rawbody"});
}

// A search for literals of which few are found: it goes on where the walk would have more to do.
TEST(ScanEffort, AllowsAShareOfTheWalk) {
    ScanEffort effort;
    EXPECT_TRUE(effort.allows(0));
    EXPECT_FALSE(effort.allows(1));
    effort.expect(300 * ScanEffort::kTry);
    EXPECT_TRUE(effort.allows(10 * ScanEffort::kTry));
    EXPECT_TRUE(effort.hasRoomFor(100 * ScanEffort::kTry));
    EXPECT_FALSE(effort.hasRoomFor(100 * ScanEffort::kTry + 1));
    EXPECT_FALSE(effort.allows(90 * ScanEffort::kTry)) << "too much that was not earned";
    effort.spare(90 * ScanEffort::kTry);
    EXPECT_TRUE(effort.allows(90 * ScanEffort::kTry));
    effort.spend(190 * ScanEffort::kTry);
    EXPECT_FALSE(effort.isExceeded());
    effort.expect(-3);
    EXPECT_TRUE(effort.isExceeded());
}

} // namespace
} // namespace Corvane::Heuristic
