// Bounds-checked cursors over wire bytes.
//
// Every read of a received datagram goes through Reader and every write of
// an outgoing one through Writer. A read or write past the end does not touch
// memory: it sets the cursor's sticky failure flag and yields zeros, so a
// checker can read a whole field table and test ok() once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rmcpp::wire {

class Reader {
public:
    Reader(const uint8_t *data, size_t length) : data_(data), length_(length) {}

    bool ok() const { return ok_; }
    size_t offset() const { return pos_; }
    size_t remaining() const { return length_ - pos_; }
    const uint8_t *here() const { return data_ + pos_; }

    uint8_t u8()
    {
        if (!take(1)) return 0;
        return data_[pos_ - 1];
    }
    uint16_t u16le()
    {
        if (!take(2)) return 0;
        const uint8_t *p = data_ + pos_ - 2;
        return static_cast<uint16_t>(p[0] | (p[1] << 8));
    }
    uint32_t u32le()
    {
        if (!take(4)) return 0;
        const uint8_t *p = data_ + pos_ - 4;
        return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
               (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
    }
    uint32_t u32be()
    {
        if (!take(4)) return 0;
        const uint8_t *p = data_ + pos_ - 4;
        return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
               (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
    }
    // Copies n bytes out; on failure writes nothing.
    bool bytes(uint8_t *out, size_t n)
    {
        if (!take(n)) return false;
        if (n) std::memcpy(out, data_ + pos_ - n, n);
        return true;
    }
    bool skip(size_t n) { return take(n); }
    // True when the next n bytes are all zero (and present).
    bool zeros(size_t n)
    {
        if (!take(n)) return false;
        for (size_t i = pos_ - n; i < pos_; ++i)
            if (data_[i] != 0) return false;
        return true;
    }

private:
    bool take(size_t n)
    {
        if (!ok_ || n > length_ - pos_) {
            ok_ = false;
            return false;
        }
        pos_ += n;
        return true;
    }

    const uint8_t *data_;
    size_t length_;
    size_t pos_ = 0;
    bool ok_ = true;
};

class Writer {
public:
    Writer(uint8_t *data, size_t capacity) : data_(data), capacity_(capacity) {}

    bool ok() const { return ok_; }
    size_t size() const { return pos_; }
    size_t room() const { return capacity_ - pos_; }
    uint8_t *here() { return data_ + pos_; }

    Writer &u8(uint8_t v)
    {
        if (take(1)) data_[pos_ - 1] = v;
        return *this;
    }
    Writer &u16le(uint16_t v)
    {
        if (take(2)) {
            uint8_t *p = data_ + pos_ - 2;
            p[0] = static_cast<uint8_t>(v);
            p[1] = static_cast<uint8_t>(v >> 8);
        }
        return *this;
    }
    Writer &u32le(uint32_t v)
    {
        if (take(4)) {
            uint8_t *p = data_ + pos_ - 4;
            p[0] = static_cast<uint8_t>(v);
            p[1] = static_cast<uint8_t>(v >> 8);
            p[2] = static_cast<uint8_t>(v >> 16);
            p[3] = static_cast<uint8_t>(v >> 24);
        }
        return *this;
    }
    Writer &u32be(uint32_t v)
    {
        if (take(4)) {
            uint8_t *p = data_ + pos_ - 4;
            p[0] = static_cast<uint8_t>(v >> 24);
            p[1] = static_cast<uint8_t>(v >> 16);
            p[2] = static_cast<uint8_t>(v >> 8);
            p[3] = static_cast<uint8_t>(v);
        }
        return *this;
    }
    Writer &bytes(const uint8_t *src, size_t n)
    {
        if (take(n) && n) std::memmove(data_ + pos_ - n, src, n);
        return *this;
    }
    Writer &fill(uint8_t v, size_t n)
    {
        if (take(n) && n) std::memset(data_ + pos_ - n, v, n);
        return *this;
    }
    // Rewrites a little-endian u16 already written at `at` (a length field
    // whose value is known only after the payload).
    bool patch_u16le(size_t at, uint16_t v)
    {
        if (!ok_ || at + 2 > pos_) return false;
        data_[at] = static_cast<uint8_t>(v);
        data_[at + 1] = static_cast<uint8_t>(v >> 8);
        return true;
    }

private:
    bool take(size_t n)
    {
        if (!ok_ || n > capacity_ - pos_) {
            ok_ = false;
            return false;
        }
        pos_ += n;
        return true;
    }

    uint8_t *data_;
    size_t capacity_;
    size_t pos_ = 0;
    bool ok_ = true;
};

// Two's complement of the 8-bit sum: covered bytes plus checksum add to 0.
inline uint8_t checksum(const uint8_t *p, size_t n)
{
    uint8_t sum = 0;
    for (size_t i = 0; i < n; ++i) sum = static_cast<uint8_t>(sum + p[i]);
    return static_cast<uint8_t>(-sum);
}

}  // namespace rmcpp::wire
