#ifndef CORVANE_TESTS_SUPPORT_RULESET_H
#define CORVANE_TESTS_SUPPORT_RULESET_H

// A rule-set directory of one test's own, below the working directory under a fixed kind of name: the
// letters "cf" in a path say that its files are encrypted, and a random name may hold them.

#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include "host/crypto/EncrypterMediaOut.h"
#include "host/parser/File.h"
#include "support/TempDir.h"

namespace Corvane::Heuristic {

class RuleSet {
public:
    explicit RuleSet(const std::string &name = "set")
        : path_("rules-" + std::to_string(getpid()) + '-' + name) {
        std::filesystem::remove_all(path_);
        std::filesystem::create_directory(path_);
    }
    RuleSet(const RuleSet &) = delete;
    RuleSet &operator=(const RuleSet &) = delete;
    ~RuleSet() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    File::Path path() const { return File::Path(path_); }

    // Makes a file of the set; answers the set for chaining.
    RuleSet &add(const std::string &name, const std::string &text) {
        std::ofstream(path_ + '/' + name, std::ios::binary) << text;
        return *this;
    }

    // The same with the text encrypted as rule files are.
    RuleSet &addEncrypted(const std::string &name, const std::string &text) {
        const std::string key = "4402MeridianRd,EastDepot,K7qz2Tw";
        const std::string iv = "0123456789abcdef";
        const TempDir scratch;
        TempFileMediaOut out(scratch.path("outXXXXXX"), true);
        Crypto::EncrypterMediaOut stage(Crypto::Cipher::kAes256Cbc, view(key), view(iv));
        stage.attach(out);
        out.write(view(iv));
        stage.write(view(text));
        stage.end();
        out.end();
        return add(name, TempDir::read(out.tmpfile()->name()));
    }

private:
    static Buffer view(const std::string &text) {
        return {text.data(), static_cast<unsigned int>(text.size()), true};
    }

    std::string path_;
};

} // namespace Corvane::Heuristic

#endif
