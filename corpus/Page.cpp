#include "Page.h"

#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "CorpusError.h"
#include "PageParts.h"

namespace Corvane::Corpus {

namespace {

// A "<" in the data could end the element that it is in.
std::string s_escaped(const std::string &json) {
    std::string text;
    text.reserve(json.size());
    for (const char each : json) {
        if (each == '<') {
            text += "\\u003c";
        } else {
            text += each;
        }
    }
    return text;
}

void s_put(std::string &page, const std::string &place, std::string_view content) {
    const std::size_t found = page.find(place);
    page.replace(found, place.size(), content);
}

} // namespace

std::string pageOf(const std::string &json) {
    std::string page = kPage;
    s_put(page, "@STYLE@", kPageStyle);
    s_put(page, "@SCRIPT@", kPageScript);
    // Last: the data may hold anything.
    s_put(page, "@DATA@", s_escaped(json));
    return page;
}

void writeWhole(const std::string &path, const std::string &content) {
    const std::string partial = path + ".partial";
    std::ofstream out(partial, std::ios::binary);
    out << content;
    out.close();
    std::error_code error;
    if (!out.fail()) {
        std::filesystem::rename(partial, path, error);
    }
    if (out.fail() || error) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw CorpusError("cannot write '" + path + "'" +
                          (error ? ": " + error.message()
                                 : "; see that its directory is there, "
                                   "writable, and has room"));
    }
}

} // namespace Corvane::Corpus
