#ifndef CORVANE_HEURISTIC_RULEFACTORY_H
#define CORVANE_HEURISTIC_RULEFACTORY_H

// The rule-file parser. A rule set is plain text, one statement a line:
//
//     # a comment
//     #[lang section]<TAB>CN
//     body FREE_OFFER /free offer/i
//     score FREE_OFFER 2.5
//
// A section names the language of the rules below it, to the next section or the end of the file.
//
// A parser made on a directory loads the whole set of it:
//
//     RuleContainer rules;
//     RuleFileParser parser(File::Path("/etc/corvane/rules"), rules);
//
// Which files that are depends on marker files in the directory: *.cf3 and *.cf2 where there is a
// "heuristic.cf3", else *.cf2 where there is a "heuristic.cf2", else *.cf; in every case *.score.
// Where there is a "version", the files whose path contains "cf" are encrypted: 16 bytes of
// initialisation vector, then the AES-256-CBC cipher text of the file.
//
// Threads: one thread at a time for a parser and its container; parsers of different containers may
// run side by side.

#include <istream>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "heuristic/Export.h"
#include "heuristic/Rule.h"
#include "heuristic/Score.h"
#include "host/parser/Buffer.h"
#include "host/parser/File.h"
#include "host/parser/Media.h"

namespace Corvane::Heuristic {

class LoadObserver;
struct LoadedLine;
struct RulePlace;
struct RuleSource;

class CORVANE_HEURISTIC_API RuleFileParser : public File::Processor {
public:
    // Longest line of a rule file, its end included, in bytes. What is beyond is dropped.
    static constexpr int kMaxLineBytes = 16384;

    // Loads the rule set of the directory into the container, which must outlive the parser: reads
    // every file of it, marks the sub-rules that meta rules refer to and gives all rules their
    // scores. One parser reads all files, so ordinals, duplicates and scores run across them. A
    // missing directory, and one without rule files, give no rules. Throws code 4 where the
    // directory or a file of it cannot be read or decrypted.
    RuleFileParser(const File::Path &directory, RuleContainer &container);

    // The same for several directories, in their order, on disk or in memory: what one parser reads
    // first of a name, language and kind is the rule, what it reads last for a name is the score.
    // Each directory has its own markers. An observer, if not null, hears of each file and line
    // while this constructor runs; it sees a file whole, which is held in memory for that.
    RuleFileParser(const std::vector<RuleSource> &sources, RuleContainer &container,
                   LoadObserver *observer);

    // Loads nothing: for callers that choose the files themselves, parse() each, and call
    // activateMetaSubrules() and assignScores() after the last.
    explicit RuleFileParser(RuleContainer &container);

    RuleFileParser(const RuleFileParser &) = delete;
    RuleFileParser &operator=(const RuleFileParser &) = delete;
    ~RuleFileParser() override;

    // Reads one file of the directory; answers 0.
    int process(const File::Path &file) override;

    // Tells the observer, if there is one, of a file that cannot be opened.
    void linkBroken(const File::Path &file, int error) override;

    // Reads one file, which is decrypted into a temporary file first where the set is encrypted and
    // the path contains "cf". Records name the file given, not that copy. Throws code 4 where
    // decrypting fails, and as parse of a plain file.
    void parse(const File::Path &file);

    // Reads one plain file. Lines that begin with "describe" are for human readers and have no effect.
    // A file that cannot be opened is passed over silently. A rule that
    // cannot be built is logged (0x3000034, with file and line) and left out, as is one whose name
    // is taken in its language and kind (0x3000035). Throws code 4, with the cause attached, where
    // reading itself fails; what was read before stays in the container.
    void parse(const std::string &fileName);

    // Builds the rule of one line of length bytes, without its line end, and gives it the next
    // ordinal. Null where the line is no rule, and, logged, where the rule cannot be built. The
    // rule is not filed in the container.
    RefRule parseRule(const char *line, int length);

    // Takes the text behind the word "score": a rule's name and its numbers. The last one read for
    // a name counts. A text without name or numbers has no effect.
    void parseScore(const char *text, int length);

    // Marks every rule that a meta rule of the same language refers to as used. Call it after the
    // last file.
    void activateMetaSubrules();

    // Gives every rule of the container its score: the one read for its name, whatever its language
    // and kind, else 1.0, except that meta sub-rules without one keep none. Call it once, after the
    // last file.
    void assignScores();

    // The key of encrypted rule files, 32 bytes, for programs that write them. It is the same in
    // every copy of this library: it keeps rules from the eyes of passers-by, not from a reader of
    // this library. Good at any time, also before main.
    static const Buffer &key();

    // Ordinal of the last rule built: the number of rules built so far, duplicates included.
    unsigned int ruleCount() const { return ruleCount_; }

private:
    // The names in a list of the container with the ordinals of their rules, good while nobody else
    // has had access to the list.
    struct Filed {
        RefRuleList list;
        unsigned int accesses = 0;
        std::unordered_map<std::string, unsigned int> names;
    };

    void load(const RuleSource &source);
    void parse(const std::string &path, const std::string &bytes);
    bool begin(const std::string &path);
    void parseEncrypted(MediaIn &in);
    void parseStream(std::istream &stream);
    void parseLines(std::istream &stream, std::string_view bytes);
    void parseLine(LoadedLine &line, langID &language);
    static void parseComment(LoadedLine &line, langID &language);
    static void parseDescription(LoadedLine &line);
    void takeScore(LoadedLine &line, std::size_t skipped);
    void buildRule(LoadedLine &line);
    void buildRule(LoadedLine &line, Rule::Type kind);
    static void noteMetaFault(LoadedLine &line);
    void notePlace(const LoadedLine &line);
    RulePlace placeOf(unsigned int ordinal) const;
    void place(LoadedLine &line);
    bool placeIn(LoadedLine &line, langID language);
    Filed &filedIn(const RefRuleList &list, langID language, Rule::Type kind);

    bool encrypted_;
    unsigned int ruleCount_;
    RuleContainer &container_;
    LoadObserver *observer_;
    std::map<std::string, RefScore> scores_;
    std::map<std::pair<langID, Rule::Type>, Filed> filed_;
    // Where the statement at hand stands, for the log; empty while no file is read.
    std::string file_;
    unsigned int line_;
    // For an observer: the files so far, and where the rules so far stand, in the order of their
    // ordinals; file counts from 1.
    struct Position {
        std::size_t file = 0;
        unsigned int line = 0;
        unsigned int column = 0;
    };
    std::vector<std::string> files_;
    std::vector<Position> places_;
};

} // namespace Corvane::Heuristic

#endif
