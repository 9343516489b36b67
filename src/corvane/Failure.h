#ifndef CORVANE_SRC_CORVANE_FAILURE_H
#define CORVANE_SRC_CORVANE_FAILURE_H

// How loading tells people what went wrong.

#include <string>

#include "corvane/LoadError.h"
#include "host/parser/Exception.h"

namespace corvane {

// The text as one printable line.
std::string printable(const std::string &text);

// What the system says of an error number.
std::string systemReason(int error);

// What the failure at the root of an exception says, without the layers it came through.
std::string reasonOf(const Corvane::Exception &failure);

// Whether the temporary file of decryption is at fault, rather than what was to be decrypted.
bool isOfTemporaryFile(const Corvane::Exception &failure);

// Whether the look for the files of a directory has failed; the reason names the path then.
bool isOfDirectory(const Corvane::Exception &failure);

LoadError unreadableFile(const std::string &file, const std::string &reason);

// Throws LoadError unless there is a directory of that name whose entries can be read.
void requireDirectory(const std::string &directory);

} // namespace corvane

#endif
