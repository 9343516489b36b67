#include "host/parser/Exception.h"

#include <algorithm>

namespace Corvane {

namespace {

bool s_isControl(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    constexpr unsigned char kFirstPrintable = 0x20;
    constexpr unsigned char kDelete = 0x7F;
    return value < kFirstPrintable || value == kDelete;
}

} // namespace

Exception::Exception(const std::string &message, int code, const char *file, unsigned int line)
    : message_(message), code_(code), file_(file != nullptr ? file : ""), line_(line) {
    render();
}

Exception::Exception(const Exception &) = default;
Exception::Exception(Exception &&) noexcept = default;
Exception &Exception::operator=(const Exception &) = default;
Exception &Exception::operator=(Exception &&) noexcept = default;
Exception::~Exception() = default;

void Exception::stringParameter(const std::string &parameter) {
    parameters_.push_back(parameter);
    render();
}

void Exception::cause(const Exception &inner) {
    cause_ = std::make_shared<const Exception>(inner);
    render();
}

std::string Exception::asString() const {
    return rendered_;
}

void Exception::render() {
    std::string text = message_;
    const char *separator = " (";
    for (const std::string &parameter : parameters_) {
        text += separator + parameter;
        separator = "; ";
    }
    if (!parameters_.empty()) {
        text += ')';
    }
    text += " [" + std::to_string(code_);
    if (!file_.empty()) {
        text += ' ' + file_ + ':' + std::to_string(line_);
    }
    text += ']';
    std::replace_if(text.begin(), text.end(), s_isControl, ' ');
    if (cause_ != nullptr) {
        text += " <- " + cause_->rendered_;
    }
    rendered_ = std::move(text);
}

} // namespace Corvane
