#ifndef CORVANE_HOST_PARSER_BUFFER_H
#define CORVANE_HOST_PARSER_BUFFER_H

// Byte buffers. A Buffer either owns its bytes, which copies share until one of them changes, or is
// a view of bytes that somebody else owns:
//
//     Buffer owned(text.data(), length, false);
//     Buffer view(text.data(), length, true);
//
// The first copies the text; the text must outlive the second and every copy of it.
//
// Whatever changes a buffer first gives it bytes of its own where they are viewed or shared, so
// nothing is ever written to foreign bytes. Lengths and offsets are in bytes; a buffer holds less
// than 4 GiB. White space is blank, \t \n \v \f \r, in every locale.
//
// Threads: one buffer is for one thread at a time; copies that share their bytes may live on
// different threads.

#include <string>

#include "host/parser/Export.h"

namespace Corvane {

class CORVANE_PARSER_API Buffer {
public:
    Buffer();

    // view = true:  refers to the bytes without copying them; copies of this buffer refer to them
    // too. view = false: copies them. Null data with length 0 is an empty buffer.
    Buffer(const void *data, unsigned int length, bool view);

    // An empty buffer with room for capacity bytes (0 where negative). The second argument has no
    // effect.
    Buffer(int capacity, int);

    Buffer(const Buffer &source);
    Buffer(Buffer &&source) noexcept;
    Buffer &operator=(const Buffer &source);
    Buffer &operator=(Buffer &&source) noexcept;
    ~Buffer();

    // length() and size() are the same number. data() is borrowed, may be null for an empty buffer,
    // and is valid until the buffer is changed or destroyed (a view's: until its owner drops the
    // bytes).
    unsigned int length() const { return length_; }
    unsigned int size() const { return length_; }
    bool isEmpty() const { return length_ == 0; }
    const unsigned char *data() const { return data_; }

    // Bytes that can be held without a new allocation; 0 for a view.
    unsigned int capacity() const;

    // Cuts to length bytes, or appends zero bytes up to it. Cutting copies nothing and leaves other
    // buffers alone.
    void length(unsigned int length);

    // The byte at index; throws code 4 where index is not below length().
    unsigned char at(unsigned int index) const;

    // Appends bytes, which may be this buffer's own; throws code 4 where the result would reach 4
    // GiB.
    void append(const unsigned char *data, unsigned int length);
    void append(const Buffer &other);

    // The bytes from an offset on, sharing or viewing the same bytes; empty where from is at or
    // past the end.
    Buffer mid(unsigned int from) const;

    // The first offset at or after from, or -1. An empty needle is found at from itself where from
    // <= length(). A negative from counts as 0. Offsets above 2^31-1 are never answered.
    int find(const Buffer &needle, int from) const;
    int findWhiteSpace(int from) const;
    int findNonWhiteSpace(int from) const;

    // The bytes as a string of its own.
    std::string asString() const;

    bool operator==(const Buffer &other) const;
    bool operator!=(const Buffer &other) const { return !(*this == other); }

private:
    struct Block;

    static Block *share(Block *block);
    static void release(Block *block);
    void reserve(unsigned int capacity);
    template <class Accept>
    int findByte(int from, Accept accept) const;

    // block_ is null for a view and for an empty buffer; otherwise data_ points into it.
    Block *block_;
    const unsigned char *data_;
    unsigned int length_;
};

// A buffer that is read line by line, with a position that starts at 0. Text that arrives in pieces
// may be appended while lines are still pending.
class CORVANE_PARSER_API LineBuffer : public Buffer {
public:
    LineBuffer();
    explicit LineBuffer(const Buffer &source);

    // Replaces the content and puts the position back to 0. (A copy of a LineBuffer keeps its
    // position.)
    LineBuffer &operator=(const Buffer &source);

    // Puts a copy of the next complete line, delimiter included, into out and moves on; out is
    // emptied, and the position stays, where no complete line is left. out must not be this buffer.
    void getLine(Buffer &out, unsigned char delimiter);

    // Whether every byte has been taken by getLine; true for a fresh empty buffer.
    bool endOfBuffer() const;

    // Offset in data() of the first byte not yet taken. An append may move the pending bytes to the
    // front.
    unsigned int startOfLine() const;

    // Appends behind the pending bytes; bytes that were taken already may be dropped.
    void append(const unsigned char *data, unsigned int length);
    void append(const Buffer &other);

private:
    void dropTaken();

    unsigned int position_;
    // Bytes before this offset are known to hold no delimiter_, so that a long line that arrives in
    // small pieces is searched once.
    unsigned int searched_;
    unsigned char delimiter_;
};

} // namespace Corvane

#endif
