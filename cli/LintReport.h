#ifndef CORVANE_CLI_LINTREPORT_H
#define CORVANE_CLI_LINTREPORT_H

// Writes what lint has found, for people and for programs.
//
// Threads: free functions without state.

#include <ostream>
#include <vector>

#include "Finding.h"

namespace Corvane::Cli {

// Whether what is the same at several lines of a file is told once, with all the lines.
enum class LintLines { Grouped, Each };

// FILE:LINE:COLUMN: LEVEL CODE: TEXT; REMEDY, and below that where it helps the piece of the line,
// with a caret under the fault.
void writeLintText(const std::vector<Finding> &findings, LintLines lines, std::ostream &out);

// One object.
void writeLintJson(const std::vector<Finding> &findings, std::ostream &out);

// A log in the Static Analysis Results Interchange Format, version 2.1.0.
void writeLintSarif(const std::vector<Finding> &findings, std::ostream &out);

} // namespace Corvane::Cli

#endif
