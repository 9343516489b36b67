#include "heuristic/RuleFactory.h"

#include <array>
#include <cerrno>
#include <ios>
#include <list>
#include <sstream>
#include <utility>

#include "heuristic/Failure.h"
#include "heuristic/LoadObserver.h"
#include "host/crypto/DecrypterMediaOut.h"
#include "host/parser/Buffer.h"
#include "host/parser/File.h"
#include "host/parser/Lasting.h"
#include "host/parser/Media.h"

// Which files make a rule set, and how they are read; RuleFactory.cpp has what stands in them.

namespace Corvane::Heuristic {

namespace {

constexpr const char *kFile = "RuleFactory";
constexpr unsigned int kParseLine = 328;
constexpr const char *kTemporaryPattern = "/var/spool/tmp/ruleXXXXXX";
constexpr unsigned int kVectorBytes = 16;
constexpr unsigned int kPieceBytes = 512;

bool s_holds(const RuleSource &source, const std::string &name) {
    return source.files.has_value() ? source.files->count(name) > 0
                                    : File::Path(source.directory + '/' + name).exists();
}

std::list<std::string> s_patterns(const RuleSource &source) {
    std::list<std::string> patterns;
    if (s_holds(source, "heuristic.cf3")) {
        patterns = {"*.cf3", "*.cf2"};
    } else {
        patterns = {s_holds(source, "heuristic.cf2") ? "*.cf2" : "*.cf"};
    }
    // Last, so that score files win over score lines in rule files.
    patterns.emplace_back("*.score");
    return patterns;
}

// Bytes in memory as a source of them; they must outlive it.
class MemoryMediaIn final : public MediaIn {
public:
    explicit MemoryMediaIn(std::string_view bytes) : rest_(bytes) {}

    void read(Buffer &bytes, unsigned int max) override {
        const std::string_view piece = rest_.substr(0, max);
        bytes = Buffer(piece.data(), static_cast<unsigned int>(piece.size()), false);
        rest_.remove_prefix(piece.size());
    }

private:
    std::string_view rest_;
};

// Names the file that is read, for as long as it is. The file that is named already keeps its name
// while its decrypted copy is read: that one means nothing to whoever wrote the rules.
class Reading {
public:
    Reading(std::string &current, const std::string &file)
        : current_(current), isOuter_(current.empty()) {
        if (isOuter_) {
            current_ = file;
        }
    }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;
    ~Reading() {
        if (isOuter_) {
            current_.clear();
        }
    }

private:
    std::string &current_;
    bool isOuter_;
};

// What is left of a stream.
std::string s_rest(std::istream &stream) {
    constexpr std::size_t kStepBytes = 65536;
    std::string rest;
    try {
        for (std::size_t taken = 0;; rest.resize(taken)) {
            rest.resize(taken + kStepBytes);
            const std::streamsize got = stream.rdbuf()->sgetn(&rest[taken], kStepBytes);
            if (got <= 0) {
                rest.resize(taken);
                return rest;
            }
            taken += static_cast<std::size_t>(got);
        }
    } catch (const std::ios_base::failure &cause) {
        fail("RuleFileParser::content", Exception::kGeneral, kFile, __LINE__, cause.what());
    }
}

// Follows the lines through the bytes that they are read from.
class LineOffsets {
public:
    explicit LineOffsets(std::string_view bytes) : bytes_(bytes) {}

    // Sets where the next line begins, and whether it is longer than what is read of it.
    void next(LoadedLine &line) {
        const std::size_t end = bytes_.find('\n', offset_);
        std::string_view whole = bytes_.substr(offset_, end - offset_);
        if (end != std::string_view::npos && !whole.empty() && whole.back() == '\r') {
            whole.remove_suffix(1);
        }
        line.offset = offset_;
        line.isCut = whole.size() > line.text.size();
        offset_ = end == std::string_view::npos ? bytes_.size() : end + 1;
    }

private:
    std::string_view bytes_;
    std::size_t offset_ = 0;
};

} // namespace

RuleFileParser::RuleFileParser(RuleContainer &container)
    : encrypted_(false), ruleCount_(0), container_(container), observer_(nullptr), line_(0) {}

RuleFileParser::RuleFileParser(const File::Path &directory, RuleContainer &container)
    : RuleFileParser(std::vector<RuleSource>{{directory.asString(), {}}}, container, nullptr) {}

RuleFileParser::RuleFileParser(const std::vector<RuleSource> &sources, RuleContainer &container,
                               LoadObserver *observer)
    : RuleFileParser(container) {
    observer_ = observer;
    for (const RuleSource &source : sources) {
        load(source);
    }
    observer_ = nullptr;
    activateMetaSubrules();
    assignScores();
}

RuleFileParser::~RuleFileParser() = default;

const Buffer &RuleFileParser::key() {
    static constexpr std::string_view kKey = "4402MeridianRd,EastDepot,K7qz2Tw";
    static const Buffer &s_key =
        lasting(Buffer(kKey.data(), static_cast<unsigned int>(kKey.size()), true));
    return s_key;
}

void RuleFileParser::load(const RuleSource &source) {
    const std::list<std::string> patterns = s_patterns(source);
    encrypted_ = s_holds(source, "version");
    if (!source.files.has_value()) {
        File::Selector selector(File::Path(source.directory), *this);
        selector.patterns(patterns);
        selector.start();
        return;
    }
    std::list<std::string> names;
    for (const auto &[name, bytes] : *source.files) {
        names.push_back(name);
    }
    for (const std::string &name : File::Selector::choose(names, patterns)) {
        parse(File::Path(source.directory, name).asString(), source.files->at(name));
    }
}

int RuleFileParser::process(const File::Path &file) {
    parse(file);
    return 0;
}

void RuleFileParser::linkBroken(const File::Path &file, int error) {
    if (observer_ != nullptr) {
        const Reading reading(file_, file.asString());
        begin(file.asString());
        observer_->fileUnreadable(file.asString(), error);
    }
}

// Tells the observer of a file; answers whether that is encrypted.
bool RuleFileParser::begin(const std::string &path) {
    // The whole path counts, so that a directory of that name takes its score files along.
    const bool isEncrypted = encrypted_ && path.find("cf") != std::string::npos;
    if (observer_ != nullptr) {
        files_.push_back(path);
        observer_->fileBegins(path, isEncrypted);
    }
    return isEncrypted;
}

void RuleFileParser::parse(const File::Path &file) {
    const Reading reading(file_, file.asString());
    if (begin(file.asString())) {
        FileMediaIn in(file.asString());
        parseEncrypted(in);
    } else {
        parse(file.asString());
    }
}

// A file in memory.
void RuleFileParser::parse(const std::string &path, const std::string &bytes) {
    const Reading reading(file_, path);
    if (begin(path)) {
        MemoryMediaIn in(bytes);
        parseEncrypted(in);
        return;
    }
    try {
        std::istringstream stream(bytes);
        parseStream(stream);
    } catch (const Exception &failure) {
        wrap(failure, "RuleFileParser::process", kFile, kParseLine);
    }
}

void RuleFileParser::parseEncrypted(MediaIn &in) {
    TempFileMediaOut plain(kTemporaryPattern, true);
    Buffer piece;
    in.read(piece, kVectorBytes);
    Crypto::DecrypterMediaOut decrypter(Crypto::Cipher::kAes256Cbc, key(), piece);
    decrypter.attach(plain);
    for (in.read(piece, kPieceBytes); !piece.isEmpty(); in.read(piece, kPieceBytes)) {
        decrypter.write(piece);
    }
    decrypter.end();
    plain.end();
    const Ref<TempFile> temporary = plain.tmpfile();
    plain.close();
    parse(temporary->name());
}

void RuleFileParser::parse(const std::string &fileName) {
    try {
        errno = 0;
        File::basic_ifstream<char> stream(File::Path(fileName), std::ios_base::in);
        const int error = errno;
        const Reading reading(file_, fileName);
        if (stream.is_open()) {
            parseStream(stream);
        } else if (observer_ != nullptr) {
            observer_->fileUnreadable(file_, error);
        }
    } catch (const Exception &failure) {
        wrap(failure, "RuleFileParser::process", kFile, kParseLine);
    }
}

void RuleFileParser::parseStream(std::istream &stream) {
    if (observer_ == nullptr) {
        parseLines(stream, {});
        return;
    }
    std::istringstream whole(s_rest(stream));
    observer_->content(whole.view());
    parseLines(whole, whole.view());
}

// bytes are all that the stream gives, for an observer; else they may be missing.
void RuleFileParser::parseLines(std::istream &stream, std::string_view bytes) {
    std::array<char, kMaxLineBytes> buffer{};
    langID language = DEFAULT;
    LineOffsets offsets(bytes);
    line_ = 0;
    while (!stream.eof()) {
        const int consumed = File::getline(stream, buffer.data(), kMaxLineBytes);
        if (consumed == 0) {
            break;
        }
        LoadedLine line;
        line.file = file_;
        line.number = ++line_;
        line.text = {buffer.data(), static_cast<std::size_t>(consumed) - 1};
        if (observer_ != nullptr) {
            offsets.next(line);
        }
        parseLine(line, language);
        if (observer_ != nullptr && !line.text.empty()) {
            observer_->line(line);
        }
    }
}

} // namespace Corvane::Heuristic
