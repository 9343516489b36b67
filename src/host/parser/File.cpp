#include "host/parser/File.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include "host/parser/Exception.h"

namespace Corvane {
namespace File {

namespace {

struct DirectoryCloser {
    void operator()(DIR *directory) const { closedir(directory); }
};

std::string s_join(const std::string &directory, const std::string &name) {
    if (directory.empty() || name.empty()) {
        return directory + name;
    }
    const bool slashBefore = directory.back() == '/';
    const bool slashAfter = name.front() == '/';
    if (slashBefore && slashAfter) {
        return directory + name.substr(1);
    }
    return slashBefore || slashAfter ? directory + name : directory + '/' + name;
}

Exception s_failure(const std::string &path, int error) {
    Exception failure("File::Selector", Exception::kGeneral, "File", __LINE__);
    failure.stringParameter("cannot read " + path + ": " + std::generic_category().message(error));
    return failure;
}

// Collects the text of one line in the caller's buffer: what does not fit is counted only.
class LineText {
public:
    LineText(char *buffer, int max) : buffer_(buffer), limit_(static_cast<std::size_t>(max) - 1) {}

    void add(char byte) {
        if (length_ < limit_) {
            buffer_[length_] = byte;
        }
        ++length_;
        last_ = byte;
    }

    void dropCarriageReturn() { length_ -= last_ == '\r' ? 1 : 0; }

    int finish() {
        const std::size_t stored = std::min(length_, limit_);
        buffer_[stored] = '\0';
        return static_cast<int>(stored) + 1;
    }

private:
    char *buffer_;
    std::size_t limit_;
    std::size_t length_ = 0;
    char last_ = '\0';
};

// Takes bytes up to the next line end from the stream's buffer; answers what getline() does and
// adds the state bits that the caller has to set.
int s_takeLine(std::streambuf &bytes, char *buffer, int max, std::ios_base::iostate &state) {
    using Traits = std::streambuf::traits_type;
    LineText text(buffer, max);
    auto next = bytes.sbumpc();
    if (Traits::eq_int_type(next, Traits::eof())) {
        state = std::ios_base::eofbit | std::ios_base::failbit;
        return 0;
    }
    while (!Traits::eq_int_type(next, '\n')) {
        if (Traits::eq_int_type(next, Traits::eof())) {
            state = std::ios_base::eofbit;
            return text.finish();
        }
        text.add(Traits::to_char_type(next));
        next = bytes.sbumpc();
    }
    text.dropCarriageReturn();
    return text.finish();
}

} // namespace

Path::Path(const std::string &text) : text_(text) {}

Path::Path(const std::string &directory, const std::string &name)
    : text_(s_join(directory, name)) {}

bool Path::exists() const {
    struct stat status {};
    return stat(text_.c_str(), &status) == 0;
}

bool Path::isDirectory() const {
    struct stat status {};
    return stat(text_.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Processor::~Processor() = default;

void Processor::linkBroken(const Path & /*file*/, int /*error*/) {}

Selector::Selector(const Path &directory, Processor &processor)
    : directory_(directory), processor_(processor) {}

void Selector::patterns(const std::list<std::string> &patterns) {
    patterns_ = patterns;
}

// The names in the directory, in byte order.
std::list<std::string> Selector::entries() const {
    std::list<std::string> names;
    errno = 0;
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(directory_));
    if (directory == nullptr) {
        if (errno == ENOENT) {
            return names;
        }
        throw s_failure(directory_.asString(), errno);
    }
    errno = 0;
    while (const dirent *entry = readdir(directory.get())) {
        names.emplace_back(entry->d_name);
        errno = 0;
    }
    if (errno != 0) {
        throw s_failure(directory_.asString(), errno);
    }
    names.sort();
    return names;
}

std::list<std::string> Selector::choose(std::list<std::string> names,
                                        const std::list<std::string> &patterns) {
    std::list<std::string> chosen;
    for (const std::string &pattern : patterns) {
        for (auto name = names.begin(); name != names.end();) {
            const auto at = name++;
            if (fnmatch(pattern.c_str(), at->c_str(), FNM_PERIOD) == 0) {
                chosen.splice(chosen.end(), names, at);
            }
        }
    }
    return chosen;
}

void Selector::start() {
    for (const std::string &name : choose(entries(), patterns_)) {
        visit(name);
    }
}

// A set of files that lacks those which could not be looked at would be taken for a complete one.
void Selector::visit(const std::string &name) {
    const Path file(directory_.asString(), name);
    struct stat status {};
    if (stat(file, &status) == 0) {
        if (S_ISREG(status.st_mode)) {
            processor_.process(file);
        }
        return;
    }
    const int error = errno;
    if (error != ENOENT && error != ELOOP) {
        throw s_failure(file.asString(), error);
    }
    if (lstat(file, &status) == 0) {
        processor_.linkBroken(file, error);
    }
}

int getline(std::istream &stream, char *buffer, int max) {
    if (max < 1) {
        return 0;
    }
    const std::istream::sentry ready(stream, true);
    if (!ready) {
        return 0;
    }
    std::ios_base::iostate state = std::ios_base::goodbit;
    int taken = 0;
    try {
        taken = s_takeLine(*stream.rdbuf(), buffer, max, state);
    } catch (const std::ios_base::failure &cause) {
        stream.setstate(std::ios_base::badbit);
        Exception failure("File::getline", Exception::kGeneral, "File", __LINE__);
        failure.stringParameter(cause.what());
        throw failure;
    }
    stream.setstate(state);
    return taken;
}

} // namespace File
} // namespace Corvane
