#ifndef CORVANE_CLI_CORPUSSOURCE_H
#define CORVANE_CLI_CORPUSSOURCE_H

// The messages of a corpus, by class, in an order that is the same each time.
//
// Threads: one thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MessageSource.h"
#include "corpus/Result.h"

namespace Corvane::Cli {

// Files, mboxes, directories and Maildirs that hold the messages of one class.
struct CorpusClass {
    std::string name;
    std::string path;
};

// The classes that the options name, as in "spam=/mail/spam", and the directories in a directory,
// which may be "", each of which is a class; sorted by name. Throws code 4 where there are none, a
// name cannot be one, or a path is not there.
std::vector<CorpusClass> classesOf(const std::string &directory,
                                   const std::vector<std::string> &given);

struct CorpusMessage {
    Corpus::MessageKey key;
    RawMessage raw;
};

class CorpusSource {
public:
    CorpusSource(std::vector<CorpusClass> classes, std::vector<std::string> include,
                 unsigned int maxBytes);

    // What there is, found without reading messages: the digest of all names and sizes of files, in
    // hexadecimal digits, and the files' bytes. Throws code 4 where a directory cannot be read.
    struct Survey {
        std::string digest;
        std::uint64_t bytes = 0;
    };
    Survey survey() const;

    // From now on only messages are given that wanted answers true for.
    using Wanted = std::function<bool(const Corpus::MessageKey &key)>;
    void choose(Wanted wanted) { wanted_ = std::move(wanted); }

    // The next message; none at the end.
    std::optional<CorpusMessage> next();

    // The bytes of the files that were opened, the present one included.
    std::uint64_t bytesBegun() const { return bytesBegun_; }

private:
    void open();
    Corpus::MessageKey keyOf(const std::string &file, std::size_t index) const;
    void note(const std::string &file);

    std::vector<CorpusClass> classes_;
    std::vector<std::string> include_;
    unsigned int maxBytes_;
    Wanted wanted_;
    std::size_t class_ = 0;
    std::unique_ptr<MessageSource> source_;
    std::string file_;
    std::uint64_t bytesBegun_ = 0;
};

} // namespace Corvane::Cli

#endif
