#ifndef CORVANE_HEURISTIC_LOADOBSERVER_H
#define CORVANE_HEURISTIC_LOADOBSERVER_H

// Hears what a rule-set loader reads and what becomes of each line: for programs that tell people
// what is wrong with their rules, and where.
//
//     class Printer : public LoadObserver {
//         void line(const LoadedLine &line) override {
//             if (line.outcome == LoadedLine::RuleRefused) {
//                 std::cout << line.file << ':' << line.number << ':' << line.faultColumn() << '\n';
//             }
//         }
//     };
//     Printer printer;
//     const Scanner scanner({{directory, {}}}, printer);
//
// What is heard does not change what is loaded or logged. An observer belongs to one load; loads on
// other threads do not disturb it.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "host/parser/Exception.h"

namespace Corvane::Heuristic {

// One directory of rule files: on disk, or its files in memory, by name. directory names it in
// either case.
struct RuleSource {
    std::string directory;
    std::optional<std::map<std::string, std::string>> files;
};

// A piece of a line, and the byte of the line that it begins at, from 1; 0 where there is no piece.
struct LinePart {
    std::string_view text;
    unsigned int column = 0;
};

// Where a rule was read: file, line, and column of its name; "" and 0 where it was not read by this
// loader.
struct RulePlace {
    std::string file;
    unsigned int line = 0;
    unsigned int column = 0;
};

// Why a pattern was refused: the words of whoever refused it, and, where it is PCRE2, the byte of
// the pattern at which it gave up, from 0.
struct PatternFault {
    std::string reason;
    std::optional<std::size_t> offset;
};

// A line of a rule file that is not empty, and what became of it. Views live for the call.
struct LoadedLine {
    enum Outcome {
        Ignored,          // begins with a NUL byte, or holds nothing but white space
        Comment,          // begins with "#"
        Section,          // switches to the language, whose name is name
        UnknownSection,   // the same with a name that there is none of: switches to DEFAULT
        Description,      // "describe" with name and definition, the text
        BareDescription,  // "describe" without a name or text
        ScoreTaken,       // a score; numbers tells how much of it was read
        BareScore,        // "score" without a name or number: ignored
        ScoreRefused,     // a score that could not be handled, as failure says
        RuleFiled,        // a rule, in at least one language
        RuleDuplicate,    // a rule, left out: all its languages had one of the name and kind
        RuleRefused,      // a rule, left out: could not be built, as failure says
        UnknownKeyword,   // the first word is no keyword: ignored
        MissingName,      // a rule's keyword alone: ignored
        MissingDefinition // a rule's keyword and name alone: ignored
    };

    // The numbers of a score line, up to four of which are read; the second of several counts. whole
    // says that nothing stands behind them, or in their place.
    struct Numbers {
        unsigned int count = 0;
        bool whole = true;
    };

    // A language in which a rule was left out, and the rule that has its name there.
    struct Clash {
        langID language;
        RulePlace first;
    };

    // The line number from 1, and where the line begins in the file's bytes.
    std::string_view file;
    unsigned int number = 0;
    std::size_t offset = 0;

    // The line without its end, as far as it is read; isCut where the rest was dropped.
    std::string_view text;
    bool isCut = false;

    // The language of the section that the line stands in, or begins.
    langID language = DEFAULT;

    Outcome outcome = Ignored;
    LinePart keyword;
    LinePart name;
    LinePart definition;

    // The rule that was built, filed or not; null for other lines. Its score comes after the last
    // line.
    RefRule rule;
    Numbers numbers;
    std::vector<Clash> clashes;

    // A rule that was filed but never trips: an "eval:" definition, or a meta expression that has no
    // value, with failure.
    bool isEval = false;
    bool isMetaFault = false;

    // Why the line was refused, and for a pattern more of it. patternColumn is where the pattern
    // begins in the line, behind its slash; 0 where that is not known.
    std::optional<Exception> failure;
    std::optional<PatternFault> pattern;
    unsigned int patternColumn = 0;

    // The column to point at: where the pattern is at fault, else the definition, the name, the
    // keyword, or 1.
    CORVANE_HEURISTIC_API unsigned int faultColumn() const;
};

// Each operation does nothing unless it is overridden. What one throws ends the load and reaches
// its caller, except that an Exception is wrapped as those of reading are.
class CORVANE_HEURISTIC_API LoadObserver {
public:
    virtual ~LoadObserver();

    // A file is about to be read; in the order of reading. The path is the one that records name.
    virtual void fileBegins(const std::string &path, bool isEncrypted);

    // The file that began last cannot be opened, for the system's reason of that number; it is
    // passed over.
    virtual void fileUnreadable(const std::string &path, int error);

    // The plain bytes of the file that began last, before its first line; they live while its lines
    // are told.
    virtual void content(std::string_view bytes);

    // A line that is not empty, in the order of reading.
    virtual void line(const LoadedLine &line);

    // All is read and each rule has its score: the rules built, the active ones, counted for each
    // language they are filed under, and the version text, as the record of the load has them.
    virtual void loaded(unsigned int rules, int active, const std::string &version);
};

} // namespace Corvane::Heuristic

#endif
