#include "host/parser/MimeContent.h"

#include <algorithm>
#include <memory>

#include <gmime/gmime.h>

#include "host/parser/GMimeInit.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

struct Unref {
    void operator()(GMimeContentType *type) const { g_object_unref(type); }
};

std::string s_lower(const char *text) {
    std::string lower(text != nullptr ? text : "");
    std::transform(lower.begin(), lower.end(), lower.begin(), toLowerAscii);
    return lower;
}

// The word in front of parameters and comments, in lower case.
std::string s_firstWord(const std::string &value) {
    constexpr const char *kAround = " \t\"'";
    const std::size_t start = std::min(value.find_first_not_of(kAround), value.size());
    const std::size_t end = value.find_first_of(" \t\"';(", start);
    return s_lower(value.substr(start, end - start).c_str());
}

std::string s_parameter(GMimeContentType *type, const char *name) {
    const char *found = g_mime_content_type_get_parameter(type, name);
    std::string value(found != nullptr ? found : "");
    constexpr const char *kAround = " \t\"'";
    value.erase(value.find_last_not_of(kAround) + 1);
    value.erase(0, std::min(value.find_first_not_of(kAround), value.size()));
    return value;
}

void s_readType(const std::string &value, MimeContent &content) {
    const std::unique_ptr<GMimeContentType, Unref> type(
        g_mime_content_type_parse(nullptr, value.c_str()));
    if (type == nullptr) {
        return;
    }
    content.charset = s_parameter(type.get(), "charset");
    content.boundary = s_parameter(type.get(), "boundary");
    const std::string word = s_firstWord(value);
    if (word.find('/') != std::string::npos) {
        content.type = s_lower(g_mime_content_type_get_media_type(type.get()));
        content.subtype = s_lower(g_mime_content_type_get_media_subtype(type.get()));
    } else if (word == "multipart") {
        content.type = word;
        content.subtype = "mixed";
    }
}

TransferEncoding s_encodingOf(const std::string &value) {
    const std::string word = s_firstWord(value);
    if (word == "base64") {
        return TransferEncoding::Base64;
    }
    if (word == "quoted-printable") {
        return TransferEncoding::QuotedPrintable;
    }
    const bool isUuencode = word == "x-uuencode" || word == "uuencode" || word == "x-uue";
    return isUuencode ? TransferEncoding::Uuencode : TransferEncoding::None;
}

GMimeContentEncoding s_gmimeEncoding(TransferEncoding encoding) {
    switch (encoding) {
    case TransferEncoding::Base64:
        return GMIME_CONTENT_ENCODING_BASE64;
    case TransferEncoding::QuotedPrintable:
        return GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE;
    case TransferEncoding::Uuencode:
        return GMIME_CONTENT_ENCODING_UUENCODE;
    case TransferEncoding::None:
        break;
    }
    return GMIME_CONTENT_ENCODING_BINARY;
}

// The lines after "begin MODE NAME"; everything where there is no such line.
std::string_view s_uuencodedLines(std::string_view encoded) {
    constexpr std::string_view kBegin = "begin ";
    std::size_t begin = 0;
    if (encoded.substr(0, kBegin.size()) != kBegin) {
        begin = encoded.find("\nbegin ");
        if (begin == std::string_view::npos) {
            return encoded;
        }
        ++begin;
    }
    const std::size_t lineEnd = encoded.find('\n', begin);
    return lineEnd == std::string_view::npos ? std::string_view() : encoded.substr(lineEnd + 1);
}

// Decodes onto the end of a string, until that has more than maxBytes.
class Decoder {
public:
    Decoder(TransferEncoding encoding, std::size_t maxBytes, std::string &decoded)
        : maxBytes_(maxBytes), decoded_(decoded) {
        g_mime_encoding_init_decode(&state_, s_gmimeEncoding(encoding));
    }

    void take(std::string_view encoded) {
        constexpr std::size_t kStepBytes = 64U << 10U;
        while (!encoded.empty() && decoded_.size() <= maxBytes_) {
            const std::string_view step = encoded.substr(0, kStepBytes);
            const std::size_t before = decoded_.size();
            decoded_.resize(before + g_mime_encoding_outlen(&state_, step.size()));
            decoded_.resize(before + g_mime_encoding_step(&state_, step.data(), step.size(),
                                                          decoded_.data() + before));
            encoded.remove_prefix(step.size());
        }
    }

private:
    GMimeEncoding state_{};
    std::size_t maxBytes_;
    std::string &decoded_;
};

bool s_isBase64(char c) {
    const char lower = toLowerAscii(c);
    return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Padding may be missing at the end, and more text may follow it: neither must hide anything, so
// each run between paddings is decoded for itself and padded as it needs.
void s_decodeBase64(std::string_view encoded, std::size_t maxBytes, std::string &decoded) {
    constexpr std::ptrdiff_t kQuantum = 4;
    constexpr std::string_view kPadding = "==";
    while (!encoded.empty() && decoded.size() <= maxBytes) {
        const std::size_t end = std::min(encoded.find('='), encoded.size());
        const std::string_view run = encoded.substr(0, end);
        const auto rest = std::count_if(run.begin(), run.end(), s_isBase64) % kQuantum;
        Decoder decoder(TransferEncoding::Base64, maxBytes, decoded);
        decoder.take(run);
        if (rest > 1) {
            decoder.take(kPadding.substr(0, static_cast<std::size_t>(kQuantum - rest)));
        }
        encoded.remove_prefix(std::min(end + 1, encoded.size()));
    }
}

std::string_view s_cutAtLineEnd(std::string_view bytes, std::size_t maxBytes) {
    const std::string_view cut = bytes.substr(0, maxBytes);
    const std::size_t lineEnd = cut.rfind('\n');
    return lineEnd == std::string_view::npos ? cut : cut.substr(0, lineEnd + 1);
}

} // namespace

MimeContent mimeContentOf(const HeaderContainer &headers) {
    initialiseGMime();
    MimeContent content{"text", "plain", "", "", TransferEncoding::None, false};
    bool typed = false;
    bool encoded = false;
    bool disposed = false;
    // The first header of each name counts, as in mail clients.
    for (const Header &header : headers.headers()) {
        if (!typed && equalIgnoringCase(header.type(), "Content-Type")) {
            typed = true;
            s_readType(header.value(), content);
        } else if (!encoded && equalIgnoringCase(header.type(), "Content-Transfer-Encoding")) {
            encoded = true;
            content.encoding = s_encodingOf(header.value());
        } else if (!disposed && equalIgnoringCase(header.type(), "Content-Disposition")) {
            disposed = true;
            content.isAttachment = s_firstWord(header.value()) == "attachment";
        }
    }
    return content;
}

DecodedContent decodeTransfer(std::string_view encoded, TransferEncoding encoding,
                              std::size_t maxBytes, std::string &storage) {
    if (encoding == TransferEncoding::None) {
        const bool isCut = encoded.size() > maxBytes;
        return {isCut ? s_cutAtLineEnd(encoded, maxBytes) : encoded, isCut};
    }
    storage.clear();
    if (encoding == TransferEncoding::Base64) {
        s_decodeBase64(encoded, maxBytes, storage);
    } else {
        Decoder decoder(encoding, maxBytes, storage);
        decoder.take(encoding == TransferEncoding::Uuencode ? s_uuencodedLines(encoded) : encoded);
    }
    const bool isCut = storage.size() > maxBytes;
    return {isCut ? s_cutAtLineEnd(storage, maxBytes) : std::string_view(storage), isCut};
}

} // namespace Corvane
