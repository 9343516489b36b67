// The texts that rules are tried on, against the scans themselves.

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "heuristic/FullRule.h"
#include "heuristic/ScanTexts.h"
#include "heuristic/Scanner.h"
#include "support/RuleSet.h"
#include "support/Rules.h"
#include "support/TempDir.h"

namespace Corvane::Heuristic {
namespace {

using Source = ScannedText::Source;

// A pattern that matches these bytes alone.
std::string bytesOf(const std::string &text) {
    constexpr const char *kDigits = "0123456789abcdef";
    constexpr unsigned int kHigh = 4;
    constexpr unsigned int kLow = 15;
    std::string pattern;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        pattern += std::string("\\x") + kDigits[value >> kHigh] + kDigits[value & kLow];
    }
    return pattern;
}

// What rules of one kind, and of header rules those for one name and form, may look at.
struct Looked {
    Rule::Type kind;
    std::string header; // with the form

    bool operator<(const Looked &other) const {
        return kind != other.kind ? kind < other.kind : header < other.header;
    }
};

std::string selectorOf(const ScannedText &text) {
    if (text.kind != Rule::Header) {
        return {};
    }
    constexpr const char *kForms[] = {"", ":raw", ":addr", ":name"};
    return text.form == HeaderForm::All
               ? "ALL"
               : std::string(text.header) + kForms[static_cast<std::size_t>(text.form)];
}

class Seen {
public:
    explicit Seen(const std::string &message)
        : bytes_(message), mail_(MailReader().read(std::string_view(message))),
          sender_(EmailAddress::rfc5322Parse("<joe@example.org>", true)) {
        ScanTexts(bytes_, mail_, sender_).each([this](const ScannedText &text) {
            texts_[{text.kind, selectorOf(text)}].push_back(
                {reinterpret_cast<const char *>(text.text.data()), text.text.length()});
        });
    }

    const std::map<Looked, std::vector<std::string>> &texts() const { return texts_; }

    // Whether a rule with that pattern trips.
    bool trips(const Looked &looked, const std::string &pattern) const {
        // A set of its own; scanning begins once some set was loaded.
        RuleSet none;
        Scanner scanner(none.path());
        const langID language = Scanner::selectLanguage(mail_.properties()->part().operator->());
        scanner.rules()
            .rules(language, looked.kind)
            .add(makeRule(looked.kind, "RULE",
                          looked.header.empty() ? '/' + pattern + '/'
                                                : looked.header + " =~ /" + pattern + '/'));
        RefMatches matches = RefMatches::create();
        FullTap tap(scanner, scanner.rules().fullRules(language), matches, 0, false);
        tap.write(viewOf(bytes_));
        scanner.process(matches, mail_.properties(), sender_, 0, false);
        return !matches->empty();
    }

private:
    std::string bytes_;
    Mail mail_;
    EmailAddress sender_;
    std::map<Looked, std::vector<std::string>> texts_;
};

// Each text is seen, as it is; and for rules of its kind there is no other.
void expectSeen(const std::string &message, const std::string &name) {
    const Seen seen(message);
    for (const auto &[looked, texts] : seen.texts()) {
        std::string all;
        for (const std::string &text : texts) {
            const std::string pattern = "\\A" + bytesOf(text) + "\\z";
            EXPECT_TRUE(seen.trips(looked, pattern))
                << name << ' ' << looked.header << ": " << text;
            all += (all.empty() ? "" : "|") + bytesOf(text);
        }
        EXPECT_FALSE(seen.trips(looked, "\\A(?!(?:" + all + ")\\z)")) << name << looked.header;
    }
}

TEST(ScanTexts, AreWhatAScanTriesRulesOn) {
    std::size_t messages = 0;
    for (const char *directory : {CORVANE_TEST_DATA_DIR "/mail", CORVANE_EXAMPLE_RULES_DIR}) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(directory)) {
            if (entry.path().extension() == ".eml" && entry.file_size() < 4096) {
                expectSeen(TempDir::read(entry.path().string()), entry.path().filename().string());
                ++messages;
            }
        }
    }
    EXPECT_GT(messages, 10U);
}

TEST(ScanTexts, AreCutAsTheScanCutsThem) {
    const std::string line(5000, 'x');
    expectSeen("Subject: =?utf-8?q?one=0Atwo?= three\nFrom: Joe <joe@example.net>\n\n" + line +
                   "\nshort\r\n\nbehind\nunread\nrest",
               "long lines");
    expectSeen("Subject: none\n", "no body");
    expectSeen("\nno headers", "no headers");
    expectSeen("", "nothing");
}

TEST(ScanTexts, TellWhereTheyStand) {
    const std::string message = "Subject: s\nTo: a@b.example\n\n" + std::string(2050, 'x') +
                                "\n\nthird http://x.example/\n";
    const Mail mail = MailReader().read(std::string_view(message));
    std::vector<std::string> places;
    ScanTexts(message, mail, EmailAddress()).each([&](const ScannedText &text) {
        if (text.kind != Rule::Header) {
            places.push_back(std::to_string(static_cast<int>(text.source)) + ' ' +
                             std::to_string(text.number) + '.' + std::to_string(text.piece) + " @" +
                             std::to_string(text.offset) + " +" +
                             std::to_string(text.text.length()));
        }
    });
    EXPECT_THAT(places, testing::ElementsAre("0 1.1 @0 +11", "0 2.1 @11 +16", "0 3.1 @27 +1",
                                             "0 4.1 @28 +2051", "0 5.1 @2079 +1", "0 6.1 @2080 +24",
                                             "3 1.1 @0 +1", "4 1.1 @0 +2048", "4 1.2 @2048 +2",
                                             "4 3.1 @2052 +23", "5 1.1 @0 +2048", "5 1.2 @2048 +3",
                                             "5 2.1 @2051 +1", "5 3.1 @2052 +24", "7 1.1 @0 +17",
                                             "8 1.1 @0 +10", "8 2.1 @0 +15"));
}

TEST(ScanTexts, TellHowMuchIsNotRead) {
    const std::string read(3072, 'x');
    const Mail mail = MailReader().read(std::string_view("\n" + read + "\nunread\nrest\n"));
    std::vector<std::size_t> unread;
    ScanTexts("", mail, EmailAddress()).each([&](const ScannedText &text) {
        unread.push_back(text.unread.length());
    });
    // Two pieces of the text, and of the raw body also the lines behind.
    EXPECT_THAT(unread, testing::ElementsAre(0, 12, 0, 0, 0, 0));
}

// As often as it takes, each time as a scan would read that began there.
TEST(ScanTexts, TellWhatIsNotRead) {
    const std::string line(3072, 'x');
    const Mail mail =
        MailReader().read(std::string_view("\n" + line + "\n\nsecond\n" + line + "\nrest\n"));
    std::vector<std::string> places;
    ScanTexts("", mail, EmailAddress()).each([&](const ScannedText &last) {
        ScanTexts::eachUnread(last, [&](const ScannedText &text) {
            places.push_back(std::to_string(text.number) + '.' + std::to_string(text.piece) + " @" +
                             std::to_string(text.offset) + ' ' + text.text.asString().substr(0, 6));
        });
    });
    EXPECT_THAT(places, testing::ElementsAre("3.1 @3074 second", "4.1 @3081 xxxxxx",
                                             "4.2 @5129 xxxxxx", "5.1 @6154 rest"));
}

TEST(ScanTexts, TellWhatHasDecidedTheLanguage) {
    using Reason = LanguageChoice::Reason;
    const struct {
        const char *charset;
        const char *text;
        langID language;
        Reason reason;
    } cases[] = {{"koi8-r", "x", RU, Reason::Charset},
                 {"UTF-8", "\xD0\x9F\xD1\x80\xD0\xB8", RU, Reason::Letters},
                 {"utf-8", "plain", DEFAULT, Reason::Letters},
                 {"us-ascii", "plain", DEFAULT, Reason::UnknownCharset}};
    for (const auto &each : cases) {
        const Mail mail =
            MailReader().read(std::string_view(std::string("Content-Type: text/plain; charset=") +
                                               each.charset + "\n\n" + each.text + '\n'));
        const LanguageChoice choice = languageOf(mail.properties()->part().operator->());
        EXPECT_EQ(choice.language, each.language) << each.charset;
        EXPECT_EQ(choice.reason, each.reason) << each.charset;
        EXPECT_EQ(choice.charset, each.charset);
    }
    EXPECT_EQ(languageOf(nullptr).reason, Reason::NoText);
}

} // namespace
} // namespace Corvane::Heuristic
