#ifndef CORVANE_CLI_MESSAGESOURCE_H
#define CORVANE_CLI_MESSAGESOURCE_H

// The messages that the arguments of a scan stand for, one at a time:
//
//     MessageSource source(arguments, {}, options.limits.messageBytes);
//     while (const std::optional<RawMessage> message = source.next()) { ... }
//
// A file whose first line is a mailbox mark (see MailboxMark.h) is an mbox: it is split at the marks
// behind an empty line, without a look at any Content-Length. The marks, and the empty lines before
// them, are no part of a message; other lines that begin with "From " or ">From " are.
//
// Threads: one thread.

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Files.h"
#include "MessageFiles.h"

namespace Corvane::Cli {

struct RawMessage {
    // The file, and the message's place in it: 0 for a file that is one message, else from 1.
    std::string file;
    std::size_t index = 0;

    std::string bytes;
    // Why the message could not be read; "" where it was.
    std::string failure;
};

class MessageSource {
public:
    // The usual way to name a message to a user: the file, and where it is an mbox the place in it.
    static std::string label(const std::string &file, std::size_t index);

    // The arguments stand for files as MessageFiles says. Of a message no more than maxBytes + 1 bytes are kept, enough to tell that there are more
    // than maxBytes, and of an mbox one message at a time.
    MessageSource(const std::vector<std::string> &arguments,
                  const std::vector<std::string> &include, unsigned int maxBytes);

    // From now on only those messages are given that wanted answers true for, by file and place; of
    // the others no more is read than it takes to get past them.
    using Wanted = std::function<bool(const std::string &file, std::size_t index)>;
    void choose(Wanted wanted) { wanted_ = std::move(wanted); }

    // The next message; none at the end. Whatever cannot be read, and a message that is empty or
    // holds nothing but NUL bytes, gives one with a failure.
    std::optional<RawMessage> next();

private:
    RawMessage failed(const std::string &file, const std::string &reason);
    // None for a message that is not wanted.
    std::optional<RawMessage> read(const std::string &name);
    std::optional<RawMessage> readFromMbox();
    std::optional<RawMessage> readNext();
    bool isWanted(const std::string &file, std::size_t index) const;
    void readLine(std::string *line);
    void keep(std::string &bytes, std::string_view more) const;

    MessageFiles files_;
    std::size_t maxBytes_;
    Wanted wanted_;
    bool isAtEnd_ = false;
    // The file that is being read; an mbox that has more messages stays open.
    std::unique_ptr<InputFile> open_;
    std::size_t index_ = 0;
};

} // namespace Corvane::Cli

#endif
