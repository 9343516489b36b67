#ifndef CORVANE_TESTS_SUPPORT_DOCPAGE_H
#define CORVANE_TESTS_SUPPORT_DOCPAGE_H

// A page of docs/, cut into what tests look at: its fenced blocks and its tables.
//
//     for (const DocBlock &block : DocPage("embedding.md").blocks()) { ... }
//
// One thread. The caller's target defines CORVANE_DOCS_DIR.

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace Corvane {

// What stands between two lines of three backquotes.
struct DocBlock {
    std::string info; // behind the first of them
    std::string text; // each line with its line end
    unsigned int line = 0;
};

// A row of a table, its cells without the blanks and the pair of backquotes around them. The cells of its table's
// heading tell which table it is in.
struct DocRow {
    std::vector<std::string> heading;
    std::vector<std::string> cells;
    unsigned int line = 0;
};

class DocPage {
public:
    // Throws std::runtime_error where the page is missing or empty.
    explicit DocPage(const std::string &name)
        : text_(TempDir::read(std::string(CORVANE_DOCS_DIR "/") + name)) {
        if (text_.empty()) {
            throw std::runtime_error("no page " + name);
        }
        std::istringstream lines(text_);
        unsigned int number = 0;
        for (std::string line; std::getline(lines, line);) {
            take(line, ++number);
        }
    }

    const std::string &text() const { return text_; }
    const std::vector<DocBlock> &blocks() const { return blocks_; }

    // The text of all blocks with that information, a blank line between them.
    std::string joined(const std::string &info) const {
        std::string all;
        for (const DocBlock &block : blocks_) {
            if (block.info == info) {
                all += (all.empty() ? "" : "\n") + block.text;
            }
        }
        return all;
    }

    // The rows of every table with that heading.
    std::vector<DocRow> rows(const std::vector<std::string> &heading) const {
        std::vector<DocRow> found;
        std::copy_if(rows_.begin(), rows_.end(), std::back_inserter(found),
                     [&](const DocRow &row) { return row.heading == heading; });
        return found;
    }

private:
    void take(const std::string &line, unsigned int number) {
        if (line.rfind("```", 0) == 0) {
            inside_ = !inside_;
            if (inside_) {
                blocks_.push_back({line.substr(3), "", number});
            }
        } else if (inside_) {
            blocks_.back().text += line + '\n';
        } else if (line.rfind('|', 0) == 0) {
            takeRow(line, number);
        } else {
            heading_.clear();
        }
    }

    void takeRow(const std::string &line, unsigned int number) {
        const std::vector<std::string> cells = cut(line);
        if (heading_.empty()) {
            heading_ = cells;
        } else if (cells.front().rfind("---", 0) != 0) {
            rows_.push_back({heading_, cells, number});
        }
    }

    // A bar in a cell is written with a backslash before it.
    static std::vector<std::string> cut(const std::string &line) {
        std::vector<std::string> cells(1);
        for (std::size_t at = 1; at < line.size(); ++at) {
            if (line.compare(at, 2, "\\|") == 0) {
                cells.back() += line[++at];
            } else if (line[at] == '|') {
                cells.emplace_back();
            } else {
                cells.back() += line[at];
            }
        }
        cells.pop_back();
        std::transform(cells.begin(), cells.end(), cells.begin(), bare);
        return cells;
    }

    static std::string bare(const std::string &cell) {
        const std::size_t first = cell.find_first_not_of(' ');
        if (first == std::string::npos) {
            return {};
        }
        const std::string text = cell.substr(first, cell.find_last_not_of(' ') - first + 1);
        const bool quoted = text.size() > 1 && text.front() == '`' && text.back() == '`';
        return quoted ? text.substr(1, text.size() - 2) : text;
    }

    std::string text_;
    std::vector<DocBlock> blocks_;
    std::vector<DocRow> rows_;
    std::vector<std::string> heading_;
    bool inside_ = false;
};

} // namespace Corvane

#endif
