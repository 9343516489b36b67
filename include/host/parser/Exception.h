#ifndef CORVANE_HOST_PARSER_EXCEPTION_H
#define CORVANE_HOST_PARSER_EXCEPTION_H

// The one exception type that every library of this system throws, always by value:
//
//     Exception failure("getRules", Exception::kGeneral, "Rule", __LINE__);
//     failure.stringParameter("Rule language is out of range");
//     throw failure;
//
// A layer that knows more than the thrower wraps: it throws a new exception with the caught one as
// cause().
//
// Threads: one thread at a time; copies are independent, except that they share the (unchanging)
// cause.

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "host/parser/Export.h"

namespace Corvane {

class CORVANE_PARSER_API Exception : public std::exception {
public:
    // Codes in use. Callers may tell an empty handle and an unknown enumerator from all other
    // failures.
    static constexpr int kEmptyHandle = 1;
    static constexpr int kUnknownEnumerator = 2;
    static constexpr int kGeneral = 4;

    // message names the failing class or operation. file is the source file without extension; null
    // stands for none (give line 0 then). All texts are copied.
    Exception(const std::string &message, int code, const char *file, unsigned int line);
    Exception(const Exception &);
    Exception(Exception &&) noexcept;
    Exception &operator=(const Exception &);
    Exception &operator=(Exception &&) noexcept;
    ~Exception() override;

    // Appends a detail: the offending item, or a description. Any number may be given; their order
    // is kept.
    void stringParameter(const std::string &parameter);

    // Attaches a copy of the exception that led to this one, replacing an earlier cause.
    void cause(const Exception &inner);

    // Plain accessors. file() is "" where the constructor was given null. cause() is null where
    // there is none; the pointer lives as long as this exception or a copy of it.
    const std::string &message() const { return message_; }
    int code() const { return code_; }
    const std::string &file() const { return file_; }
    unsigned int line() const { return line_; }
    const std::vector<std::string> &parameters() const { return parameters_; }
    const Exception *cause() const { return cause_.get(); }

    // One line for a log: "message (parameter; parameter) [code file:line] <- cause ...", without
    // the parentheses where there is no parameter and with only the code in brackets where there is
    // no file. Control bytes in the texts are replaced by blanks.
    std::string asString() const;

    // The same text as asString(); owned by the exception, valid until it is changed or destroyed.
    const char *what() const noexcept override { return rendered_.c_str(); }

private:
    void render();

    std::string message_;
    int code_;
    std::string file_;
    unsigned int line_;
    std::vector<std::string> parameters_;
    std::shared_ptr<const Exception> cause_;
    std::string rendered_;
};

} // namespace Corvane

#endif
