#include "heuristic/HeaderPass.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/parser/HeaderText.h"

namespace Corvane::Heuristic {

namespace {

// Room for a header value in UTF-8, its terminator included; a longer value is checked as far as it fits.
constexpr int kHeaderRoomBytes = 2048;

constexpr unsigned int s_bit(HeaderForm form) {
    return 1U << static_cast<unsigned int>(form);
}

// Whether the conversion to UTF-8 leaves the value as it is, as far as that can be told at a glance.
bool s_isShortAscii(const std::string &value) {
    unsigned char all = 0;
    unsigned char zeros = 0;
    for (const char byte : value) {
        all = static_cast<unsigned char>(all | static_cast<unsigned char>(byte));
        zeros = static_cast<unsigned char>(zeros | (byte == 0 ? 1U : 0U));
    }
    return all < 0x80U && zeros == 0 && value.size() < kHeaderRoomBytes;
}

bool s_mayHoldEncodedWord(const std::string &text) {
    return text.find("=?") != std::string::npos;
}

std::string_view s_view(const Buffer &buffer) {
    return {reinterpret_cast<const char *>(buffer.data()), buffer.length()};
}

} // namespace

std::string headerValueInUtf8(const std::string &value) {
    if (s_isShortAscii(value)) {
        return value;
    }
    std::array<char, kHeaderRoomBytes> text{};
    tessel_to_utf8(value.c_str(), text.data(), kHeaderRoomBytes, 0);
    return std::string(text.data());
}

void HeaderPass::add(const Header &header) {
    const auto number = static_cast<std::uint32_t>(units_.size());
    Unit &unit = units_.emplace_back();
    unit.forms.fill(FilteredPass::kNoText);
    unit.firstSelector = selectors_.size();
    unsigned int wanted = 0;
    // The conversion makes an empty header of a null one.
    if (!header.isNull() || values_ == HeaderValues::InUtf8) {
        for (const std::uint32_t each : pass_.selectorsOf(header.type())) {
            const HeaderSelectors::Selector &selector = list_.index().headers().at(each);
            pass_.alsoTry(number, selector.unfiltered);
            wanted |= selector.forms;
            selectors_.push_back(each);
        }
    }
    unit.lastSelector = selectors_.size();
    if (wanted == 0) {
        return;
    }
    if (values_ == HeaderValues::AsTheyAre || s_isShortAscii(header.value())) {
        stageForms(header, header.value(), wanted);
    } else {
        stageForms(header, headerValueInUtf8(header.value()), wanted);
    }
}

// Puts the wanted forms of the latest unit's header behind the texts of the pass.
void HeaderPass::stageForms(const Header &header, const std::string &value, unsigned int wanted) {
    const auto number = static_cast<std::uint32_t>(units_.size() - 1);
    FilteredPass::Forms &forms = units_.back().forms;
    const auto stage = [&](HeaderForm form, std::initializer_list<std::string_view> parts) {
        if ((wanted & s_bit(form)) != 0) {
            forms[static_cast<std::size_t>(form)] = pass_.stage(parts, number, form);
        }
    };
    stage(HeaderForm::Raw, {value});
    if ((wanted & (s_bit(HeaderForm::Value) | s_bit(HeaderForm::All))) != 0) {
        // Owns the decoded value, or views the value itself.
        const Buffer decoded = headerValueDecode(value);
        stage(HeaderForm::Value, {s_view(decoded)});
        if (s_isShortAscii(header.type()) && !s_mayHoldEncodedWord(header.type())) {
            // What stands before the value has no part in its decoding.
            stage(HeaderForm::All, {header.type(), ": ", s_view(decoded)});
        } else {
            const std::string all = header.type() + ": " + value;
            stage(HeaderForm::All, {s_view(headerValueDecode(all))});
        }
    }
    if ((wanted & (s_bit(HeaderForm::Addr) | s_bit(HeaderForm::Name))) != 0) {
        const EmailAddress parsed = EmailAddress::rfc5322Parse(value, true);
        const bool isNull = parsed.isNull();
        stage(HeaderForm::Addr, {isNull ? std::string_view() : parsed.address()});
        stage(HeaderForm::Name, {isNull ? std::string_view() : parsed.displayName()});
    }
}

bool HeaderPass::run() {
    pass_.selectStaged();
    const auto units = static_cast<std::uint32_t>(units_.size());
    bool tripped = false;
    for (std::uint32_t number = 0; number < units && !tripped;
         number = pass_.nextUnit(number + 1, units)) {
        const Unit &unit = units_[number];
        pass_.tryHeader(
            number, unit.forms,
            {selectors_.data() + unit.firstSelector, selectors_.data() + unit.lastSelector},
            matches_);
        tripped = matches_->tripped();
    }
    units_.clear();
    selectors_.clear();
    pass_.clear();
    return tripped;
}

} // namespace Corvane::Heuristic
