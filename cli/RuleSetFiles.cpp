#include "RuleSetFiles.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "Failure.h"
#include "Files.h"
#include "heuristic/RuleFactory.h"
#include "host/crypto/DecrypterMediaOut.h"
#include "host/crypto/EncrypterMediaOut.h"

namespace Corvane::Cli {

namespace {

constexpr unsigned int kVectorBytes = 16;
constexpr unsigned int kPieceBytes = 16384;

bool s_endsWith(const std::string &name, std::string_view end) {
    return name.size() >= end.size() &&
           name.compare(name.size() - end.size(), end.size(), end) == 0;
}

RuleSetFiles::Role s_role(const std::string &path, const std::string &name) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return RuleSetFiles::Role::Other;
    }
    if (name == "README") {
        return RuleSetFiles::Role::Readme;
    }
    if (name == "version") {
        return RuleSetFiles::Role::Version;
    }
    if (s_endsWith(name, ".score")) {
        return RuleSetFiles::Role::Scores;
    }
    const bool isRules =
        s_endsWith(name, ".cf") || s_endsWith(name, ".cf2") || s_endsWith(name, ".cf3");
    return isRules ? RuleSetFiles::Role::Rules : RuleSetFiles::Role::Other;
}

const char *s_verb(Conversion conversion) {
    switch (conversion) {
    case Conversion::Encrypt:
        return "encrypt";
    case Conversion::Decrypt:
        return "decrypt";
    default:
        return "read";
    }
}

void s_pass(FileMediaIn &in, MediaOut &stage) {
    Buffer piece;
    for (in.read(piece, kPieceBytes); !piece.isEmpty(); in.read(piece, kPieceBytes)) {
        stage.write(piece);
    }
}

void s_encrypt(FileMediaIn &in, MediaOut &output) {
    const Buffer vector = Crypto::randomBytes(kVectorBytes);
    Crypto::EncrypterMediaOut stage(Crypto::Cipher::kAes256Cbc, Heuristic::RuleFileParser::key(),
                                    vector);
    stage.attach(output);
    output.write(vector);
    s_pass(in, stage);
    stage.end();
}

void s_decrypt(FileMediaIn &in, MediaOut &output) {
    Buffer vector;
    in.read(vector, kVectorBytes);
    Crypto::DecrypterMediaOut stage(Crypto::Cipher::kAes256Cbc, Heuristic::RuleFileParser::key(),
                                    vector);
    stage.attach(output);
    s_pass(in, stage);
    stage.end();
}

} // namespace

RuleSetFiles::RuleSetFiles(const std::string &directory) : directory_(directory) {
    const File::Path path(directory);
    const std::string remedy = "; name the directory that holds the rule files";
    if (!path.exists()) {
        refuse("rule directory '" + directory + "' does not exist or cannot be reached" + remedy);
    }
    if (!path.isDirectory()) {
        refuse("'" + directory + "' is no directory" + remedy);
    }
    for (const std::string &name : visibleNames(directory)) {
        entries_.push_back({name, s_role(joined(directory, name), name)});
    }
    isEncrypted_ = has("version");
}

std::string RuleSetFiles::path(const std::string &name) const {
    return joined(directory_, name);
}

bool RuleSetFiles::has(const std::string &name) const {
    return std::any_of(entries_.begin(), entries_.end(),
                       [&name](const Entry &entry) { return entry.name == name; });
}

std::vector<std::string> RuleSetFiles::chosenEnds() const {
    if (has("heuristic.cf3")) {
        return {".cf3", ".cf2"};
    }
    return {has("heuristic.cf2") ? ".cf2" : ".cf"};
}

std::string RuleSetFiles::patterns() const {
    std::string patterns;
    for (const std::string &end : chosenEnds()) {
        patterns += (patterns.empty() ? "*" : " or *") + end;
    }
    return patterns;
}

std::vector<std::string> RuleSetFiles::loaded() const {
    const std::vector<std::string> ends = chosenEnds();
    std::vector<std::string> paths;
    for (const Entry &entry : entries_) {
        const bool isChosen =
            entry.role == Role::Rules &&
            std::any_of(ends.begin(), ends.end(),
                        [&entry](const std::string &end) { return s_endsWith(entry.name, end); });
        if (isChosen || entry.role == Role::Scores) {
            paths.push_back(path(entry.name));
        }
    }
    return paths;
}

bool isEncryptedPath(const std::string &path) {
    return path.find("cf") != std::string::npos;
}

void convertFile(const std::string &path, Conversion conversion, MediaOut &output) {
    try {
        FileMediaIn in(path);
        if (conversion == Conversion::None) {
            s_pass(in, output);
        } else {
            (conversion == Conversion::Encrypt ? s_encrypt : s_decrypt)(in, output);
        }
    } catch (const Exception &failure) {
        refuse(std::string("cannot ") + s_verb(conversion) + " '" + path +
               "': " + readable(failure));
    }
}

} // namespace Corvane::Cli
