// Runs tokenizer tests in the format of the html5lib collection: every file *.test of the directory
// CORVANE_HTML_TESTS_DIR, or the project's own where that is not set. Parse errors are not compared:
// the tokenizer does not tell them.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/parser/Charset.h"
#include "host/parser/html/Tokenizer.h"

namespace Corvane::Html {
namespace {

using nlohmann::json;

// Keeps all tokens, in the layout of the files, as text: lone surrogates are no UTF-8.
class TokenList : public TokenSink {
public:
    void characters(std::string_view text) override { text_ += text; }
    int attributeId(std::string_view name) override {
        names_.emplace_back(name);
        const auto first = std::find(names_.begin(), names_.end(), name);
        return static_cast<int>(first - names_.begin());
    }
    void startTag(const Tag &tag) override {
        std::map<std::string, std::string> attributes;
        for (const Attribute &attribute : tag.attributes) {
            attributes.emplace(names_[static_cast<std::size_t>(attribute.id)], attribute.value);
        }
        std::string token = "start " + std::string(tag.name);
        for (const auto &[name, value] : attributes) {
            token += " [" + name + "=" + value + "]";
        }
        add(token + (tag.selfClosing ? " /" : ""));
        names_.clear();
    }
    void endTag(const Tag &tag) override {
        add("end " + std::string(tag.name));
        names_.clear();
    }
    void comment(std::string_view piece) override { comment_ += piece; }
    void commentEnd() override { add("comment " + std::exchange(comment_, "")); }
    void doctype(const Doctype &doctype) override {
        const auto id = [](bool exists, const std::string &text) {
            return exists ? "[" + text + "]" : std::string("none");
        };
        add("doctype " + id(doctype.hasName, doctype.name) + " " +
            id(doctype.hasPublicId, doctype.publicId) + " " +
            id(doctype.hasSystemId, doctype.systemId) + (doctype.forceQuirks ? " quirks" : ""));
    }

    std::vector<std::string> take() {
        flushText();
        return std::move(tokens_);
    }

private:
    void add(const std::string &token) {
        flushText();
        tokens_.push_back(token);
    }
    void flushText() {
        if (!text_.empty()) {
            tokens_.push_back("text " + std::exchange(text_, ""));
        }
    }

    std::vector<std::string> tokens_;
    std::vector<std::string> names_;
    std::string text_;
    std::string comment_;
};

void appendCodeUnit(std::string &out, unsigned int unit) {
    constexpr unsigned int kSurrogates = 0xD800;
    constexpr unsigned int kBehindSurrogates = 0xE000;
    if (unit < kSurrogates || unit >= kBehindSurrogates) {
        appendUtf8(out, unit);
        return;
    }
    out += static_cast<char>(0xE0U | (unit >> 12U));
    out += static_cast<char>(0x80U | ((unit >> 6U) & 0x3FU));
    out += static_cast<char>(0x80U | (unit & 0x3FU));
}

// "\uHHHH" to characters, two surrogates that belong together to one.
std::string unescaped(const std::string &text) {
    constexpr std::size_t kLength = 6;
    std::string out;
    const auto unitAt = [&text](std::size_t place) -> long {
        const std::string escape = text.substr(std::min(place, text.size()), kLength);
        const bool isOne = escape.size() == kLength && escape.compare(0, 2, "\\u") == 0;
        return isOne ? std::strtol(escape.c_str() + 2, nullptr, 16) : -1;
    };
    for (std::size_t place = 0; place < text.size();) {
        const long unit = unitAt(place);
        const long next = unitAt(place + kLength);
        if (unit < 0) {
            out += text[place++];
        } else if (unit >= 0xD800 && unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            appendUtf8(out,
                       static_cast<char32_t>(0x10000 + (unit - 0xD800) * 0x400 + next - 0xDC00));
            place += 2 * kLength;
        } else {
            appendCodeUnit(out, static_cast<unsigned int>(unit));
            place += kLength;
        }
    }
    return out;
}

class TestCase {
public:
    explicit TestCase(const json &test)
        : test_(test), isEscaped_(test.value("doubleEscaped", false)) {}

    std::string input() const { return text(test_.at("input")); }

    // The output as a TokenList has it.
    std::vector<std::string> expected() const {
        TokenList list;
        for (const json &token : test_.at("output")) {
            replay(token, list);
        }
        return list.take();
    }

    std::vector<std::string> states() const {
        return test_.value("initialStates", std::vector<std::string>{"Data state"});
    }

    // The tokens of the input, fed in pieces of so many bytes.
    std::vector<std::string> tokens(const std::string &state, std::size_t pieceBytes) const {
        static const std::map<std::string, TextKind> s_kinds{
            {"Data state", TextKind::Data},           {"RCDATA state", TextKind::Rcdata},
            {"RAWTEXT state", TextKind::Rawtext},     {"Script data state", TextKind::Script},
            {"PLAINTEXT state", TextKind::Plaintext}, {"CDATA section state", TextKind::Cdata}};
        TokenList list;
        Tokenizer tokenizer(list);
        tokenizer.readAs(s_kinds.at(state));
        tokenizer.lastStartTagForTest(test_.value("lastStartTag", ""));
        const std::string html = input();
        for (std::size_t place = 0; place < html.size(); place += pieceBytes) {
            tokenizer.feed(std::string_view(html).substr(place, pieceBytes));
        }
        tokenizer.finish();
        return list.take();
    }

private:
    std::string text(const json &value) const {
        return isEscaped_ ? unescaped(value.get<std::string>()) : value.get<std::string>();
    }

    void replay(const json &token, TokenList &list) const {
        const std::string kind = token.at(0);
        if (kind == "Character") {
            list.characters(text(token.at(1)));
        } else if (kind == "Comment") {
            list.comment(text(token.at(1)));
            list.commentEnd();
        } else if (kind == "DOCTYPE") {
            const auto id = [&](std::size_t place) {
                return token.at(place).is_null() ? std::string() : text(token.at(place));
            };
            list.doctype({id(1), id(2), id(3), !token.at(1).is_null(), !token.at(2).is_null(),
                          !token.at(3).is_null(), !token.at(4).get<bool>()});
        } else {
            replayTag(token, kind == "EndTag", list);
        }
    }

    void replayTag(const json &token, bool isEnd, TokenList &list) const {
        const std::string name = text(token.at(1));
        std::vector<std::string> values;
        Tag tag{name, {}, token.size() > 3 && token.at(3).get<bool>()};
        if (isEnd) {
            list.endTag(tag);
            return;
        }
        values.reserve(token.at(2).size());
        for (const auto &[key, value] : token.at(2).items()) {
            values.push_back(text(value));
            tag.attributes.push_back({list.attributeId(text(json(key))), values.back(), false});
        }
        list.startTag(tag);
    }

    const json &test_;
    bool isEscaped_;
};

struct Counts {
    int passed = 0;
    int failed = 0;
    int skipped = 0;
};

void run(const json &test, Counts &counts) {
    const TestCase one(test);
    const std::string name = test.value("description", "");
    bool failed = false;
    for (const std::string &state : one.states()) {
        for (const std::size_t pieceBytes : {one.input().size() + 1, std::size_t{1}}) {
            const auto tokens = one.tokens(state, pieceBytes);
            EXPECT_EQ(tokens, one.expected())
                << name << ", " << state << ", pieces of " << pieceBytes;
            failed = failed || tokens != one.expected();
        }
    }
    ++(failed ? counts.failed : counts.passed);
}

Counts runFile(const std::filesystem::path &path) {
    std::ifstream file(path);
    const json content = json::parse(file);
    Counts counts;
    for (const auto &[key, tests] : content.items()) {
        if (key != "tests") {
            counts.skipped += static_cast<int>(tests.size());
            continue;
        }
        for (const json &test : tests) {
            run(test, counts);
        }
    }
    return counts;
}

TEST(Html5libTest, TokensAreThoseOfTheCollection) {
    const char *given = std::getenv("CORVANE_HTML_TESTS_DIR");
    const std::string directory =
        given != nullptr ? given : std::string(CORVANE_TEST_DATA_DIR) + "/html5lib";
    Counts all;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().extension() != ".test") {
            continue;
        }
        const Counts counts = runFile(entry.path());
        std::cout << entry.path().filename().string() << ": " << counts.passed << " passed, "
                  << counts.failed << " failed, " << counts.skipped << " skipped\n";
        all.passed += counts.passed;
        all.failed += counts.failed;
        all.skipped += counts.skipped;
    }
    std::cout << "all: " << all.passed << " passed, " << all.failed << " failed, " << all.skipped
              << " skipped\n";
    EXPECT_GT(all.passed, 0) << directory << " holds no *.test file";
}

} // namespace
} // namespace Corvane::Html
