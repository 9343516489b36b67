#ifndef CORVANE_BENCHMARKS_HOSTILEMESSAGES_H
#define CORVANE_BENCHMARKS_HOSTILEMESSAGES_H

// Messages that are made to take a mail reader long: of headers, parts, parameters, encodings, charsets or HTML that cost
// much for each byte, or more the more there are of them.
//
// Threads: plain values.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Corvane::Benchmarks {

struct HostileMessage {
    std::string name;
    // A message of about so many bytes.
    std::function<std::string(std::size_t bytes)> message;
};

// The first is a dense newsletter, which the others are compared with.
std::vector<HostileMessage> hostileMessages();

} // namespace Corvane::Benchmarks

#endif
