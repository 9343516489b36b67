#include "RuleDirectory.h"

#include <cerrno>
#include <filesystem>

#include <unistd.h>

#include "Failure.h"
#include "RuleSetFiles.h"

namespace Corvane::Cli {

namespace {

// Takes everything and keeps nothing.
class Nowhere final : public MediaOutImpl {
public:
    void write(const Buffer & /*bytes*/) override {}
    void end() override {}
};

[[noreturn]] void s_refuseFile(const std::string &file, const std::string &reason) {
    refuse("cannot read rule file '" + file + "': " + reason +
           "; mend it or take it out of the directory");
}

// Loading passes over what it cannot open; whoever named the directory must hear of it.
void s_requireReadable(const std::vector<std::string> &files) {
    for (const std::string &file : files) {
        if (access(file.c_str(), R_OK) != 0) {
            s_refuseFile(file, systemReason(errno));
        }
    }
}

// Whether nothing but the path of its directory marks a file as encrypted.
bool s_isMarkedByDirectory(const RuleSetFiles &files, const std::string &file) {
    return files.isEncrypted() && isEncryptedPath(file) &&
           !isEncryptedPath(std::filesystem::path(file).filename().string());
}

// A failed load does not say which file it was: the one that fails again.
[[noreturn]] void s_explain(const RuleSetFiles &files, const Exception &failure) {
    for (const std::string &file : files.loaded()) {
        const bool isEncrypted = files.isEncrypted() && isEncryptedPath(file);
        try {
            MediaOut nowhere(new Nowhere);
            convertFile(file, isEncrypted ? Conversion::Decrypt : Conversion::None, nowhere);
        } catch (const Exception &again) {
            if (s_isMarkedByDirectory(files, file)) {
                refuse("cannot read score file '" + file + "': the path '" + files.directory() +
                       "' holds \"cf\", so that its score files are read as encrypted; load it by "
                       "another path");
            }
            s_refuseFile(file, readable(again));
        }
    }
    refuse("cannot load the rules in '" + files.directory() + "': " + readable(failure));
}

Heuristic::Scanner s_load(const RuleSetFiles &files) {
    try {
        return Heuristic::Scanner(File::Path(files.directory()));
    } catch (const Exception &failure) {
        s_explain(files, failure);
    }
}

} // namespace

Heuristic::Scanner loadRules(const std::string &directory, LogSummary &log) {
    const RuleSetFiles files(directory);
    const std::vector<std::string> loaded = files.loaded();
    s_requireReadable(loaded);
    log.rules(directory);
    Heuristic::Scanner scanner = s_load(files);
    if (scanner.ruleCount() == 0) {
        refuse("no rules in '" + directory + "': " +
               (loaded.empty()
                    ? "it holds no file " + files.patterns()
                    : "none of its " + std::to_string(loaded.size()) + " " + files.patterns() +
                          " and score files holds a rule that can " + "be loaded") +
               "; name the directory that holds the rule files");
    }
    return scanner;
}

} // namespace Corvane::Cli
