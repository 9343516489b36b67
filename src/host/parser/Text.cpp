#include "host/parser/Text.h"

#include <algorithm>

#include "host/parser/ByteSet.h"

namespace Corvane {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr ByteSet kWhiteSpaceBytes = byteSet(kWhiteSpace);

} // namespace

void stringLeftTrim(std::string &text) {
    text.erase(0, findNotIn(kWhiteSpaceBytes, text));
}

void stringRightTrim(std::string &text) {
    while (!text.empty() && isIn(kWhiteSpaceBytes, text.back())) {
        text.pop_back();
    }
}

std::size_t stringFindWhiteSpace(const std::string &text, std::size_t from) {
    return text.find_first_of(kWhiteSpace, from);
}

std::size_t stringFindNonWhiteSpace(const std::string &text, std::size_t from) {
    return text.find_first_not_of(kWhiteSpace, from);
}

void copyStringToLower(const char *src, std::string &dst, unsigned long from, unsigned long count) {
    dst.assign(src + from, count);
    std::transform(dst.begin(), dst.end(), dst.begin(), toLowerAscii);
}

bool equalIgnoringCase(const std::string &left, const std::string &right) {
    return left.size() == right.size() &&
           std::equal(left.begin(), left.end(), right.begin(),
                      [](char a, char b) { return toLowerAscii(a) == toLowerAscii(b); });
}

} // namespace Corvane
