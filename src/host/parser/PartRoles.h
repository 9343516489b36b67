#ifndef CORVANE_SRC_HOST_PARSER_PARTROLES_H
#define CORVANE_SRC_HOST_PARSER_PARTROLES_H

// What each part of a message is to its reader.
//
// Threads: immutable; any number of threads at once.

#include <cstddef>
#include <vector>

#include "host/parser/MimeStructure.h"

namespace Corvane {

// Alternative: HTML that says the same as a plain text. Other: a text of another type.
enum class PartRole { None, Plain, Html, Alternative, Other, Message };

class PartRoles {
public:
    // Of a table of MimeStructure; borrowed for the call.
    explicit PartRoles(const std::vector<MimeEntity> &table);

    // By place in the table.
    PartRole at(std::size_t place) const { return roles_[place]; }

    // The place of the text that stands for the message: the first plain one, lacking that the
    // first HTML, lacking that the first of another type. The size of the table without any.
    std::size_t firstText() const;

private:
    // By multipart: its part that holds the first plain text, its last part, and whether it holds
    // plain text or HTML.
    struct Branches {
        std::size_t plain;
        std::size_t last;
        bool isReadable;
    };

    void noteBranches(const std::vector<MimeEntity> &table, std::size_t place);
    PartRole settled(const std::vector<MimeEntity> &table, std::size_t place) const;

    std::vector<PartRole> roles_;
    std::vector<Branches> branches_;
};

} // namespace Corvane

#endif
