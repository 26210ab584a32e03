// The bit input of the fast decoders: a 64-bit window loaded at bit positions, with no pairs, no refill of
// the buffer and no test for the end of the input. It is valid while the position stays below the point where
// the plain input (bit_input.h) would refill: for a full buffer that is kept by a margin, for one that holds
// all the rest of the input by the zeros behind it.
//
// The bit state in the record is a function of the position alone, so that a fast decoder can begin wherever
// the plain one stands and leave off wherever it likes.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"

#include <algorithm>

namespace faxx {

// More than is consumed between two tests of the position: a window, and the codes of another.
inline constexpr int64_t kFastMargin = 128;

// Where a fast decoder must stop, in bits from the start of the buffer.
inline int64_t FastEnd(const BitInput& input, const CCITTG34* record) {
    // Nothing but zero bits follows the data. Every code has a 1 and fewer than eight zeros behind its last
    // one, so that no code carries the position further than those eight bits past the data that are there
    // before a refill; and what is looked up behind them is not a code.
    if (record->RefillThreshold == record->BytesInBuffer + 2)
        return (int64_t{record->BytesInBuffer} + 8) * 8;
    return input.PositionLimit() - kFastMargin;
}

// The index, in a register of its own. A field that the next iteration waits for is addressed through it and
// not through the address that the other fields of the entry share: it is loaded a cycle sooner.
inline uint64_t SeparateAddress(uint64_t index) {
    asm("" : "+r"(index));
    return index;
}

struct FastBits {
    static constexpr unsigned kRefilled = 56; // bits that are there after Refill, at least

    const uint8_t* const buffer;
    const uint8_t* const endByte;      // positions before it are inside
    const uint8_t* nextByte = nullptr; // the bits from here on are not counted in left
    uint64_t window = 0;               // the next bits, the first of them on top
    unsigned left = 0;                 // how many of them count, in its low six bits

    FastBits(const uint8_t* data, uint64_t position, uint64_t end) : buffer(data), endByte(data + end / 8) {
        MoveTo(position);
    }

    bool Inside() const { return nextByte < endByte; }

    uint64_t Position() const { return static_cast<uint64_t>(nextByte - buffer) * 8 - left % 64; }

    uint64_t Top(unsigned count) const { return window >> (64 - count); }

    // The low six bits of count are what counts.
    void Consume(unsigned count) {
        window <<= count % 64;
        left -= count;
    }

    void MoveTo(uint64_t position) {
        window = WindowAt(buffer, position);
        nextByte = buffer + position / 8 + 7;
        left = 56 - position % 8;
    }

    // The window holds bits behind those that count; they come in once more, and are the same.
    void Refill() {
        uint64_t bytes;
        std::memcpy(&bytes, nextByte, sizeof bytes);
        window |= __builtin_bswap64(bytes) >> left % 64;
        nextByte += ~left % 64 / 8;
        left |= kRefilled;
    }
};

// The same for one that writes at most an entry a bit and has room for so many.
inline int64_t FastEnd(const BitInput& input, const CCITTG34* record, uint32_t room) {
    return std::min(FastEnd(input, record), input.Position() + int64_t{room} - kFastMargin);
}

} // namespace faxx
