#ifndef CORVANE_HEURISTIC_SCANMEMORY_H
#define CORVANE_HEURISTIC_SCANMEMORY_H

// The working memory of filtered scans. Each thread keeps what its scans have needed, so that a scan allocates nothing
// that grows with the rules.
//
// Whatever is scanned, it stays below kMostBytes and kMostBytesOfARule for each rule: what would
// need more is done in portions, or as the walk does it.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/regex/AutomatonTable.h"
#include "host/regex/LiteralMatcher.h"

namespace Corvane::Heuristic {

// One text of a pass: a range of the bytes that are scanned together. A unit is what rules are tried on in one walk; its
// texts are its forms. From an offset on a text may be other forms as well: one bit for each, by its number.
struct ScanText {
    std::uint32_t start;
    std::uint32_t length;
    std::uint32_t unit;
    std::uint32_t innerStart = 0;
    std::uint8_t form = 0;
    std::uint8_t innerForms = 0;
};

// A pattern that is to be tried on a unit, or is known to match there. In ascending order a pattern's units follow each
// other, and what is known comes before what is to be tried.
class Candidate {
public:
    Candidate(std::uint32_t pattern, std::uint32_t unit, bool decided)
        : bits_(std::uint64_t{pattern} << 32U | std::uint64_t{unit} << 1U | (decided ? 0U : 1U)) {}

    std::uint32_t pattern() const { return static_cast<std::uint32_t>(bits_ >> 32U); }
    std::uint32_t unit() const { return static_cast<std::uint32_t>(bits_) >> 1U; }
    bool decided() const { return (bits_ & 1U) == 0; }

    bool operator<(const Candidate &other) const { return bits_ < other.bits_; }
    bool operator==(const Candidate &other) const { return bits_ == other.bits_; }

private:
    std::uint64_t bits_;
};

// In ascending order a unit's rules follow each other.
struct UnitRule {
    std::uint32_t unit;
    std::uint32_t rule;

    bool operator<(const UnitRule &other) const {
        return unit != other.unit ? unit < other.unit : rule < other.rule;
    }
};

// Which byte values a text holds.
using BytesPresent = std::array<std::uint64_t, 4>;

struct KnownBytes {
    BytesPresent present{};
    bool isCounted = false;
};

struct ScanMemory {
    static constexpr std::size_t kMostBytes = 16 << 20;
    static constexpr std::size_t kMostBytesOfARule = 64;
    // What a search may find; texts that are scanned together; texts that are copied, in bytes;
    // literals, and phrases, of which it is remembered where they were seen last; numbers of
    // selectors.
    static constexpr std::size_t kMaxCandidates = 128 * 1024;
    static constexpr std::size_t kMaxTexts = 16 * 1024;
    static constexpr std::size_t kMaxCopiedBytes = 1 << 20;
    static constexpr std::size_t kMaxMarks = 512 * 1024;
    static constexpr std::size_t kMaxSelectors = 64 * 1024;

    // Bytes allocated.
    std::size_t memoryBytes() const;

    Regex::LiteralScratch scratch;
    // The texts of the pass, in order and without overlap, and what they are ranges of where they had to be copied.
    std::vector<ScanText> texts;
    std::vector<unsigned char> staged;
    // The letters and digits of the texts alone, and the texts as ranges of them.
    std::vector<unsigned char> squeezed;
    std::vector<ScanText> squeezedTexts;
    // Texts on which a pattern is tried next, each with its unit.
    std::vector<Regex::AutomatonTable::Text> considered;
    // What is to be tried, or decided: patterns on units.
    std::vector<Candidate> candidates;
    // What has matched: units and rules, in the order of trying.
    std::vector<UnitRule> matches;
    // For each rule whether it is in matches; used for headers, and all zero otherwise.
    std::vector<unsigned char> found;
    // What is known of the texts, as far as it was asked for.
    std::vector<KnownBytes> known;
    // For each literal the serial number of the text that it was last found in. Serials start anew with no pass, so that
    // the table needs no clearing.
    std::vector<std::uint32_t> lastSeen;
    // The same for each phrase, and where it was last matched.
    std::vector<std::uint32_t> lastMatched;
    std::uint32_t serial = 0;
    // For each pattern the serial number of the search that it was last found in.
    std::vector<std::uint32_t> lastFound;
    std::uint32_t searches = 0;
    // One text with its ASCII letters in lower case.
    std::vector<unsigned char> lowered;
    // The selectors of header names that were met, for the set of this number.
    std::unordered_map<std::string, std::vector<std::uint32_t>> selectors;
    std::size_t selectorNumbers = 0;
    std::uint64_t selectorsOf = 0;
    std::vector<std::uint32_t> selectorsOfLongName;
};

// Lends one of the calling thread's memories for as long as it lives, and must die on that thread. More than one is in
// use only where the caller's own code, called from within a scan, scans.
class ScanMemoryLease {
public:
    ScanMemoryLease();
    ScanMemoryLease(const ScanMemoryLease &) = delete;
    ScanMemoryLease &operator=(const ScanMemoryLease &) = delete;
    ~ScanMemoryLease();

    ScanMemory &operator*() const { return *memory_; }
    ScanMemory *operator->() const { return memory_.get(); }

private:
    std::unique_ptr<ScanMemory> memory_;
};

} // namespace Corvane::Heuristic

#endif
