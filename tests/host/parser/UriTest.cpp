#include "host/parser/Uri.h"

#include <string>

#include <gtest/gtest.h>

namespace Corvane {
namespace {

TEST(Uri, NullIsNotEmptiness) {
    EXPECT_TRUE(Uri().isNull());
    EXPECT_FALSE(Uri("").isNull());
    EXPECT_EQ(Uri("mailto:a@example.com").asString(), "mailto:a@example.com");
}

TEST(UriContainer, KeepsOrderInsideEachSource) {
    UriContainer uris;
    uris.add(7, Uri("c"));
    uris.add(UriContainer::kText, Uri("b"));
    uris.add(UriContainer::kText, Uri("a"));
    uris.add(UriContainer::kText, Uri("b"));
    std::string seen;
    for (const auto &[source, list] : uris.sourced()) {
        seen += std::to_string(source);
        for (const Uri &uri : list) {
            seen += uri.asString();
        }
    }
    EXPECT_EQ(seen, "1bab7c");
}

class FailingContainer : public UriContainer {
public:
    const Sources &sourced() const override { throw Exception("sourced", 4, nullptr, 0); }
};

TEST(UriContainer, DerivedOneMayFail) {
    const Ref<MPartAttribute> attribute(new FailingContainer);
    const auto *uris = dynamic_cast<const UriContainer *>(attribute.operator->());
    ASSERT_NE(uris, nullptr);
    EXPECT_THROW(uris->sourced(), Exception);
}

} // namespace
} // namespace Corvane
