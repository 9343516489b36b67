#include "host/parser/Exception.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

TEST(Exception, RendersEverythingOnOneLine) {
    Exception inner("bad\npattern", 4, nullptr, 0);
    Exception outer("BodyRule::Value", 4, "BodyRule", 42);
    outer.stringParameter("NAME");
    outer.stringParameter("a.cf:7");
    outer.cause(inner);
    EXPECT_EQ(outer.asString(),
              "BodyRule::Value (NAME; a.cf:7) [4 BodyRule:42] <- bad pattern [4]");
    EXPECT_STREQ(outer.what(), outer.asString().c_str());
    EXPECT_EQ(inner.file(), "");
    EXPECT_EQ(inner.cause(), nullptr);
}

TEST(Exception, CopyKeepsCauseAfterOriginalDies) {
    const auto build = [] {
        Exception outer("outer", 1, "File", 2);
        outer.cause(Exception("inner", 4, nullptr, 0));
        return Exception(outer);
    };
    const Exception copy = build();
    ASSERT_NE(copy.cause(), nullptr);
    EXPECT_EQ(copy.cause()->message(), "inner");
}

} // namespace
} // namespace Corvane
