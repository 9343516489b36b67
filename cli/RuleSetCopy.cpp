#include "RuleSetCopy.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "ExitStatus.h"
#include "Failure.h"
#include "Files.h"
#include "RuleLoad.h"
#include "StopSignals.h"
#include "host/parser/Logger.h"

namespace Corvane::Cli {

namespace {

using Role = RuleSetFiles::Role;

// A new file that only its owner may read.
class FileOut final : public MediaOutImpl {
public:
    explicit FileOut(const std::string &path)
        : path_(path),
          file_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
        if (file_ < 0) {
            refuseUnwritable();
        }
    }
    FileOut(const FileOut &) = delete;
    FileOut &operator=(const FileOut &) = delete;
    ~FileOut() override { closeOnce(); }

    void write(const Buffer &bytes) override {
        for (unsigned int from = 0; from < bytes.length();) {
            const ssize_t written = ::write(file_, bytes.data() + from, bytes.length() - from);
            if (written < 0 && errno != EINTR) {
                refuseUnwritable();
            }
            from += written < 0 ? 0U : static_cast<unsigned int>(written);
        }
    }

    void end() override {
        if (closeOnce() != 0) {
            refuseUnwritable();
        }
    }

private:
    int closeOnce() {
        const int file = file_;
        file_ = -1;
        return file < 0 ? 0 : close(file);
    }

    [[noreturn]] void refuseUnwritable() const {
        const std::string reason = systemReason(errno);
        refuse("cannot write '" + path_ + "': " + reason);
    }

    std::string path_;
    int file_;
};

// A new directory beside the one that is to be, removed with what it holds unless it was renamed.
class Staging {
public:
    explicit Staging(const std::string &target) : target_(target) {
        // A name with those letters would have its score files decrypted by the loading that
        // checks them.
        do {
            remove();
            path_ = target + ".XXXXXX";
            if (mkdtemp(path_.data()) == nullptr) {
                const std::string reason = systemReason(errno);
                path_.clear();
                refuse("cannot make a directory beside '" + target + "': " + reason +
                       "; make its parent a directory that you may write to");
            }
        } while (isEncryptedPath(path_.substr(target.size())));
    }
    Staging(const Staging &) = delete;
    Staging &operator=(const Staging &) = delete;
    ~Staging() { remove(); }

    const std::string &target() const { return target_; }
    const std::string &path() const { return path_; }

    // Never replaces anything, not even an empty directory that has come up meanwhile.
    void publish() {
        if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) != 0 &&
            (errno != EINVAL || rename(path_.c_str(), target_.c_str()) != 0)) {
            const std::string reason = systemReason(errno);
            refuse("cannot make '" + target_ + "': " + reason);
        }
        path_.clear();
    }

private:
    void remove() {
        if (!path_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }

    std::string target_;
    std::string path_;
};

std::string s_withoutSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

void s_requireFit(const RuleSetFiles &from, const std::string &to, Conversion conversion) {
    const bool encrypts = conversion == Conversion::Encrypt;
    if (encrypts && from.isEncrypted()) {
        refuse("'" + from.directory() + "' is encrypted already: it holds a file 'version'");
    }
    if (!encrypts && !from.isEncrypted()) {
        refuse("'" + from.directory() + "' is not encrypted: it holds no file 'version'");
    }
    std::error_code ignored;
    if (std::filesystem::symlink_status(to, ignored).type() !=
        std::filesystem::file_type::not_found) {
        refuse("'" + to + "' exists or cannot be looked at; name a directory that does not exist");
    }
    if (encrypts && isEncryptedPath(to)) {
        refuse("the path '" + to +
               "' holds the letters \"cf\", so loading would take its plain score files for "
               "encrypted ones; choose another");
    }
}

// How a file gets into the copy. A score file whose own name holds the letters that mark rule files
// is taken for encrypted too.
Conversion s_conversionOf(const RuleSetFiles &from, const RuleSetFiles::Entry &entry,
                          Conversion conversion) {
    const std::string &judged =
        conversion == Conversion::Encrypt ? entry.name : from.path(entry.name);
    return entry.role != Role::Readme && isEncryptedPath(judged) ? conversion : Conversion::None;
}

void s_requireNoSignal(const StopSignals &signals, const std::string &to) {
    if (signals.haveCome()) {
        refuse("stopped by a signal; nothing is left of '" + to + "'");
    }
}

void s_copyFile(const std::string &from, const std::string &to, Conversion conversion) {
    MediaOut output(new FileOut(to));
    convertFile(from, conversion, output);
    output.end();
}

unsigned int s_copyEntries(const RuleSetFiles &from, const Staging &staging, Conversion conversion,
                           const StopSignals &signals, std::ostream &err) {
    const std::string &to = staging.path();
    unsigned int copied = 0;
    for (const RuleSetFiles::Entry &entry : from.entries()) {
        s_requireNoSignal(signals, staging.target());
        if (entry.role == Role::Other) {
            err << "corvane: left out '" << Logger::printable(from.path(entry.name))
                << "': no rule file, score file or README\n";
        } else if (entry.role != Role::Version) {
            s_copyFile(from.path(entry.name), joined(to, entry.name),
                       s_conversionOf(from, entry, conversion));
            ++copied;
        }
    }
    if (conversion == Conversion::Encrypt) {
        MediaOut(new FileOut(joined(to, "version"))).end();
    }
    return copied;
}

void s_requireSame(const corvane::RuleSet &rules, const std::string &copy) {
    // What is wrong with its rules was said of the original.
    std::ostringstream ignored;
    if (loadRules({copy}, ignored).generation() != rules.generation()) {
        refuse("the copy gives other rules than the original; did the files change meanwhile? Try "
               "again");
    }
}

void s_warnOfFullPath(const std::string &to, std::ostream &err) {
    std::error_code ignored;
    if (isEncryptedPath(std::filesystem::absolute(to, ignored).string())) {
        err << "corvane: the full path of '" << Logger::printable(to)
            << "' holds the letters \"cf\"; load it by a path that does not\n";
    }
}

void s_copy(const RuleSetCopyOptions &options, Conversion conversion, std::ostream &out,
            std::ostream &err) {
    const StopSignals signals;
    const std::string to = s_withoutSlashes(options.to);
    const RuleSetFiles from(options.from);
    s_requireFit(from, to, conversion);
    const corvane::RuleSet rules = loadRules({options.from}, err);
    showProblems(rules, err);
    Staging staging(to);
    const unsigned int files = s_copyEntries(from, staging, conversion, signals, err);
    s_requireNoSignal(signals, to);
    s_requireSame(rules, staging.path());
    s_requireNoSignal(signals, to);
    staging.publish();
    if (conversion == Conversion::Encrypt) {
        s_warnOfFullPath(to, err);
    }
    out << (conversion == Conversion::Encrypt ? "encrypted " : "decrypted ") << rules.size()
        << " rules in " << files << " files to " << Logger::printable(to) << '\n';
}

} // namespace

void addRuleSetCopyOptions(CLI::App &command, RuleSetCopyOptions &options) {
    command.add_option("DIR", options.from, "Directory that holds the rule set")
        ->required()
        ->type_name("");
    command.add_option("OUT", options.to, "Directory to make; it must not exist")
        ->required()
        ->type_name("");
    command.footer(
        "Exit status: 0 the set was written, 2 it was not, and nothing is left of it.\n");
}

int copyRuleSet(const RuleSetCopyOptions &options, Conversion conversion, std::ostream &out,
                std::ostream &err) {
    try {
        s_copy(options, conversion, out, err);
    } catch (const Exception &failure) {
        err << "corvane: " << readable(failure) << '\n';
        return kExitFailed;
    }
    if (const int error = flushed(out); error != 0) {
        err << "corvane: the set was written, but cannot say so: " << systemReason(error) << '\n';
        return kExitFailed;
    }
    return kExitClean;
}

} // namespace Corvane::Cli
