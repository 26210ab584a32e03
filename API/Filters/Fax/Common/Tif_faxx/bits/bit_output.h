// The output path of all encoders: codes are gathered in an accumulator and stored in the record's buffer,
// which is written to the handle between lines.
//
// The stream leaves in 16-bit words, high byte first: between lines the buffer holds whole words, BitCount
// says how many bits the word in progress still takes (1..16), and BitAccumulator holds the last 16 bits put,
// in its upper half. Within a line the words are stored two at a time.
//
// There is no test for room per code: FlushIfFull keeps the room that a line may take.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"

#include <cstring>

namespace faxx {

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

// Appends a tag bit between lines, on the record itself: for one bit there is no need of a BitOutput.
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
    void PutBits(uint32_t bits, unsigned length) {
        bits_ = bits_ << length | bits;
        pending_ += length;
        if (pending_ >= 32) {
            pending_ -= 32;
            const uint32_t words = __builtin_bswap32(static_cast<uint32_t>(bits_ >> pending_));
            std::memcpy(next_, &words, sizeof words);
            next_ += sizeof words;
        }
    }

    void PutBits(CodeWord code) { PutBits(code.bits, code.length); }

    // Appends 0 to 15 zero bits.
    void PutFill(unsigned count) { PutBits(0, count); }

    void PutEol() { PutBits(kEol); }

    // Appends an EOL that ends on a byte boundary, behind up to 7 zero bits.
    void PutAlignedEol() { PutBits(kEol.bits, (BitsFree() + 4) % 8 + kEol.length); }

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

} // namespace faxx
