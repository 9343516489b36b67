#include "host/parser/MimeContent.h"

#include <string>

#include <gtest/gtest.h>

#include "support/ReadMail.h"

namespace Corvane {
namespace {

MimeContent contentOf(const std::string &headers) {
    MimeContentReader reader;
    LineReader lines(headers);
    readHeaderBlock(
        lines, [](std::string_view) { return false; },
        [&reader](const ReceivedHeader &header) { reader.take(header); });
    return reader.content();
}

struct TypeRow {
    const char *name;
    std::string value;
    std::string type;
    std::string charset;
    bool isGuessed;
};

void PrintTo(const TypeRow &row, std::ostream *out) {
    *out << row.name;
}

class ContentType : public testing::TestWithParam<TypeRow> {};

TEST_P(ContentType, IsRead) {
    const TypeRow &row = GetParam();
    const MimeContent content = contentOf("Content-Type: " + row.value + "\n");
    EXPECT_EQ(content.type + '/' + content.subtype, row.type);
    EXPECT_EQ(content.charset, row.charset);
    EXPECT_EQ(content.isGuessed, row.isGuessed);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ContentType,
    testing::Values(
        TypeRow{"usual", "Text/HTML; charset=\"UTF-8\"", "text/html", "UTF-8", false},
        TypeRow{"comments", "(a(b)\\)) text (c) / (d) html (e) ; (f) charset (g)=utf-8(h)",
                "text/html", "utf-8", false},
        TypeRow{"blanksInside", "text / html;charset = utf-8 ;x", "text/html", "utf-8", false},
        TypeRow{"noSemicolon", "text/html charset=utf-8", "text/html", "utf-8", false},
        TypeRow{"comma", "text/html, charset=utf-8", "text/html", "utf-8", false},
        TypeRow{"firstCharset", "text/html; charset=a; charset=b", "text/html", "a", false},
        TypeRow{"quotesOfBothKinds", "text/plain; charset=\" 'koi8-r' \"", "text/plain", "koi8-r",
                false},
        TypeRow{"extendedCharset", "text/plain; charset*=''koi8-r", "text/plain", "koi8-r", false},
        TypeRow{"nul", std::string("te\0xt/ht\0ml\0;\0charset=utf-8", 27), "text/html", "utf-8",
                false},
        TypeRow{"noSubtype", "text/; charset=utf-8", "text/plain", "utf-8", true},
        TypeRow{"noType", "/plain", "text/plain", "", true},
        TypeRow{"quoted", "\"text/html\"", "text/plain", "", true},
        TypeRow{"twoSlashes", "text//html", "text/plain", "", true},
        TypeRow{"brackets", "<text/html>", "text/plain", "", true},
        TypeRow{"encodedWord", "=?utf-8?Q?text/html?=", "text/plain", "", true},
        TypeRow{"empty", "", "text/plain", "", true},
        TypeRow{"multipartAlone", "multipart", "multipart/mixed", "", true},
        TypeRow{"quotedMultipart", "\"multipart/alternative\"; boundary=x", "multipart/alternative",
                "", true}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(MimeContent, ReadsEncodingAndDispositionOfTheFirstHeader) {
    struct Row {
        std::string headers;
        TransferEncoding encoding;
        bool isAttachment;
    };
    const Row rows[] = {
        {"Content-Transfer-Encoding: (x) BASE64 ;y\n", TransferEncoding::Base64, false},
        {std::string("content-transfer-encoding: base\0"
                     "64\n",
                     35),
         TransferEncoding::Base64, false},
        {"Content-Transfer-Encoding: 7bit\nContent-Transfer-Encoding: base64\n",
         TransferEncoding::None, false},
        {"Content-Disposition: \"attachment\"; filename=x\n", TransferEncoding::None, true},
        {"Content-Disposition: attachments\n", TransferEncoding::None, false}};
    for (const Row &row : rows) {
        EXPECT_EQ(contentOf(row.headers).encoding, row.encoding) << row.headers;
        EXPECT_EQ(contentOf(row.headers).isAttachment, row.isAttachment) << row.headers;
    }
}

TEST(MimeContent, NamesACutOfAParameter) {
    const std::string longest(std::size_t{16} << 10U, 'x');
    EXPECT_FALSE(contentOf("Content-Type: a/b; boundary=\"" + longest + "\"\n").isCut);
    EXPECT_TRUE(contentOf("Content-Type: a/b; boundary=\"" + longest + "x\"\n").isCut);
    EXPECT_TRUE(contentOf("Content-Type: a/b; charset=" + longest + "\n").isCut);
    EXPECT_TRUE(Reading("Content-Type: a/b; charset=" + longest + "\n\nx")
                    .hit(MailLimit::HeaderValueBytes));
}

// A type that is none says plain text, unless the bytes say otherwise.
TEST(MimeContent, GuessesHtmlFromTheBytes) {
    for (const char *type : {"text/", "/plain", "\"text/html\"", "text//html", "<text/html>",
                             "=?utf-8?Q?text/html?=", ""}) {
        const std::string header = std::string("Content-Type: ") + type + "\n";
        EXPECT_EQ(Reading(header + "\nplain <words>").text(), "plain <words>\n") << type;
        EXPECT_EQ(Reading(header + "\n<P class=x>rich <b>words</b>").text(), "rich words\n")
            << type;
        EXPECT_EQ(Reading(header + "Content-Transfer-Encoding: base64\n\nPGI+Ym9sZDwvYj4=").text(),
                  "bold\n")
            << type;
    }
    EXPECT_EQ(Reading("Content-Type: text/plain\n\n<b>x</b>").text(), "<b>x</b>\n");
}

} // namespace
} // namespace Corvane
