#ifndef CORVANE_HEURISTIC_BITSET_H
#define CORVANE_HEURISTIC_BITSET_H

// A set of small numbers below a size that is known at run time only.

#include <cstdint>
#include <vector>

namespace Corvane::Heuristic {

class BitSet {
public:
    explicit BitSet(std::size_t size)
        : words_((size + kWordBits - 1) / kWordBits), size_(static_cast<std::uint32_t>(size)) {}

    std::uint32_t size() const { return size_; }
    std::size_t memoryBytes() const { return words_.capacity() * sizeof(std::uint64_t); }
    void set(std::uint32_t number) {
        words_[number / kWordBits] |= std::uint64_t{1} << number % kWordBits;
    }
    bool test(std::uint32_t number) const {
        return (words_[number / kWordBits] >> number % kWordBits & 1U) != 0;
    }

    // The lowest number of the set that is not below from; size() where there is none.
    std::uint32_t findFrom(std::uint32_t from) const {
        for (std::size_t word = from / kWordBits; word < words_.size(); ++word) {
            const bool isFirst = word == from / kWordBits;
            const std::uint64_t bits =
                isFirst ? words_[word] >> from % kWordBits << from % kWordBits : words_[word];
            if (bits != 0) {
                return static_cast<std::uint32_t>(word * kWordBits) +
                       static_cast<std::uint32_t>(__builtin_ctzll(bits));
            }
        }
        return size_;
    }

private:
    static constexpr unsigned int kWordBits = 64;

    std::vector<std::uint64_t> words_;
    std::uint32_t size_;
};

} // namespace Corvane::Heuristic

#endif
