#ifndef CORVANE_TESTS_SUPPORT_EXPECT_H
#define CORVANE_TESTS_SUPPORT_EXPECT_H

// What a failure is expected to look like, compared field by field.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/parser/Exception.h"

namespace Corvane {

constexpr unsigned int kAnyLine = ~0U;

struct ExpectedFailure {
    std::string message;
    int code;
    std::string file;
    unsigned int line = kAnyLine;
    std::vector<std::string> parameters = {};
    bool hasCause = false;
};

template <class Operation>
void expectFailure(Operation operation, const ExpectedFailure &expected) {
    try {
        operation();
        ADD_FAILURE() << "expected to be thrown: " << expected.message;
    } catch (const Exception &failure) {
        EXPECT_EQ(failure.message(), expected.message);
        EXPECT_EQ(failure.code(), expected.code);
        EXPECT_EQ(failure.file(), expected.file);
        EXPECT_EQ(failure.parameters(), expected.parameters);
        EXPECT_EQ(failure.cause() != nullptr, expected.hasCause);
        if (expected.line != kAnyLine) {
            EXPECT_EQ(failure.line(), expected.line);
        }
    }
}

} // namespace Corvane

#endif
