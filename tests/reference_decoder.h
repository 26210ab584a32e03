// The decoders once more, slow and obvious: bit by bit, lists as vectors, nothing shared with the codec.
// The codec must agree with it on every stream, whole or damaged.
#pragma once

#include <cstdint>

#include "tests/codec_run.h"

struct ReferenceDecoder {
    ReferenceDecoder(Bytes stream, const CodecSetup& setup);
    Rows Decode(unsigned lines); // one call of the line decoder of the format
    int Probe();

    // Input, as the refill sees it.
    Bytes stream;
    CodecSetup setup;
    size_t streamPosition = 0, reads = 0;
    Bytes held; // bytes in the input buffer
    size_t readPosition = 0;
    size_t threshold = 0;
    size_t bytesRead = 0;
    Bytes loaded;        // every byte that entered the accumulator
    size_t position = 0; // of the next unread bit in it

    // The rest of the record.
    uint32_t nextLineTag = 0x80000000u;
    uint32_t width = 0;
    int decodeStatus = 0;
    int dispatchStatus = 0;
    std::vector<int64_t> reference = {0, 0, 0}; // change lists: distances from the right edge
    std::vector<int64_t> coding;

    uint32_t Accumulator() const;
    int BitCount() const { return 16 - static_cast<int>(position % 16); }
};
