#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Require.h"
#include "host/parser/html/Tokenizer.h"

namespace {

using namespace Corvane;

// Writes the tokens down, text and comments as one piece however they arrive.
class TokenRecord : public Html::TokenSink {
public:
    explicit TokenRecord(unsigned int wanted) : wanted_(wanted) {}

    void reader(Html::Tokenizer *reader) { reader_ = reader; }
    const std::string &record() const { return record_; }

    void characters(std::string_view text) override { add('T', text); }
    int attributeId(std::string_view name) override {
        return static_cast<int>(name.size()) % 8 < static_cast<int>(wanted_)
                   ? static_cast<int>(name.size())
                   : Html::kUnwanted;
    }
    void startTag(const Html::Tag &tag) override {
        addTag('S', tag);
        constexpr std::size_t kKinds = 6;
        const std::size_t kind =
            (tag.name.size() + static_cast<unsigned char>(tag.name.front())) % (kKinds * 2);
        reader_->inForeignContent(tag.selfClosing);
        reader_->readAs(kind < kKinds ? static_cast<Html::TextKind>(kind) : Html::TextKind::Data);
    }
    void endTag(const Html::Tag &tag) override { addTag('E', tag); }
    void comment(std::string_view piece) override { add('C', piece); }
    void commentEnd() override { last_ = '!'; }
    void doctype(const Html::Doctype &doctype) override {
        add('D', doctype.name + '\n' + doctype.publicId + '\n' + doctype.systemId);
        last_ = '!';
    }

private:
    void add(char kind, std::string_view text) {
        if (text.empty()) {
            return;
        }
        if (last_ != kind) {
            record_ += '\0';
            record_ += kind;
        }
        record_ += text;
        last_ = kind;
    }
    void addTag(char kind, const Html::Tag &tag) {
        add(kind, tag.name);
        for (const Html::Attribute &attribute : tag.attributes) {
            require(attribute.value.size() <= Html::kMaxValueBytes, "values are bounded");
            add('A', std::to_string(attribute.id) + '=');
            add('A', attribute.value);
        }
        last_ = '!';
    }

    Html::Tokenizer *reader_ = nullptr;
    unsigned int wanted_;
    std::string record_;
    char last_ = '!';
};

std::string s_tokens(std::string_view html, std::size_t pieceBytes, unsigned int wanted) {
    TokenRecord record(wanted);
    Html::Tokenizer tokenizer(record);
    record.reader(&tokenizer);
    for (; !html.empty(); html.remove_prefix(std::min(pieceBytes, html.size()))) {
        tokenizer.feed(html.substr(0, pieceBytes));
    }
    tokenizer.finish();
    return record.record();
}

} // namespace

// However the HTML is cut into pieces, its tokens are the same. The first byte chooses how.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view html(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::size_t pieceBytes = 1 + data[0] % 16U;
    const unsigned int wanted = data[0] / 16U;
    require(s_tokens(html, size, wanted) == s_tokens(html, pieceBytes, wanted),
            "pieces do not change the tokens");
    return 0;
}
