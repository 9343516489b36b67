#ifndef CORVANE_SCANOPTIONS_H
#define CORVANE_SCANOPTIONS_H

// How a message is scanned:
//
//     corvane::ScanOptions options;
//     options.threshold = 5.0F;
//     options.budget = std::chrono::seconds(1);
//
// Threads: plain values.

#include <chrono>
#include <optional>
#include <string>

namespace corvane {

// How much of a message is read; what lies beyond a limit is cut off and the limit named in the
// verdict. Bytes where the name says so, else counts. 0 is taken as 1.
struct Limits {
    unsigned int messageBytes = 32U << 20U;    // the message as received
    unsigned int nestingDepth = 32;            // multiparts, or messages, inside each other
    unsigned int parts = 1000;                 // parts that hold text or a message
    unsigned int headers = 1000;               // headers, beside those that matter
    unsigned int headerBytes = 256U << 10U;    // the same headers, all together
    unsigned int headerValueBytes = 8U << 10U; // one unfolded header value
    unsigned int uris = 10000;                 // URIs of all sources
    unsigned int uriBytes = 4U << 10U;         // one URI
    unsigned int decodedBytes = 2U << 20U;     // decoded plain text, all parts together
    unsigned int textBytes = 64U << 10U;       // each decoded text
    unsigned int rawBodyBytes = 128U << 10U;   // the body as received
    unsigned int htmlBytes = 2U << 20U;        // text in HTML, all parts together
    unsigned int htmlTagBytes = 16U << 10U;    // one attribute's value
    unsigned int styleRules = 16384;           // selectors of the style sheets of one part
};

struct ScanOptions {
    // The total above which a message is over.
    float threshold = 5.0F;

    // Ends the scan once the total is above the threshold: the rest of the stage at hand may still
    // run (the other URIs, the text behind the Subject, the headers behind the sender), no further
    // stage begins. The total then is a part of the whole one. No effect with a threshold of 0.
    bool stop = false;

    // Tries the first so many per cent of the rules, in the order they were loaded; 0 and 100 try
    // all. Full rules are tried on the message's lines in any case.
    unsigned int percent = 0;

    // The sender of the envelope: an address, or "" or "<>" for the empty one that bounces have.
    // Without it the address in the message's Return-Path. A text that is no address is taken as it
    // stands.
    std::optional<std::string> sender;

    Limits limits;

    // The processor time that the scan may take on its thread; 0, no bound. A scan that comes to
    // its end starts nothing more, its score is what was added by then, and the verdict names the
    // limit "budget".
    std::chrono::nanoseconds budget{0};

    // Writes the name of each rule to standard output before it is tried. Slow: rules that cannot
    // match are tried too.
    bool trace = false;
};

} // namespace corvane

#endif
