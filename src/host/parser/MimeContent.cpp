#include "host/parser/MimeContent.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/parser/MimeParameters.h"
#include "host/parser/Text.h"

namespace Corvane {

namespace {

bool s_isNamed(const ReceivedHeader &header, std::string_view lowerName) {
    return header.name.size() == lowerName.size() &&
           std::equal(lowerName.begin(), lowerName.end(), header.name.begin(),
                      [](char expected, char c) { return expected == toLowerAscii(c); });
}

// The word in front of parameters and comments, in lower case.
std::string s_firstWord(std::string_view value) {
    constexpr std::size_t kMaxWordBytes = 64;
    skipBlanksAndComments(value);
    std::string word;
    for (const char c : value.substr(0, kMaxWordBytes)) {
        if (c == '"' || c == '\'' || c == '\0') {
            continue;
        }
        if (isWhiteSpace(static_cast<unsigned char>(c)) || c == ';' || c == '(' || c == ',') {
            break;
        }
        word += toLowerAscii(c);
    }
    return word;
}

bool s_contains(const std::string &text, const char *word) {
    return text.find(word) != std::string::npos;
}

// What a type that is none may be meant to be. Only what holds other parts matters: what is a text
// shows in its bytes.
void s_guess(std::string_view value, MimeContent &content) {
    constexpr std::size_t kMaxGuessedBytes = 256;
    std::string front;
    for (const char c : value.substr(0, std::min(value.find(';'), kMaxGuessedBytes))) {
        front.append(c == '\0' ? 0 : 1, toLowerAscii(c));
    }
    content.isGuessed = true;
    if (s_contains(front, "multipart")) {
        content.type = "multipart";
        content.subtype = s_contains(front, "alternative") ? "alternative" : "mixed";
    }
}

void s_readParameters(std::string_view value, MimeContent &content) {
    constexpr std::size_t kMaxCharsetBytes = 1024;
    constexpr std::size_t kMaxBoundaryBytes = 16U << 10U;
    MimeParameters parameters(value);
    MimeParameter charset("charset", kMaxCharsetBytes);
    MimeParameter boundary("boundary", kMaxBoundaryBytes);
    while (parameters.next()) {
        charset.take(parameters);
        boundary.take(parameters);
    }
    const std::vector<std::string> names = charset.forms();
    content.charset = names.empty() ? std::string() : trimmedOfQuotes(names.front());
    content.boundaries = boundary.forms();
    content.isCut = charset.isCut() || boundary.isCut();
}

void s_readType(std::string_view value, MimeContent &content) {
    std::string_view rest = value;
    std::pair<std::string, std::string> type;
    if (readMediaType(rest, type)) {
        content.type = type.first;
        content.subtype = type.second;
    } else {
        const std::size_t semicolon = value.find(';');
        rest = value.substr(semicolon == std::string_view::npos ? 0 : semicolon);
        s_guess(value, content);
    }
    s_readParameters(rest, content);
}

TransferEncoding s_encodingOf(const std::string &word) {
    if (word == "base64") {
        return TransferEncoding::Base64;
    }
    if (word == "quoted-printable") {
        return TransferEncoding::QuotedPrintable;
    }
    const bool isUuencode = word == "x-uuencode" || word == "uuencode" || word == "x-uue";
    return isUuencode ? TransferEncoding::Uuencode : TransferEncoding::None;
}

} // namespace

void MimeContentReader::take(const ReceivedHeader &header) {
    if (toLowerAscii(header.name.front()) != 'c') {
        return;
    }
    const std::string_view value = header.value.bytes();
    if (!content_.isTyped && s_isNamed(header, "content-type")) {
        content_.isTyped = true;
        s_readType(value, content_);
    } else if (!isEncoded_ && s_isNamed(header, "content-transfer-encoding")) {
        isEncoded_ = true;
        content_.encoding = s_encodingOf(s_firstWord(value));
    } else if (!isDisposed_ && s_isNamed(header, "content-disposition")) {
        isDisposed_ = true;
        content_.isAttachment = s_firstWord(value) == "attachment";
    }
}

} // namespace Corvane
