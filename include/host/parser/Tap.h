#ifndef CORVANE_HOST_PARSER_TAP_H
#define CORVANE_HOST_PARSER_TAP_H

// The interface of a consumer that gets a message piece by piece as it streams in.
//
// Threads: one message, and so one tap, is fed by one thread at a time.

#include "host/parser/Buffer.h"
#include "host/parser/Export.h"

namespace Corvane {

class CORVANE_PARSER_API Tap {
public:
    Tap();
    Tap(const Tap &);
    Tap &operator=(const Tap &);
    virtual ~Tap();

    // The next bytes of the message. data may be a view that is gone after the call: a tap that
    // keeps bytes must copy them. The answer is the implementation's to define.
    virtual bool write(const Buffer &data) = 0;

    // No more bytes follow. The answer is the implementation's to define.
    virtual bool end() = 0;
};

} // namespace Corvane

#endif
