#include <algorithm>
#include <array>

#include "host/parser/ByteDecoder.h"
#include "host/parser/Utf8.h"

namespace Corvane {

namespace {

constexpr char kEscape = '\x1B';
constexpr char kShiftOut = '\x0E';
constexpr char kShiftIn = '\x0F';
constexpr unsigned char kHighBit = 0x80;

// Sets of characters that may be switched to; those of two bytes a character first, as in kPairSets.
enum class Set {
    Jis0208,
    Jis0212,
    Jis0213First,
    Jis0213Second,
    Gb2312,
    Ksc5601,
    CnsFirst,
    CnsSecond,
    Ascii,
    JisRoman,
    Katakana,
    Latin1
};

// How iconv reads a set of two bytes a character: in an encoding that has it with the high bits
// set, and with bytes in front of each character. JIS X 0208 is read in Shift_JIS, where the vendor
// characters are those that mail programs write.
struct PairSet {
    const char *iconvName;
    std::string_view prefix;
};

constexpr std::array<PairSet, 8> kPairSets{{{"CP932", ""},
                                            {"EUC-JP-MS", "\x8F"},
                                            {"EUC-JISX0213", ""},
                                            {"EUC-JISX0213", "\x8F"},
                                            {"GB18030", ""},
                                            {"UHC", ""},
                                            {"EUC-TW", "\x8E\xA1"},
                                            {"EUC-TW", "\x8E\xA2"}}};

constexpr bool s_isOfPairs(Set set) {
    return static_cast<std::size_t>(set) < kPairSets.size();
}

constexpr const PairSet &s_pairSet(Set set) {
    return kPairSets[static_cast<std::size_t>(set)];
}

// A character of JIS X 0208 in Shift_JIS, which puts two rows into one.
void s_appendShiftJis(std::string &text, unsigned char row, unsigned char cell) {
    constexpr unsigned int kFirst = 0x21;
    constexpr unsigned int kFirstLead = 0x81;
    constexpr unsigned int kLastLowLead = 0x9F;
    constexpr unsigned int kToHighLead = 0x40;
    constexpr unsigned int kToUpperTrail = 0x7E;
    constexpr unsigned int kToLowerTrail = 0x1F;
    constexpr unsigned int kDelete = 0x7F;
    const unsigned int lead = ((row - kFirst) >> 1U) + kFirstLead;
    const unsigned int lower = cell + kToLowerTrail;
    const unsigned int trail =
        row % 2 == 0 ? cell + kToUpperTrail : lower + (lower >= kDelete ? 1U : 0U);
    text += static_cast<char>(lead + (lead > kLastLowLead ? kToHighLead : 0U));
    text += static_cast<char>(trail);
}

bool s_isGraphic(char byte) {
    return byte > ' ' && byte <= '~';
}

// Text of two bytes a character, converted where the set changes.
class Pairs {
public:
    // Takes a character of the set, one of kPairSets.
    void add(Set set, char first, char second, std::string &out) {
        constexpr std::size_t kMaxWaitingBytes = std::size_t{16} << 10U;
        if (set != set_ || waiting_.size() > kMaxWaitingBytes) {
            flush(out);
        }
        set_ = set;
        const auto row = static_cast<unsigned char>(first);
        const auto cell = static_cast<unsigned char>(second);
        if (set == Set::Jis0208) {
            s_appendShiftJis(waiting_, row, cell);
            return;
        }
        waiting_.append(s_pairSet(set).prefix);
        waiting_ += static_cast<char>(row | kHighBit);
        waiting_ += static_cast<char>(cell | kHighBit);
    }

    void flush(std::string &out) {
        if (waiting_.empty()) {
            return;
        }
        if (decoder_ == nullptr || decoderSet_ != set_) {
            decoder_ = makeIconvDecoder(s_pairSet(set_).iconvName, 1);
            decoderSet_ = set_;
        }
        if (decoder_ != nullptr) {
            decoder_->decode(waiting_, out);
            decoder_->finish(out);
        } else {
            appendUtf8(out, kReplacementCharacter);
        }
        waiting_.clear();
    }

private:
    Set set_ = Set::Jis0208;
    std::string waiting_;
    Set decoderSet_ = Set::Jis0208;
    std::unique_ptr<ByteDecoder> decoder_;
};

// Which of the four places of a set an escape sequence fills.
enum class Place { Shown, ShiftedOut, SingleShifted };

struct Designation {
    std::string_view sequence; // behind the escape
    Place place;
    Set set;
};

constexpr Designation kDesignations[] = {{"(B", Place::Shown, Set::Ascii},
                                         {"(J", Place::Shown, Set::JisRoman},
                                         {"(H", Place::Shown, Set::JisRoman},
                                         {"(I", Place::Shown, Set::Katakana},
                                         {"$@", Place::Shown, Set::Jis0208},
                                         {"$B", Place::Shown, Set::Jis0208},
                                         {"$(@", Place::Shown, Set::Jis0208},
                                         {"$(B", Place::Shown, Set::Jis0208},
                                         {"$(D", Place::Shown, Set::Jis0212},
                                         {"$(O", Place::Shown, Set::Jis0213First},
                                         {"$(Q", Place::Shown, Set::Jis0213First},
                                         {"$(P", Place::Shown, Set::Jis0213Second},
                                         {"$A", Place::Shown, Set::Gb2312},
                                         {"$(A", Place::Shown, Set::Gb2312},
                                         {"$(C", Place::Shown, Set::Ksc5601},
                                         {"$)C", Place::ShiftedOut, Set::Ksc5601},
                                         {"$)A", Place::ShiftedOut, Set::Gb2312},
                                         {"$)G", Place::ShiftedOut, Set::CnsFirst},
                                         {"$*H", Place::SingleShifted, Set::CnsSecond},
                                         {".A", Place::SingleShifted, Set::Latin1}};

constexpr std::string_view kSingleShift = "N";

class Iso2022Decoder : public ByteDecoder {
public:
    explicit Iso2022Decoder(Iso2022 variant) : variant_(variant) {
        designate(Place::ShiftedOut, defaultShiftedOut());
    }

    void decode(std::string_view bytes, std::string &out) override {
        for (const char c : bytes) {
            takeByte(c, out);
        }
    }

    void finish(std::string &out) override {
        if (!escape_.empty()) {
            replayEscape(out);
        }
        dropLead(out);
        pairs_.flush(out);
    }

private:
    // What a shift switches to where nothing was designated, as in text that was cut.
    Set defaultShiftedOut() const {
        switch (variant_) {
        case Iso2022::Kr:
            return Set::Ksc5601;
        case Iso2022::Cn:
            return Set::Gb2312;
        case Iso2022::Jp:
            break;
        }
        return Set::Katakana;
    }

    void takeByte(char c, std::string &out) {
        if (!escape_.empty()) {
            takeEscapeByte(c, out);
        } else if (c == kEscape) {
            dropLead(out);
            escape_ = c;
        } else if (c == kShiftOut || c == kShiftIn) {
            dropLead(out);
            isShifted_ = c == kShiftOut;
        } else if (s_isGraphic(c)) {
            takeGraphic(c, out);
        } else {
            takeControl(c, out);
        }
    }

    void takeControl(char c, std::string &out) {
        dropLead(out);
        pairs_.flush(out);
        if (asciiLength(&c, 1) == 1) {
            out += c;
        } else {
            appendUtf8(out, kReplacementCharacter);
        }
        if (c == '\n' || c == '\r') {
            endLine();
        }
    }

    // A Korean designation stands once in front of the text, a Chinese one in each line.
    void endLine() {
        designate(Place::Shown, Set::Ascii);
        isShifted_ = false;
        isSingleShifted_ = false;
        if (variant_ == Iso2022::Cn) {
            designate(Place::ShiftedOut, defaultShiftedOut());
            designate(Place::SingleShifted, Set::CnsSecond);
        }
    }

    void takeGraphic(char c, std::string &out) {
        const Place place = isSingleShifted_ ? Place::SingleShifted
                            : isShifted_     ? Place::ShiftedOut
                                             : Place::Shown;
        const Set set = sets_[static_cast<std::size_t>(place)];
        if (!s_isOfPairs(set)) {
            dropLead(out);
            pairs_.flush(out);
            appendSingle(set, c, out);
            isSingleShifted_ = false;
        } else if (lead_ == '\0') {
            lead_ = c;
        } else {
            pairs_.add(set, lead_, c, out);
            lead_ = '\0';
            isSingleShifted_ = false;
        }
    }

    static void appendSingle(Set set, char c, std::string &out) {
        constexpr char32_t kYen = 0xA5;
        constexpr char32_t kOverline = 0x203E;
        constexpr char32_t kFirstKatakana = 0xFF61;
        constexpr char kLastKatakana = '\x5F';
        const auto byte = static_cast<unsigned char>(c);
        if (set == Set::Latin1) {
            appendUtf8(out, byte | char32_t{kHighBit});
        } else if (set == Set::Katakana) {
            appendUtf8(out,
                       c > kLastKatakana ? kReplacementCharacter : kFirstKatakana + byte - '!');
        } else if (set == Set::JisRoman && (c == '\\' || c == '~')) {
            appendUtf8(out, c == '~' ? kOverline : kYen);
        } else {
            out += c;
        }
    }

    void takeEscapeByte(char c, std::string &out) {
        constexpr std::string_view kBeginsSequence = "($.N";
        if (escape_.size() == 1 && kBeginsSequence.find(c) == std::string_view::npos) {
            pairs_.flush(out);
            appendUtf8(out, kReplacementCharacter);
            escape_.clear();
            takeByte(c, out);
            return;
        }
        const std::string sequence = escape_.substr(1) + c;
        if (sequence == kSingleShift) {
            isSingleShifted_ = true;
            escape_.clear();
            return;
        }
        bool isFront = false;
        for (const Designation &row : kDesignations) {
            if (row.sequence == sequence) {
                designate(row.place, row.set);
                escape_.clear();
                return;
            }
            isFront = isFront || row.sequence.starts_with(sequence);
        }
        escape_ += c;
        if (!isFront) {
            replayEscape(out);
        }
    }

    // What looked like an escape sequence is none: its bytes are text.
    void replayEscape(std::string &out) {
        const std::string bytes = escape_.substr(1);
        escape_.clear();
        pairs_.flush(out);
        appendUtf8(out, kReplacementCharacter);
        decode(bytes, out);
    }

    void designate(Place place, Set set) { sets_[static_cast<std::size_t>(place)] = set; }

    void dropLead(std::string &out) {
        if (lead_ != '\0') {
            pairs_.flush(out);
            appendUtf8(out, kReplacementCharacter);
            lead_ = '\0';
        }
    }

    Iso2022 variant_;
    // By place.
    std::array<Set, 3> sets_{Set::Ascii, Set::Ascii, Set::CnsSecond};
    bool isShifted_ = false;
    bool isSingleShifted_ = false;
    // The first byte of a character; NUL for none.
    char lead_ = '\0';
    // The front of an escape sequence, with its escape.
    std::string escape_;
    Pairs pairs_;
};

class HzDecoder : public ByteDecoder {
public:
    void decode(std::string_view bytes, std::string &out) override {
        for (const char c : bytes) {
            takeByte(c, out);
        }
    }

    void finish(std::string &out) override {
        dropLead(out);
        pairs_.flush(out);
    }

private:
    void takeByte(char c, std::string &out) {
        if (lead_ == '~') {
            lead_ = '\0';
            takeBehindTilde(c, out);
        } else if (lead_ != '\0' && s_isGraphic(c)) {
            pairs_.add(Set::Gb2312, lead_, c, out);
            lead_ = '\0';
        } else if (c == '~' || (isShifted_ && s_isGraphic(c))) {
            lead_ = c;
        } else {
            takePlain(c, out);
        }
    }

    void takeBehindTilde(char c, std::string &out) {
        if (c == '{' || c == '}') {
            isShifted_ = c == '{';
        } else if (c == '~') {
            pairs_.flush(out);
            out += '~';
        } else if (c != '\n') {
            pairs_.flush(out);
            appendUtf8(out, kReplacementCharacter);
            takeByte(c, out);
        }
    }

    void takePlain(char c, std::string &out) {
        dropLead(out);
        pairs_.flush(out);
        if (asciiLength(&c, 1) == 1) {
            out += c;
        } else {
            appendUtf8(out, kReplacementCharacter);
        }
        isShifted_ = isShifted_ && c != '\n' && c != '\r';
    }

    void dropLead(std::string &out) {
        if (lead_ != '\0') {
            pairs_.flush(out);
            appendUtf8(out, kReplacementCharacter);
            lead_ = '\0';
        }
    }

    bool isShifted_ = false;
    // The first byte of a character, or a tilde; NUL for none.
    char lead_ = '\0';
    Pairs pairs_;
};

class EucJpDecoder : public ByteDecoder {
public:
    void decode(std::string_view bytes, std::string &out) override {
        for (const char c : bytes) {
            takeByte(c, out);
        }
    }

    void finish(std::string &out) override { dropFront(out); }

private:
    static constexpr char kKatakana = '\x8E';
    static constexpr char kSupplement = '\x8F';

    static bool isGraphic(char c) { return s_isGraphic(low(c)) && asciiLength(&c, 1) == 0; }
    static char low(char c) { return static_cast<char>(static_cast<unsigned char>(c) & 0x7FU); }

    // The bytes of a character wait in front_ until it is whole.
    void takeByte(char c, std::string &out) {
        if (front_.empty()) {
            takeFirst(c, out);
        } else if (!isGraphic(c)) {
            // A byte that cannot go on with the character is malformed with it, unless it is ASCII.
            const bool isAscii = asciiLength(&c, 1) == 1;
            dropFront(out);
            if (isAscii) {
                out += c;
            }
        } else if (front_[0] == kSupplement && front_.size() == 1) {
            front_ += c;
        } else {
            takeLast(c, out);
            front_.clear();
        }
    }

    void takeFirst(char c, std::string &out) {
        if (isGraphic(c) || c == kKatakana || c == kSupplement) {
            front_ = c;
            return;
        }
        pairs_.flush(out);
        if (asciiLength(&c, 1) == 1) {
            out += c;
        } else {
            appendUtf8(out, kReplacementCharacter);
        }
    }

    void takeLast(char c, std::string &out) {
        constexpr char32_t kFirstKatakana = 0xFF61;
        constexpr char kLastKatakana = '\x5F';
        if (front_[0] == kSupplement) {
            pairs_.add(Set::Jis0212, low(front_[1]), low(c), out);
        } else if (front_[0] != kKatakana) {
            pairs_.add(Set::Jis0208, low(front_[0]), low(c), out);
        } else {
            pairs_.flush(out);
            const char kana = low(c);
            appendUtf8(out, kana > kLastKatakana
                                ? kReplacementCharacter
                                : kFirstKatakana + static_cast<unsigned char>(kana) - '!');
        }
    }

    void dropFront(std::string &out) {
        pairs_.flush(out);
        if (!front_.empty()) {
            appendUtf8(out, kReplacementCharacter);
            front_.clear();
        }
    }

    std::string front_;
    Pairs pairs_;
};

} // namespace

std::unique_ptr<ByteDecoder> makeEucJpDecoder() {
    return std::make_unique<EucJpDecoder>();
}

std::unique_ptr<ByteDecoder> makeIso2022Decoder(Iso2022 variant) {
    return std::make_unique<Iso2022Decoder>(variant);
}

std::unique_ptr<ByteDecoder> makeHzDecoder() {
    return std::make_unique<HzDecoder>();
}

} // namespace Corvane
