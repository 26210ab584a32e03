// The input path of all decoders: the stream's next bits, from a byte buffer that is refilled from the
// handle.
//
// Bits pass through a 32-bit accumulator that takes bytes in pairs: its top 16 + count bits are valid, so
// at least 17 can be looked at before any step. A pair enters as soon as count would fall to 0, not when
// its bits are needed; that moment decides when the end of the input is noticed. The buffer's zero tail
// lets the decoders run a few bytes past the data without a test per code.
//
// The bit state in the record (BitAccumulator, BitCount, ReadPosition) is a function of the position in
// the stream alone: count is 16 - position mod 16, and the accumulator holds the 16 + count bits from the
// position on.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

#include <bit>
#include <cstring>

namespace faxx {

// Called when position has passed the refill threshold: moves the unread bytes to the front of the buffer
// and fills up behind them. False: neither unread bytes nor new data, the input is exhausted. Otherwise
// reading goes on at position 0.
bool RefillBuffer(CCITTG34* record, uint32_t position);

// Reads the start of the stream into an empty buffer. False: there is nothing to read. oldEnd: bytes up to
// there may hold former data and are cleared.
bool FillEmptyBuffer(CCITTG34* record, uint32_t oldEnd);

inline constexpr unsigned kWindowBits = 57;

// The 64 bits that begin on the byte of a position, the position's own first: kWindowBits of them at least.
inline uint64_t WindowAt(const uint8_t* buffer, uint64_t position) {
    uint64_t window;
    std::memcpy(&window, buffer + position / 8, sizeof window);
    return __builtin_bswap64(window) << position % 8;
}

// What the accumulator holds at a position: the bits up to the end of the pair after the next pair boundary.
inline uint32_t AccumulatorAt(const uint8_t* buffer, uint64_t position) {
    uint32_t pairs;
    std::memcpy(&pairs, buffer + position / 16 * 2, sizeof pairs);
    return __builtin_bswap32(pairs) << position % 16;
}

// The bit state of a record, held in locals while a decoder works. Every step that consumes bits returns
// false when it found the input exhausted; nothing can be read after that.
class BitInput {
public:
    explicit BitInput(CCITTG34* record)
        : record_(record), accumulator_(record->BitAccumulator), count_(record->BitCount),
          position_(record->ReadPosition) {}

    // The next bits, the first of them in bit 31; at least 17 are valid.
    uint32_t Window() const { return accumulator_; }
    uint32_t Top(unsigned bits) const { return accumulator_ >> (32 - bits); }

    // Consumes 1 to 16 bits.
    bool Consume(unsigned bits) {
        accumulator_ <<= bits;
        count_ -= static_cast<int32_t>(bits);
        if (count_ > 0) [[likely]]
            return true;
        if (position_ > record_->RefillThreshold) [[unlikely]] {
            if (!RefillBuffer(record_, position_))
                return false;
            position_ = 0;
        }
        const uint8_t* pair = record_->Buffer + position_;
        accumulator_ |= (uint32_t{pair[0]} << 8 | pair[1]) << -count_;
        count_ += 16;
        position_ += 2;
        return true;
    }

    // Consumes what is left of the current byte, nothing on a byte boundary.
    bool AlignToByte() {
        const unsigned rest = static_cast<unsigned>(count_) % 8;
        return rest == 0 || Consume(rest);
    }

    // Consumes the zero bits up to the next 1 bit, and that bit.
    bool SkipZerosAndOne() {
        for (;;) {
            const int zeros = std::countl_zero(accumulator_);
            if (zeros < count_)
                return Consume(static_cast<unsigned>(zeros) + 1);
            if (!Consume(static_cast<unsigned>(count_)))
                return false;
        }
    }

    // The position in bits from the start of the buffer; below 0 for a few bits after a refill.
    int64_t Position() const { return int64_t{position_} * 8 - 16 - count_; }

    // Positions below this one are reached without a refill: the pair that position stands in, and the one
    // after it, begin at or before the threshold.
    int64_t PositionLimit() const { return int64_t{record_->RefillThreshold} / 2 * 16; }

    // Goes to a position of the same buffer contents, one that needs no refill on the way.
    void MoveTo(uint64_t position) {
        count_ = 16 - static_cast<int32_t>(position % 16);
        position_ = static_cast<uint32_t>(position / 16 * 2 + 4);
        accumulator_ = AccumulatorAt(record_->Buffer, position);
    }

    // Leaves the bit state in the record, for the next decoder call.
    void Store() const {
        record_->BitAccumulator = accumulator_;
        record_->BitCount = count_;
        record_->ReadPosition = position_;
    }

    // The same at the end of the input, where only a positive BitCount and the status mean anything.
    void StoreExhausted() const {
        record_->BitAccumulator = accumulator_;
        record_->BitCount = count_ > 0 ? count_ : 1;
        record_->ReadPosition = 0;
        record_->DecodeStatus = DECODE_STATUS_NO_DATA;
    }

private:
    CCITTG34* record_;
    uint32_t accumulator_;
    int32_t count_;
    uint32_t position_;
};

} // namespace faxx
