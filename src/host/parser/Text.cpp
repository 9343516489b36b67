#include "host/parser/Text.h"

#include <algorithm>

namespace Corvane {

namespace {

constexpr const char *kWhiteSpace = " \t\n\v\f\r";

} // namespace

void stringLeftTrim(std::string &text) {
    text.erase(0, std::min(text.find_first_not_of(kWhiteSpace), text.size()));
}

void stringRightTrim(std::string &text) {
    text.erase(text.find_last_not_of(kWhiteSpace) + 1);
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
