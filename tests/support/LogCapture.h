#ifndef CORVANE_TESTS_SUPPORT_LOGCAPTURE_H
#define CORVANE_TESTS_SUPPORT_LOGCAPTURE_H

// Takes the log over for its lifetime and keeps the records, for tests that look at them. One at a
// time, one thread.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/parser/Logger.h"

namespace Corvane {

struct LogRecord {
    unsigned int id;
    std::string text;

    bool operator==(const LogRecord &other) const { return id == other.id && text == other.text; }
};

inline void PrintTo(const LogRecord &record, std::ostream *out) {
    *out << std::hex << record.id << std::dec << " \"" << record.text << '"';
}

class LogCapture {
public:
    LogCapture()
        : former_(Logger::instance(false).sink(
              [this](unsigned int id, int level, const std::string &text) {
                  EXPECT_EQ(level, 0);
                  records.push_back({id, text});
              })) {}
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;
    ~LogCapture() { Logger::instance(false).sink(former_); }

    std::vector<LogRecord> records;

private:
    Logger::Sink former_;
};

} // namespace Corvane

#endif
