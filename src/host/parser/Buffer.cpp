#include "host/parser/Buffer.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <memory>

#include "host/parser/Exception.h"
#include "host/parser/Text.h"

namespace Corvane {

// Owned bytes and the number of buffers that share them. Only a sole user may write to them.
struct Buffer::Block {
    explicit Block(unsigned int size) : bytes(new unsigned char[size]), capacity(size) {}

    std::atomic<unsigned int> users{1};
    std::unique_ptr<unsigned char[]> bytes;
    unsigned int capacity;
};

Buffer::Block *Buffer::share(Block *block) {
    if (block != nullptr) {
        block->users.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

void Buffer::release(Block *block) {
    if (block != nullptr && block->users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        const std::unique_ptr<Block> last(block);
    }
}

Buffer::Buffer() : block_(nullptr), data_(nullptr), length_(0) {}

Buffer::Buffer(const void *data, unsigned int length, bool view) : Buffer() {
    if (length == 0) {
        return;
    }
    if (view) {
        data_ = static_cast<const unsigned char *>(data);
        length_ = length;
    } else {
        append(static_cast<const unsigned char *>(data), length);
    }
}

Buffer::Buffer(int capacity, int /*unused*/) : Buffer() {
    if (capacity > 0) {
        reserve(static_cast<unsigned int>(capacity));
    }
}

Buffer::Buffer(const Buffer &source)
    : block_(share(source.block_)), data_(source.data_), length_(source.length_) {}

Buffer::Buffer(Buffer &&source) noexcept
    : block_(source.block_), data_(source.data_), length_(source.length_) {
    source.block_ = nullptr;
    source.data_ = nullptr;
    source.length_ = 0;
}

Buffer &Buffer::operator=(const Buffer &source) {
    Buffer copy(source);
    *this = std::move(copy);
    return *this;
}

Buffer &Buffer::operator=(Buffer &&source) noexcept {
    std::swap(block_, source.block_);
    std::swap(data_, source.data_);
    std::swap(length_, source.length_);
    return *this;
}

Buffer::~Buffer() {
    release(block_);
}

unsigned int Buffer::capacity() const {
    if (block_ == nullptr) {
        return 0;
    }
    return block_->capacity - static_cast<unsigned int>(data_ - block_->bytes.get());
}

// Makes the bytes this buffer's own, with room for capacity bytes; the length stays.
void Buffer::reserve(unsigned int capacity) {
    const bool sole = block_ != nullptr && block_->users.load(std::memory_order_acquire) == 1;
    if (sole && this->capacity() >= capacity) {
        return;
    }
    auto fresh = std::make_unique<Block>(capacity);
    if (length_ > 0) {
        std::memcpy(fresh->bytes.get(), data_, length_);
    }
    release(block_);
    block_ = fresh.release();
    data_ = block_->bytes.get();
}

void Buffer::length(unsigned int length) {
    if (length > length_) {
        reserve(length);
        std::memset(block_->bytes.get() + (data_ - block_->bytes.get()) + length_, 0,
                    length - length_);
    }
    length_ = length;
}

unsigned char Buffer::at(unsigned int index) const {
    if (index >= length_) {
        Exception failure("Buffer::at", Exception::kGeneral, "Buffer", __LINE__);
        failure.stringParameter("index " + std::to_string(index) + " of " +
                                std::to_string(length_));
        throw failure;
    }
    return data_[index];
}

void Buffer::append(const unsigned char *data, unsigned int length) {
    if (length == 0) {
        return;
    }
    if (length > UINT_MAX - length_) {
        throw Exception("Buffer::append", Exception::kGeneral, "Buffer", __LINE__);
    }
    const unsigned int total = length_ + length;
    // The source may lie in this buffer's own bytes, which reserve() may free: the copy keeps them
    // alive.
    const Buffer keep(block_ != nullptr && data >= data_ && data < data_ + length_ ? *this
                                                                                   : Buffer());
    if (capacity() < total) {
        constexpr unsigned int kGrowthLimit = UINT_MAX / 2;
        reserve(total > kGrowthLimit ? total : std::max(total, 2 * length_));
    } else {
        reserve(total);
    }
    unsigned char *end = block_->bytes.get() + (data_ - block_->bytes.get()) + length_;
    std::memcpy(end, data, length);
    length_ = total;
}

void Buffer::append(const Buffer &other) {
    append(other.data_, other.length_);
}

Buffer Buffer::mid(unsigned int from) const {
    Buffer rest;
    if (from < length_) {
        rest.block_ = share(block_);
        rest.data_ = data_ + from;
        rest.length_ = length_ - from;
    }
    return rest;
}

int Buffer::find(const Buffer &needle, int from) const {
    const unsigned int start = from < 0 ? 0 : static_cast<unsigned int>(from);
    if (start > length_) {
        return -1;
    }
    if (needle.length_ == 0) {
        return static_cast<int>(start);
    }
    const void *found = start == length_
                            ? nullptr
                            : memmem(data_ + start, length_ - start, needle.data_, needle.length_);
    if (found == nullptr) {
        return -1;
    }
    const auto offset = static_cast<const unsigned char *>(found) - data_;
    return offset > INT_MAX ? -1 : static_cast<int>(offset);
}

template <class Accept>
int Buffer::findByte(int from, Accept accept) const {
    const unsigned int start = from < 0 ? 0 : static_cast<unsigned int>(from);
    if (start >= length_) {
        return -1;
    }
    const unsigned char *found = std::find_if(data_ + start, data_ + length_, accept);
    const auto offset = found - data_;
    return offset == length_ || offset > INT_MAX ? -1 : static_cast<int>(offset);
}

int Buffer::findWhiteSpace(int from) const {
    return findByte(from, [](unsigned char byte) { return isWhiteSpace(byte); });
}

int Buffer::findNonWhiteSpace(int from) const {
    return findByte(from, [](unsigned char byte) { return !isWhiteSpace(byte); });
}

std::string Buffer::asString() const {
    return length_ == 0 ? std::string()
                        : std::string(reinterpret_cast<const char *>(data_), length_);
}

bool Buffer::operator==(const Buffer &other) const {
    return length_ == other.length_ &&
           (length_ == 0 || std::memcmp(data_, other.data_, length_) == 0);
}

LineBuffer::LineBuffer() : position_(0), searched_(0), delimiter_(0) {}

LineBuffer::LineBuffer(const Buffer &source)
    : Buffer(source), position_(0), searched_(0), delimiter_(0) {}

LineBuffer &LineBuffer::operator=(const Buffer &source) {
    Buffer::operator=(source);
    position_ = 0;
    searched_ = 0;
    return *this;
}

void LineBuffer::getLine(Buffer &out, unsigned char delimiter) {
    out.length(0);
    const unsigned int start = startOfLine();
    if (delimiter != delimiter_) {
        delimiter_ = delimiter;
        searched_ = start;
    }
    const unsigned int from = std::clamp(searched_, start, length());
    const void *found =
        from == length() ? nullptr : std::memchr(data() + from, delimiter, length() - from);
    if (found == nullptr) {
        searched_ = length();
        return;
    }
    const auto next =
        static_cast<unsigned int>(static_cast<const unsigned char *>(found) - data()) + 1;
    out.append(data() + start, next - start);
    position_ = next;
    searched_ = next;
}

bool LineBuffer::endOfBuffer() const {
    return position_ >= length();
}

unsigned int LineBuffer::startOfLine() const {
    return std::min(position_, length());
}

void LineBuffer::append(const unsigned char *data, unsigned int length) {
    append(Buffer(data, length, true));
}

void LineBuffer::append(const Buffer &other) {
    // A share of other's bytes: they may be bytes of this buffer that dropTaken() lets go.
    const Buffer added(other);
    // The buffer may have been cut since.
    position_ = startOfLine();
    searched_ = std::min(searched_, length());
    dropTaken();
    Buffer::append(added);
}

// Drops what was taken once it is the larger part, so that moving the rest costs no more than was
// read.
void LineBuffer::dropTaken() {
    const unsigned int start = startOfLine();
    if (start == 0 || start < length() - start) {
        return;
    }
    const Buffer pending = mid(start);
    Buffer::operator=(Buffer(pending.data(), pending.length(), false));
    position_ = 0;
    searched_ = searched_ > start ? searched_ - start : 0;
}

} // namespace Corvane
