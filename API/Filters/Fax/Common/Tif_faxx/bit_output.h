// The output path of all encoders: codes are gathered in an accumulator and stored in the record's buffer,
// which is written to the handle between lines.
//
// The stream leaves in 16-bit words, high byte first: between lines the buffer holds whole words, BitCount
// says how many bits the word in progress still takes (1..16), and BitAccumulator holds the last 16 bits put,
// in its upper half. Within a line the words are stored two at a time.
//
// There is no test for room per code: FlushIfFull keeps a line's worth (kBitsPerPixelPair) free.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode_tables.h"

#include <cstring>

namespace faxx {

inline constexpr unsigned WRITE_STATUS_SHORT = 3;

// Bytes that a line of this width may take, with the fill, EOL and tag around it.
constexpr uint32_t LineEstimate(uint32_t width) {
    // The dearest pair is a horizontal mode of two runs of one pixel: 3 + 6 + 3 bits.
    constexpr uint32_t kBitsPerPixelPair = 13;
    return (kBitsPerPixelPair * ((width + 1) / 2) + 20 + 15) / 8 + 2;
}

constexpr uint32_t OutputBufferSize(uint32_t width) {
    constexpr uint32_t kSmallest = 200000;
    const uint32_t size = 3 * LineEstimate(width);
    return size > kSmallest ? size : kSmallest;
}

// Writes the buffer out. A short write is recorded in WriteStatus; the bytes are dropped either way.
void FlushBuffer(CCITTG34* record);

// Called at the start of every line, with the bit state in the record.
inline void FlushIfFull(CCITTG34* record) {
    if (record->BufferCount > record->FlushThreshold) {
        FlushBuffer(record);
        record->BufferCount = 0;
    }
}

// Stores the lowest 16 bits as the stream has them. Returns where the next go.
inline uint8_t* StoreWord(uint8_t* at, uint64_t bits) {
    const uint16_t word = __builtin_bswap16(static_cast<uint16_t>(bits));
    std::memcpy(at, &word, sizeof word);
    return at + sizeof word;
}

// Appends a bit between lines: a tag is not worth taking the bit state out of the record and back.
inline void PutBit(CCITTG34* record, uint32_t bit) {
    const uint32_t last = record->BitAccumulator >> 16 << 1 | bit;
    record->BitAccumulator = last << 16;
    if (--record->BitCount == 0) {
        const uint8_t* const next = StoreWord(record->Buffer + record->BufferCount, last);
        record->BufferCount = static_cast<uint32_t>(next - record->Buffer);
        record->BitCount = 16;
    }
}

// The bit state of an encoding record, held in locals while a line is coded.
class BitOutput {
public:
    explicit BitOutput(CCITTG34* record)
        : record_(record), bits_(record->BitAccumulator >> 16),
          pending_(static_cast<unsigned>(16 - record->BitCount)),
          next_(record->Buffer + record->BufferCount) {}

    // Appends up to 32 bits, given right-aligned.
    void Put(uint32_t bits, unsigned length) {
        bits_ = bits_ << length | bits;
        pending_ += length;
        if (pending_ >= 32) {
            pending_ -= 32;
            const uint32_t words = __builtin_bswap32(static_cast<uint32_t>(bits_ >> pending_));
            std::memcpy(next_, &words, sizeof words);
            next_ += sizeof words;
        }
    }

    void Put(CodeWord code) { Put(code.bits, code.length); }

    // Appends a code as the tables hold it.
    void PutBits(uint32_t entry) { Put(UnpackCode(entry)); }

    // Appends 0 to 15 zero bits.
    void PutFill(unsigned count) { Put(0, count); }

    void PutEol() { Put(kEol); }

    // Appends an EOL that ends on a byte boundary, behind up to 7 zero bits.
    void PutAlignedEol() { Put(kEol.bits, (BitsFree() + 4) % 8 + kEol.length); }

    // Bits that the 16-bit word in progress still takes, 1 to 16.
    unsigned BitsFree() const { return 16 - pending_ % 16; }

    // Leaves the bit state in the record.
    void Store() {
        if (pending_ >= 16) {
            pending_ -= 16;
            next_ = StoreWord(next_, bits_ >> pending_);
        }
        record_->BitAccumulator = static_cast<uint32_t>(bits_ << 16);
        record_->BitCount = static_cast<int32_t>(16 - pending_);
        record_->BufferCount = static_cast<uint32_t>(next_ - record_->Buffer);
    }

private:
    CCITTG34* record_;
    uint64_t bits_;    // right-aligned; the lowest pending_ of them are not stored yet
    unsigned pending_; // below 32
    uint8_t* next_;
};

// Writes the code of one run (T.4 § 4.1.2), with the bits in front of it, up to 3: as many 2560 make-up codes
// as fit, a make-up code for the rest if it has 64 pixels or more, and always one terminating code.
template <Colour colour>
inline void PutRun(BitOutput& output, uint32_t run, CodeWord front = {0, 0}) {
    while (run >= kLongestCodeRun)
        [[unlikely]] {
            output.Put(front);
            output.PutBits(kLongestRunCode);
            front = {0, 0};
            run -= kLongestCodeRun;
        }
    output.Put(Joined(Joined(front, kMakeupWords<colour>[run / 64]), kTermWords<colour>[run % 64]));
}

// Writes a run and the one after it. Two short ones go out at once, with the bits in front of them, up to 3.
template <Colour first>
inline void PutRunPair(BitOutput& output, uint32_t run, uint32_t nextRun, CodeWord front = {0, 0}) {
    if ((run | nextRun) < kTerminatingCodes) {
        output.Put(Joined(Joined(front, kTermWords<first>[run]), kTermWords<Opposite(first)>[nextRun]));
        return;
    }
    PutRun<first>(output, run, front);
    PutRun<Opposite(first)>(output, nextRun);
}

} // namespace faxx
