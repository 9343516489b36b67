#ifndef CORVANE_REPORT_JSONBYTES_H
#define CORVANE_REPORT_JSONBYTES_H

// Bytes that need not be UTF-8 as members of JSON objects, of nlohmann's kinds.
//
// Threads: free functions without state.

#include <string>

namespace Corvane::Reporting {

constexpr const char *kHexSuffix = "Hex";
constexpr const char *kHexDigits = "0123456789abcdef";
constexpr unsigned int kHexBase = 16;

// Two digits for each byte.
inline std::string hexOf(const std::string &bytes) {
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += kHexDigits[value / kHexBase];
        hex += kHexDigits[value % kHexBase];
    }
    return hex;
}

// Sets the member to the text. What is not UTF-8 of it will be replaced when the object is written with error_handler_t::replace;
// then the bytes are in a second member too, whose key ends in "Hex".
template <class Json>
void setBytes(Json &object, const std::string &key, const std::string &bytes) {
    object[key] = bytes;
    const auto rendered = [&](typename Json::error_handler_t handler) {
        return object[key].dump(-1, ' ', false, handler);
    };
    // The two agree where there is nothing to handle.
    if (rendered(Json::error_handler_t::ignore) != rendered(Json::error_handler_t::replace)) {
        object[key + kHexSuffix] = hexOf(bytes);
    }
}

} // namespace Corvane::Reporting

#endif
