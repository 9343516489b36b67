#include "host/regex/Refusal.h"

#include <string>

#include <gtest/gtest.h>

#include "host/regex/Expression.h"

namespace Corvane::Regex {
namespace {

std::optional<Refusal> refused(const std::string &text) {
    try {
        const Expression expression(text, kNoOptions, true);
    } catch (const Exception &failure) {
        return refusalOf(failure);
    }
    return {};
}

TEST(Refusal, TakesTheExceptionApart) {
    const auto compiled = refused("/ab[/i");
    ASSERT_TRUE(compiled.has_value());
    EXPECT_EQ(compiled->reason, "missing terminating ] for character class");
    EXPECT_EQ(compiled->offset, 3U);
    EXPECT_EQ(compiled->text, "/ab[/i");

    const auto form = refused("/ab at offset 7");
    ASSERT_TRUE(form.has_value());
    EXPECT_EQ(form->reason, "the closing slash is missing");
    EXPECT_FALSE(form->offset.has_value());
    EXPECT_EQ(refused(std::string(500, '(')).value_or(Refusal{}).text,
              std::string(120, '(') + "...");
}

TEST(Refusal, IsNoneOfOtherExceptions) {
    Exception other("BodyRule::Value", Exception::kGeneral, "BodyRule", 1);
    other.stringParameter("x at offset 1");
    other.stringParameter("y");
    EXPECT_FALSE(refusalOf(other).has_value());
    EXPECT_FALSE(refusalOf(Exception("Regex::Expression", 4, "Expression", 1)).has_value());
}

} // namespace
} // namespace Corvane::Regex
