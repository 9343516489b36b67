#ifndef CORVANE_EXPLAINEDTEXT_H
#define CORVANE_EXPLAINEDTEXT_H

// What an explanation (Explanation.h) shows of a message, a pattern, and an expression.
//
// Threads: plain values.

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

// A text of the message that a rule was tried on, and what of it is meant.
struct ExplainedText {
    // What of the message it is: "line" (as received), "sender" (of the envelope), "header",
    // "subject", "text" (decoded), "raw-body" (as received), "second" (rendering of the text),
    // "uri" or "whole-header"; lives for ever.
    std::string_view source;

    // Of the line, header or URI among those of its source, from 1; and of a long line's piece.
    std::size_t number = 0;
    std::size_t piece = 1;

    // Of a header, its name, and what of it is meant: "value", "raw", "addr", "name" or "all".
    // Of a URI, where it was found: "header", "text" or "html". Else "".
    std::string header;
    std::string_view form;
    std::string uriSource;

    // Where it begins in the whole of its source, in bytes; 0 for headers and URIs.
    std::size_t offset = 0;

    std::string text;

    // The bytes of the text that matched, the last one not included. Without a range the rule asked
    // only whether the text, a header, is there, or that it does not match.
    bool hasRange = false;
    std::size_t start = 0;
    std::size_t end = 0;
};

// How far a pattern came that did not match.
struct NearestTry {
    // The text, its range what the try had taken in.
    ExplainedText text;

    // The pattern, and the item in it that was not got past; of no length at the pattern's end.
    std::string pattern;
    std::size_t item = 0;
    std::size_t itemLength = 0;

    // Whether all tries were looked at; of very many only the first are.
    bool isComplete = true;
};

// One line of a meta rule's expression as a tree.
struct MetaStep {
    // The groups that it lies in.
    unsigned int depth = 0;

    // What stands before it, such as "&&", "!" or "|| !"; "" for the first operand.
    std::string operation;

    // A name, a number, or "(" for the group whose lines follow, one deeper.
    std::string operand;

    // Without the "!" before it: what it counts for. Of a name 1 where a rule of the name had
    // tripped when this one was tried, which of meta rules are those loaded before.
    float value = 0.0F;
};

} // namespace corvane

#endif
