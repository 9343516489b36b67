#include "host/parser/Header.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

TEST(Header, NullIsNotEmptiness) {
    EXPECT_TRUE(Header().isNull());
    EXPECT_EQ(Header().asString(), "");
    const Header empty("", "");
    EXPECT_FALSE(empty.isNull());
    EXPECT_EQ(empty.asString(), ": ");
    EXPECT_EQ(Header("Subject", "a: b ").asString(), "Subject: a: b ");
}

TEST(HeaderContainer, FindsFirstOfAnyCase) {
    HeaderContainer container;
    container.append(Header("Received", "one"));
    container.append(Header("received", "two"));
    container.append(Header("X", ""));
    const Header copy = container.find("RECEIVED");
    EXPECT_EQ(copy.type(), "Received");
    EXPECT_EQ(copy.value(), "one");
    EXPECT_FALSE(container.find("x").isNull());
    EXPECT_TRUE(container.find("Receive").isNull());
    EXPECT_EQ(container.headers().back().type(), "X");
}

TEST(RefHeaderList, SharesItsList) {
    const RefHeaderList list(true);
    const RefHeaderList second = list;
    second->append(Header("A", "1"));
    second->append(Header("B", "2"));
    std::string names;
    for (const Header &header : *list) {
        names += header.type();
    }
    EXPECT_EQ(names, "AB");
    EXPECT_EQ(list.find("b").value(), "2");
}

TEST(RefHeaderList, FalseGivesEmptyHandle) {
    EXPECT_TRUE(RefHeaderList(false).isNull());
    EXPECT_THROW(RefHeaderList().find("A"), Exception);
}

} // namespace
} // namespace Corvane
