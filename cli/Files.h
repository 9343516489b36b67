#ifndef CORVANE_CLI_FILES_H
#define CORVANE_CLI_FILES_H

// What the command needs of files: the names in a directory, and reading with a look ahead.
//
// Threads: one thread for each object.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Corvane::Cli {

// The name that stands for standard input.
constexpr const char *kStandardInput = "-";

// The names in a directory, in byte order, without those that begin with a dot. Throws code 4, with
// the directory and the system's reason, where it cannot be read.
std::vector<std::string> visibleNames(const std::string &directory);

// The path of an entry of a directory.
std::string joined(const std::string &directory, const std::string &name);

// An open file that is read from its start to its end in pieces; standard input stays open.
class InputFile {
public:
    // Throws code 4, with the name and the system's reason, where the file cannot be opened.
    explicit InputFile(const std::string &name);
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;
    ~InputFile();

    const std::string &name() const { return name_; }

    // The next bytes, at least count of them unless the file ends before; count must be below
    // kRoomBytes. They stay next until they are taken, and the view is good until the next call.
    // Throws code 4 where the file cannot be read.
    std::string_view ahead(std::size_t count);

    // Moves past bytes that ahead() has shown.
    void take(std::size_t count);

private:
    static constexpr std::size_t kRoomBytes = 65536;

    [[noreturn]] void refuseUnreadable() const;
    std::size_t read(char *bytes, std::size_t most) const;

    std::string name_;
    int file_;
    std::vector<char> room_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

} // namespace Corvane::Cli

#endif
