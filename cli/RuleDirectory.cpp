#include "RuleDirectory.h"

#include <cerrno>
#include <list>
#include <system_error>

#include <unistd.h>

#include "heuristic/RuleFactory.h"
#include "host/parser/Exception.h"
#include "host/parser/File.h"

namespace Corvane::Cli {

namespace {

constexpr const char *kPattern = "*.cf";

[[noreturn]] void s_refuse(const std::string &reason) {
    throw Exception(reason, Exception::kGeneral, nullptr, 0);
}

[[noreturn]] void s_refuseFile(const File::Path &file, const std::string &reason) {
    s_refuse("cannot read rule file '" + file.asString() + "': " + reason +
             "; make it readable or take it out of the directory");
}

// Hands each file that the selector finds to the parser.
class Loader : public File::Processor {
public:
    Loader(Heuristic::RuleContainer &rules, LogSummary &log) : parser_(rules), log_(log) {}

    int process(const File::Path &file) override {
        // The parser passes over what it cannot open; whoever named the directory must hear of it.
        if (access(file, R_OK) != 0) {
            s_refuseFile(file, std::generic_category().message(errno));
        }
        log_.file(file.asString());
        try {
            parser_.parse(file.asString());
        } catch (const Exception &failure) {
            s_refuseFile(file, failure.asString());
        }
        log_.file({});
        ++files_;
        return 0;
    }

    unsigned int finish(const std::string &directory) {
        if (files_ == 0) {
            s_refuse("no rules in '" + directory + "': it holds no file " + kPattern);
        }
        if (parser_.ruleCount() == 0) {
            s_refuse("no rules in '" + directory + "': none of its " + std::to_string(files_) +
                     " " + kPattern + " files holds a rule that can be loaded");
        }
        parser_.assignScores();
        return parser_.ruleCount();
    }

private:
    Heuristic::RuleFileParser parser_;
    LogSummary &log_;
    unsigned int files_ = 0;
};

} // namespace

unsigned int loadRuleDirectory(const std::string &directory, Heuristic::RuleContainer &rules,
                               LogSummary &log) {
    const File::Path path(directory);
    if (!path.exists()) {
        s_refuse("rule directory '" + directory +
                 "' does not exist or cannot be reached; name the directory that holds the " +
                 kPattern + " files");
    }
    if (!path.isDirectory()) {
        s_refuse("'" + directory + "' is no directory; name the directory that holds the " +
                 kPattern + " files");
    }
    Loader loader(rules, log);
    File::Selector selector(path, loader);
    selector.patterns(std::list<std::string>{kPattern});
    selector.start();
    return loader.finish(directory);
}

} // namespace Corvane::Cli
