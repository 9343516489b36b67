#ifndef CORVANE_LOADERROR_H
#define CORVANE_LOADERROR_H

// Thrown where a rule set cannot be loaded. what() is one sentence for a person, with all three
// parts:
//
//     cannot read rule file 'rules/a.cf': Permission denied; mend it or take it out of the directory

#include <stdexcept>
#include <string>

#include "corvane/Export.h"

namespace corvane {

class CORVANE_API LoadError : public std::runtime_error {
public:
    // The texts are copied. sentence says what could not be done, without the reason and the
    // remedy.
    LoadError(const std::string &sentence, const std::string &file, const std::string &reason,
              const std::string &remedy);
    LoadError(const LoadError &);
    LoadError &operator=(const LoadError &);
    ~LoadError() override;

    // The file or directory at fault, why it could not be loaded, and what to do about it. The
    // reason is "" where the sentence says it all.
    const std::string &file() const noexcept { return file_; }
    const std::string &reason() const noexcept { return reason_; }
    const std::string &remedy() const noexcept { return remedy_; }

private:
    std::string file_;
    std::string reason_;
    std::string remedy_;
};

} // namespace corvane

#endif
