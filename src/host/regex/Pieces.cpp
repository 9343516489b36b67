#include "host/regex/Pieces.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "host/parser/Text.h"
#include "host/regex/Literals.h"

namespace Corvane::Regex {

namespace {

// Longer strings are not followed further; what is known of them is enough.
constexpr std::size_t kMaxPieceBytes = 128;
// Of longer lists hardly one would come down to so few literals that they are worth a look.
constexpr std::size_t kMaxListed = 2048;
// Steps to make a piece, and for each of its bytes; steps to compare each byte of a list with the others.
constexpr std::size_t kPieceSteps = 64;
constexpr std::size_t kByteSteps = 1;
constexpr std::size_t kComparedByteSteps = 64;

constexpr std::size_t kCaseBit = 0x20;
constexpr std::size_t kBytes = 256;

bool s_isLower(std::size_t byte) {
    return byte >= 'a' && byte <= 'z';
}

std::string s_lowered(const std::string &bytes) {
    std::string lower;
    copyStringToLower(bytes.data(), lower, 0, bytes.size());
    return lower;
}

// Pieces without doubles, in the order in which they come.
class PieceSet {
public:
    explicit PieceSet(std::size_t room) {
        pieces_.reserve(room);
        hashes_.reserve(room);
    }

    void add(Piece &&piece) {
        const std::size_t hash = std::hash<std::string_view>()(piece.bytes);
        auto same = std::find(hashes_.begin(), hashes_.end(), hash);
        while (same != hashes_.end() && !isSame(pieces_[indexOf(same)], piece)) {
            same = std::find(same + 1, hashes_.end(), hash);
        }
        if (same == hashes_.end()) {
            hashes_.push_back(hash);
            pieces_.push_back(std::move(piece));
        }
    }

    std::size_t size() const { return pieces_.size(); }
    Pieces take() { return std::move(pieces_); }

private:
    using Hashes = std::vector<std::size_t>;

    std::size_t indexOf(Hashes::const_iterator hash) const {
        return static_cast<std::size_t>(hash - hashes_.begin());
    }

    static bool isSame(const Piece &left, const Piece &right) {
        return left.folds == right.folds && left.strict == right.strict &&
               left.bytes == right.bytes;
    }

    Pieces pieces_;
    Hashes hashes_;
};

// Strings in their order, without those that begin with another one of them.
class PrefixFreeStrings {
public:
    explicit PrefixFreeStrings(std::vector<std::string_view> strings) {
        std::sort(strings.begin(), strings.end());
        // Of those that begin with a string, all stand right behind it.
        for (const std::string_view &string : strings) {
            if (strings_.empty() || !beginsWith(string, strings_.back())) {
                strings_.push_back(string);
            }
        }
        for (const std::string_view &string : strings_) {
            ++first_[static_cast<unsigned char>(string[0]) + 1];
        }
        for (std::size_t byte = 0; byte < kBytes; ++byte) {
            first_[byte + 1] += first_[byte];
        }
    }

    // The only one that the text begins with; empty where it does not.
    std::string_view findPrefix(std::string_view text) const {
        const auto byte = static_cast<unsigned char>(text[0]);
        const auto begin = strings_.begin() + first_[byte];
        const auto behind = std::upper_bound(begin, strings_.begin() + first_[byte + 1U], text);
        return behind != begin && beginsWith(text, *std::prev(behind)) ? *std::prev(behind)
                                                                       : std::string_view();
    }

    // Whether one of them stands in the text at the offset or behind it.
    bool findsIn(std::string_view text, std::size_t offset) const {
        for (; offset < text.size(); ++offset) {
            if (!findPrefix(text.substr(offset)).empty()) {
                return true;
            }
        }
        return false;
    }

private:
    static bool beginsWith(std::string_view text, std::string_view start) {
        return text.substr(0, start.size()) == start;
    }

    std::vector<std::string_view> strings_;
    // By first byte, where they begin.
    std::array<std::ptrdiff_t, kBytes + 1> first_{};
};

// Tells which of a list hold another one of it.
class HolderFinder {
public:
    explicit HolderFinder(const Pieces &pieces)
        : folding_(bytesOf(pieces, true)), others_(bytesOf(pieces, false)) {}

    bool isHolder(const Piece &piece) const {
        const PrefixFreeStrings &alike = piece.folds ? folding_ : others_;
        return alike.findPrefix(piece.bytes).size() < piece.bytes.size() ||
               alike.findsIn(piece.bytes, 1) ||
               (!piece.folds && folding_.findsIn(s_lowered(piece.bytes), 0));
    }

private:
    static std::vector<std::string_view> bytesOf(const Pieces &pieces, bool folds) {
        std::vector<std::string_view> bytes;
        for (const Piece &piece : pieces) {
            if (piece.folds == folds) {
                bytes.emplace_back(piece.bytes);
            }
        }
        return bytes;
    }

    PrefixFreeStrings folding_;
    PrefixFreeStrings others_;
};

// Brings a piece to the form of a literal.
void s_normalise(Piece &piece) {
    if (piece.perMiB >= 0) {
        return;
    }
    piece.bytes.erase(0, piece.bytes.find_first_not_of('\0'));
    if (piece.folds) {
        piece.bytes = s_lowered(piece.bytes);
        piece.folds = std::any_of(piece.bytes.begin(), piece.bytes.end(),
                                  [](char c) { return s_isLower(static_cast<unsigned char>(c)); });
    }
}

// Keeps the pieces whose place in the list is marked.
void s_keep(Pieces &pieces, const std::vector<bool> &kept) {
    std::size_t at = 0;
    pieces.erase(
        std::remove_if(pieces.begin(), pieces.end(), [&](const Piece &) { return !kept[at++]; }),
        pieces.end());
}

// Of those that fold, and of the others, drops all but the first one with the same bytes.
void s_dropDoubles(Pieces &pieces) {
    std::unordered_set<std::string_view> folding;
    std::unordered_set<std::string_view> others;
    std::vector<bool> isFirst;
    for (const Piece &piece : pieces) {
        isFirst.push_back((piece.folds ? folding : others).insert(piece.bytes).second);
    }
    s_keep(pieces, isFirst);
}

// The same, and what holds another one.
void s_dropFewHolders(Pieces &pieces) {
    std::vector<bool> kept(pieces.size(), true);
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        for (std::size_t j = 0; j < pieces.size() && kept[i]; ++j) {
            // Of two that hold each other the first one stays.
            kept[i] =
                i == j || !holds(pieces[i], pieces[j]) || (i < j && holds(pieces[j], pieces[i]));
        }
    }
    s_keep(pieces, kept);
}

// Drops pieces that hold another one, so that the other is found wherever they are.
bool s_dropHolders(Pieces &pieces, WorkBudget &budget) {
    constexpr std::size_t kFew = 4;
    std::size_t bytes = 0;
    for (const Piece &piece : pieces) {
        bytes += piece.bytes.size();
    }
    if (pieces.size() > 1 && !budget.takeSteps(bytes * kComparedByteSteps)) {
        return false;
    }
    if (pieces.size() <= kFew) {
        s_dropFewHolders(pieces);
        return true;
    }
    s_dropDoubles(pieces);
    const HolderFinder finder(pieces);
    std::vector<bool> kept;
    std::transform(pieces.begin(), pieces.end(), std::back_inserter(kept),
                   [&](const Piece &piece) { return !finder.isHolder(piece); });
    s_keep(pieces, kept);
    return true;
}

// A single byte must not be one that words and the space between them consist of, whatever the tables say.
bool s_isTooShort(const Piece &piece) {
    if (piece.bytes.size() != 1) {
        return piece.bytes.empty();
    }
    const auto byte = static_cast<unsigned char>(piece.bytes[0]);
    return isWhiteSpace(byte) || isAsciiAlphanumeric(byte);
}

} // namespace

bool isAsciiLetter(std::size_t byte) {
    return s_isLower(byte) || (byte >= 'A' && byte <= 'Z');
}

bool isAsciiAlphanumeric(std::size_t byte) {
    return isAsciiLetter(byte) || (byte >= '0' && byte <= '9');
}

void addCharacters(const ByteSet &set, Pieces &pieces) {
    forEachByte(set, [&](std::size_t byte) {
        const std::size_t other = isAsciiLetter(byte) ? byte ^ kCaseBit : byte;
        const bool folds = other != byte && set[other];
        if (!folds || s_isLower(byte)) {
            const auto character = static_cast<char>(byte);
            pieces.push_back({std::string(1, character), folds, other != byte && !folds, -1});
        }
    });
}

bool holds(const Piece &piece, const Piece &part) {
    if (piece.bytes.size() < part.bytes.size() || (piece.folds && !part.folds)) {
        return false;
    }
    const bool isAlike = piece.folds == part.folds;
    return (isAlike ? piece.bytes : s_lowered(piece.bytes)).find(part.bytes) != std::string::npos;
}

bool isOnlyEmpty(const Pieces &pieces) {
    return pieces.size() == 1 && pieces.front().bytes.empty();
}

bool isTooMany(const Pieces &left, const Pieces &right) {
    const bool multiplies = left.size() > 1 && right.size() > 1;
    return left.size() * right.size() > (multiplies ? kMaxProduct : kMaxAlternatives);
}

bool joinPieces(const Pieces &left, const Pieces &right, Pieces &joined, WorkBudget &budget) {
    if (isTooMany(left, right)) {
        return false;
    }
    PieceSet all(left.size() * right.size());
    for (const Piece &first : left) {
        for (const Piece &second : right) {
            const std::size_t bytes = first.bytes.size() + second.bytes.size();
            if (bytes > kMaxPieceBytes || !budget.takeSteps(kPieceSteps + bytes * kByteSteps)) {
                return false;
            }
            all.add({first.bytes + second.bytes, first.folds || second.folds,
                     first.strict || second.strict, -1});
        }
    }
    joined = all.take();
    return true;
}

Pieces unitePieces(const std::vector<const Pieces *> &lists, WorkBudget &budget) {
    PieceSet all(lists.size());
    for (const Pieces *list : lists) {
        const bool isCheap = budget.takeSteps(list->size() * kPieceSteps);
        for (const Piece &piece : *list) {
            all.add(Piece(piece));
        }
        if (!isCheap || all.size() > kMaxAlternatives) {
            return Pieces(1);
        }
    }
    return all.take();
}

bool repeatPieces(const Pieces &pieces, std::size_t least, std::size_t most, Pieces &all,
                  WorkBudget &budget) {
    Pieces longer;
    std::size_t times = 0;
    all.assign(1, Piece());
    while (times < least && joinPieces(all, pieces, longer, budget)) {
        all = longer;
        ++times;
    }
    if (times < least || most - least > kMaxProduct) {
        return false;
    }
    Pieces power = all;
    Pieces united = all;
    for (; times < most; ++times) {
        if (!joinPieces(power, pieces, longer, budget) ||
            united.size() + longer.size() > kMaxProduct) {
            return false;
        }
        united = unitePieces({&united, &longer}, budget);
        power = longer;
    }
    all = united;
    return true;
}

bool makeLiterals(Pieces &pieces, WorkBudget &budget) {
    if (pieces.size() > kMaxListed) {
        return false;
    }
    std::for_each(pieces.begin(), pieces.end(), s_normalise);
    if (std::any_of(pieces.begin(), pieces.end(), s_isTooShort) || !s_dropHolders(pieces, budget)) {
        return false;
    }
    for (const std::size_t length : {8U, 6U, 5U, 4U, 3U}) {
        if (pieces.size() <= kMaxAlternatives) {
            break;
        }
        for (Piece &piece : pieces) {
            if (piece.bytes.size() > length) {
                piece.bytes.resize(length);
                piece.perMiB = -1;
            }
        }
        if (!s_dropHolders(pieces, budget)) {
            return false;
        }
    }
    return pieces.size() <= kMaxAlternatives;
}

} // namespace Corvane::Regex
