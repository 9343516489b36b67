#include "host/parser/MimePart.h"

#include <gtest/gtest.h>

#include "host/parser/MessageProperties.h"
#include "host/parser/Uri.h"

namespace Corvane {
namespace {

Ref<MPartAttribute> textOf(const char *charset, unsigned int flags) {
    return Ref<MPartAttribute>(new MPartText(charset, Buffer("text", 4, false), flags));
}

TEST(MimePart, AttributesAreToldApartByClass) {
    MimePart part;
    part.attr(MPartAttribute::Text, textOf("utf-8", MPartText::kDiffers));
    part.attr(MPartAttribute::RawText, Ref<MPartAttribute>(new MPartAttribute));
    part.attr(MPartAttribute::Uris, Ref<MPartAttribute>(new UriContainer));

    const auto *text = dynamic_cast<const MPartText *>(part.findAttr(MPartAttribute::Text));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->charset(), "utf-8");
    EXPECT_EQ(text->text().asString(), "text");
    EXPECT_EQ(text->flags(), 1U);
    ASSERT_NE(part.findAttr(MPartAttribute::RawText), nullptr);
    EXPECT_EQ(dynamic_cast<const MPartText *>(part.findAttr(MPartAttribute::RawText)), nullptr);
    EXPECT_EQ(dynamic_cast<const MPartText *>(part.findAttr(MPartAttribute::Uris)), nullptr);
    EXPECT_EQ(part.findAttr(MPartAttribute::AltText), nullptr);
}

TEST(MimePart, AttributeIsReplacedAndTakenAway) {
    MimePart part;
    part.attr(MPartAttribute::Text, textOf("a", 0));
    part.attr(MPartAttribute::Text, textOf("b", 0));
    const auto *text = dynamic_cast<const MPartText *>(part.findAttr(MPartAttribute::Text));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->charset(), "b");
    part.attr(MPartAttribute::Text, Ref<MPartAttribute>());
    EXPECT_EQ(part.findAttr(MPartAttribute::Text), nullptr);
    part.attr(MPartAttribute::Text, Ref<MPartAttribute>(static_cast<MPartAttribute *>(nullptr)));
    EXPECT_EQ(part.findAttr(MPartAttribute::Text), nullptr);
}

TEST(MessageProperties, NoMainPartIsHandleHoldingNull) {
    const RefHeaderList headers(true);
    const RefMessageProperties message =
        RefMessageProperties::create(headers, Ref<MimePart>(static_cast<MimePart *>(nullptr)));
    headers->append(Header("A", "1"));
    EXPECT_EQ(message->headers().find("a").value(), "1");
    EXPECT_FALSE(message->part().isNull());
    EXPECT_EQ(message->part().operator->(), nullptr);
    EXPECT_TRUE(RefMessageProperties().isNull());
}

} // namespace
} // namespace Corvane
