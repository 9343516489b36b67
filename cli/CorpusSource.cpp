#include "CorpusSource.h"

#include <algorithm>
#include <filesystem>

#include "Failure.h"
#include "Files.h"
#include "MessageFiles.h"
#include "host/crypto/Digest.h"

namespace Corvane::Cli {

namespace {

namespace fs = std::filesystem;

std::uint64_t s_size(const std::string &file) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file, error);
    return error ? 0 : size;
}

// Names of classes are listed with commas between them.
bool s_isName(const std::string &name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char each) {
        const auto byte = static_cast<unsigned char>(each);
        return byte > ' ' && each != ',' && each != '=' && each != '\x7F';
    });
}

CorpusClass s_given(const std::string &text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || !s_isName(text.substr(0, sign))) {
        refuse("'" + text + "' names no class; give one as NAME=PATH, such as spam=mail/spam");
    }
    CorpusClass given{text.substr(0, sign), text.substr(sign + 1)};
    if (!fs::exists(given.path)) {
        refuse("'" + given.path + "', the messages of class '" + given.name + "', does not exist");
    }
    return given;
}

// The path of a file of a class below the path that was given for that.
std::string s_below(const std::string &root, const std::string &file) {
    if (file == root) {
        return fs::path(file).filename().string();
    }
    const std::string start = joined(root, "");
    return file.compare(0, start.size(), start) == 0 ? file.substr(start.size()) : file;
}

} // namespace

std::vector<CorpusClass> classesOf(const std::string &directory,
                                   const std::vector<std::string> &given) {
    std::vector<CorpusClass> classes;
    std::transform(given.begin(), given.end(), std::back_inserter(classes), &s_given);
    if (!directory.empty()) {
        for (const std::string &name : visibleNames(directory)) {
            const std::string path = joined(directory, name);
            if (fs::is_directory(path)) {
                if (!s_isName(name)) {
                    refuse("'" + path +
                           "' cannot be a class: its name has a blank, comma or '='; "
                           "name it with --class");
                }
                classes.push_back({name, path});
            }
        }
    }
    if (classes.empty()) {
        refuse(directory.empty()
                   ? std::string("there is no class; name each with --class NAME=PATH, or a "
                                 "directory with a directory for each")
                   : "'" + directory +
                         "' holds no directory, each of which would be a class; name "
                         "classes with --class NAME=PATH");
    }
    std::stable_sort(classes.begin(), classes.end(),
                     [](const auto &one, const auto &two) { return one.name < two.name; });
    return classes;
}

CorpusSource::CorpusSource(std::vector<CorpusClass> classes, std::vector<std::string> include,
                           unsigned int maxBytes)
    : classes_(std::move(classes)), include_(std::move(include)), maxBytes_(maxBytes) {}

CorpusSource::Survey CorpusSource::survey() const {
    const std::string_view end("\0", 1);
    Survey found;
    Crypto::Digest digest;
    for (const CorpusClass &each : classes_) {
        MessageFiles files({each.path}, include_);
        std::string file;
        while (files.next(file)) {
            const std::uint64_t size = s_size(file);
            found.bytes += size;
            digest.add(each.name);
            digest.add(end);
            digest.add(s_below(each.path, file));
            digest.add(end);
            digest.add(std::to_string(size));
            digest.add(end);
        }
    }
    found.digest = digest.hex();
    return found;
}

Corpus::MessageKey CorpusSource::keyOf(const std::string &file, std::size_t index) const {
    return {classes_[class_].name, s_below(classes_[class_].path, file), index};
}

void CorpusSource::note(const std::string &file) {
    if (file != file_) {
        file_ = file;
        bytesBegun_ += s_size(file);
    }
}

void CorpusSource::open() {
    source_ = std::make_unique<MessageSource>(std::vector<std::string>{classes_[class_].path},
                                              include_, maxBytes_);
    source_->choose([this](const std::string &file, std::size_t index) {
        note(file);
        return !wanted_ || wanted_(keyOf(file, index));
    });
}

std::optional<CorpusMessage> CorpusSource::next() {
    while (class_ < classes_.size()) {
        if (source_ == nullptr) {
            open();
        }
        std::optional<RawMessage> raw = source_->next();
        if (raw.has_value()) {
            const Corpus::MessageKey key = keyOf(raw->file, raw->index);
            // What cannot be opened was not asked for.
            if (raw->failure.empty() || !wanted_ || wanted_(key)) {
                return CorpusMessage{key, std::move(*raw)};
            }
            continue;
        }
        source_.reset();
        ++class_;
    }
    return {};
}

} // namespace Corvane::Cli
