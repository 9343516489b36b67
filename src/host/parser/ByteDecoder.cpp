#include "host/parser/ByteDecoder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <map>

#include <iconv.h>

#include "host/parser/Lasting.h"
#include "host/parser/Utf8.h"

namespace Corvane {

namespace {

constexpr unsigned char kFirstNonAscii = 0x80;

bool s_isAscii(char byte) {
    return static_cast<unsigned char>(byte) < kFirstNonAscii;
}

struct CloseIconv {
    void operator()(void *converter) const { iconv_close(converter); }
};

struct Converter {
    std::unique_ptr<void, CloseIconv> iconv;
    // Whether more must follow the byte.
    std::array<bool, 256> isLead{};
};

using Converters = std::map<std::string, Converter>;

Converter s_open(const std::string &name) {
    Converter converter;
    iconv_t opened = iconv_open("UTF-8", name.c_str());
    // iconv's "none" is a pointer of all ones.
    if (reinterpret_cast<std::intptr_t>(opened) == -1) {
        return converter;
    }
    converter.iconv.reset(opened);
    for (std::size_t i = 0; i < converter.isLead.size(); ++i) {
        constexpr std::size_t kRoom = 16;
        std::array<char, kRoom> out;
        char byte = static_cast<char>(i);
        char *input = &byte;
        char *output = out.data();
        std::size_t left = 1;
        std::size_t room = out.size();
        iconv(opened, nullptr, nullptr, nullptr, nullptr);
        const bool failed =
            iconv(opened, &input, &left, &output, &room) == static_cast<std::size_t>(-1);
        converter.isLead[i] = failed && errno == EINVAL;
    }
    return converter;
}

// This thread's converter, in its initial state, or one of null. Kept open: opening one for each of
// thousands of encoded words would load and unload its module each time. The table of names bounds
// how many.
const Converter &s_converter(const std::string &name) {
    auto &open = PerThread<Converters>::value();
    auto found = open.find(name);
    if (found == open.end()) {
        found = open.emplace(name, s_open(name)).first;
    }
    if (found->second.iconv != nullptr) {
        iconv(found->second.iconv.get(), nullptr, nullptr, nullptr, nullptr);
    }
    return found->second;
}

// One call of iconv, its output appended. With null input it flushes what a stateful charset holds
// back. Answers errno, or 0.
int s_step(iconv_t converter, char **input, std::size_t *left, std::string &out) {
    constexpr std::size_t kChunkBytes = 8192;
    std::array<char, kChunkBytes> chunk;
    char *output = chunk.data();
    std::size_t room = chunk.size();
    const bool failed =
        iconv(converter, input, left, &output, &room) == static_cast<std::size_t>(-1);
    const int error = failed ? errno : 0;
    out.append(chunk.data(), chunk.size() - room);
    return error;
}

class IconvDecoder : public ByteDecoder {
public:
    IconvDecoder(const Converter &converter, std::size_t unitBytes)
        : converter_(converter), unitBytes_(unitBytes) {}

    void decode(std::string_view bytes, std::string &out) override {
        if (waiting_.empty()) {
            convert(bytes, out);
            return;
        }
        const std::string joined = waiting_.append(bytes);
        waiting_.clear();
        convert(joined, out);
    }

    void finish(std::string &out) override {
        if (!waiting_.empty()) {
            appendUtf8(out, kReplacementCharacter);
            waiting_.clear();
        }
        s_step(converter_.iconv.get(), nullptr, nullptr, out);
    }

private:
    void convert(std::string_view bytes, std::string &out) {
        // iconv takes its input by a pointer to non-const, but only reads it.
        char *input = const_cast<char *>(bytes.data());
        std::size_t left = bytes.size();
        while (left > 0) {
            const int error = s_step(converter_.iconv.get(), &input, &left, out);
            if (error == EINVAL) {
                waiting_.assign(input, left);
                return;
            }
            if (error == EILSEQ) {
                const std::size_t skipped = malformedBytes({input, left}, out);
                input += skipped;
                left -= skipped;
            }
        }
    }

    // Notes the malformed character at the front, and answers how long it is.
    std::size_t malformedBytes(std::string_view bytes, std::string &out) const {
        appendUtf8(out, kReplacementCharacter);
        if (unitBytes_ > 1) {
            return std::min(unitBytes_, bytes.size());
        }
        const bool isLead = converter_.isLead[static_cast<unsigned char>(bytes[0])];
        return isLead && bytes.size() > 1 && !s_isAscii(bytes[1]) ? 2 : 1;
    }

    const Converter &converter_;
    std::size_t unitBytes_;
    // The front of a character.
    std::string waiting_;
};

using Upper = std::array<char32_t, 128>;

// What the encoding standard has and iconv has not, or otherwise.
struct Difference {
    const char *iconvName;
    unsigned char byte;
    char32_t codePoint;
};

constexpr Difference kDifferences[] = {{"CP1255", 0xCA, 0x05BA},
                                       {"KOI8-U", 0xAE, 0x045E},
                                       {"KOI8-U", 0xBE, 0x040E},
                                       {"MAC-UK", 0xFF, 0x20AC}};

Upper s_makeUpper(const std::string &name, iconv_t converter) {
    constexpr unsigned char kFirstBehindControls = 0xA0;
    const bool isWindows = name.starts_with("CP125") || name == "CP874";
    Upper upper{};
    for (std::size_t i = 0; i < upper.size(); ++i) {
        const auto byte = static_cast<unsigned char>(kFirstNonAscii + i);
        char bytes = static_cast<char>(byte);
        char *input = &bytes;
        std::size_t left = 1;
        std::string utf8;
        s_step(converter, &input, &left, utf8);
        s_step(converter, nullptr, nullptr, utf8);
        const bool isControl = isWindows && byte < kFirstBehindControls;
        upper[i] = !utf8.empty() ? utf8CodePoint(utf8.data(), utf8.size())
                   : isControl   ? byte
                                 : kReplacementCharacter;
    }
    for (const Difference &difference : kDifferences) {
        if (name == difference.iconvName) {
            upper[difference.byte - kFirstNonAscii] = difference.codePoint;
        }
    }
    return upper;
}

class SingleByteDecoder : public ByteDecoder {
public:
    explicit SingleByteDecoder(const Upper &upper) : upper_(upper) {}

    void decode(std::string_view bytes, std::string &out) override {
        out.reserve(out.size() + bytes.size());
        while (!bytes.empty()) {
            const std::size_t ascii = asciiLength(bytes.data(), bytes.size());
            out.append(bytes.substr(0, ascii));
            bytes.remove_prefix(ascii);
            for (; !bytes.empty() && !s_isAscii(bytes.front()); bytes.remove_prefix(1)) {
                const auto byte = static_cast<unsigned char>(bytes.front());
                appendUtf8(out, upper_[byte - kFirstNonAscii]);
            }
        }
    }

    void finish(std::string &) override {}

private:
    const Upper &upper_;
};

class Utf8Decoder : public ByteDecoder {
public:
    explicit Utf8Decoder(InvalidBytes invalid) : invalid_(invalid) {}

    void decode(std::string_view bytes, std::string &out) override {
        if (waiting_.empty()) {
            convert(bytes, out);
            return;
        }
        const std::string joined = waiting_.append(bytes);
        waiting_.clear();
        convert(joined, out);
    }

    void finish(std::string &out) override {
        repair(waiting_, out);
        waiting_.clear();
    }

private:
    // In steps, so that of a long text no second copy is made.
    void convert(std::string_view bytes, std::string &out) {
        constexpr std::size_t kStepBytes = 64U << 10U;
        while (true) {
            const std::string_view step = bytes.substr(0, kStepBytes);
            const std::size_t whole = utf8WholeLength(step.data(), step.size());
            repair(step.substr(0, whole), out);
            if (step.size() == bytes.size()) {
                waiting_ = step.substr(whole);
                return;
            }
            bytes.remove_prefix(whole);
        }
    }

    void repair(std::string_view bytes, std::string &out) const {
        if (asciiLength(bytes.data(), bytes.size()) == bytes.size()) {
            out.append(bytes);
            return;
        }
        out += invalid_ == InvalidBytes::Replaced ? sanitizeUtf8(bytes.data(), bytes.size())
                                                  : repairUtf8(bytes.data(), bytes.size());
    }

    InvalidBytes invalid_;
    // The front of a character.
    std::string waiting_;
};

} // namespace

std::unique_ptr<ByteDecoder> makeUtf8Decoder(InvalidBytes invalid) {
    return std::make_unique<Utf8Decoder>(invalid);
}

std::unique_ptr<ByteDecoder> makeSingleByteDecoder(const std::string &iconvName) {
    auto &uppers = PerThread<std::map<std::string, Upper>>::value();
    auto found = uppers.find(iconvName);
    if (found == uppers.end()) {
        const Converter &converter = s_converter(iconvName);
        if (converter.iconv == nullptr) {
            return nullptr;
        }
        found = uppers.emplace(iconvName, s_makeUpper(iconvName, converter.iconv.get())).first;
    }
    return std::make_unique<SingleByteDecoder>(found->second);
}

std::unique_ptr<ByteDecoder> makeIconvDecoder(const std::string &iconvName, std::size_t unitBytes) {
    const Converter &converter = s_converter(iconvName);
    if (converter.iconv == nullptr) {
        return nullptr;
    }
    return std::make_unique<IconvDecoder>(converter, unitBytes);
}

std::string decodeAll(ByteDecoder &decoder, std::string_view bytes) {
    std::string out;
    decoder.decode(bytes, out);
    decoder.finish(out);
    return out;
}

} // namespace Corvane
