// An encoder beside its reference: every row goes through both, and the record must show what the
// reference expects after every call.
#pragma once

#include <memory>

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tests/pictures.h"

// The encoders once more, slow and obvious: the stream as text, the modes by T.6's definitions.
struct ReferenceEncoder {
    ReferenceEncoder(unsigned format, unsigned width, unsigned flags, unsigned kFactor);
    void Add(const Line& line);
    Bytes Finish();
    bool UsesG3() const; // the next row is EncodeG3's
    size_t Waiting() const { return bits.size() / 16 * 2 - written; }
    size_t Pending() const { return bits.size() % 16; }

    unsigned format, width, flags, kFactor;
    unsigned nextLineTag = 0;
    size_t flushThreshold, bufferSize;
    Line reference;
    Bits bits;                  // the whole stream
    size_t written = 0;         // bytes of it that left the buffer
    std::vector<size_t> writes; // and how
};

Bits Coded1D(const Line& line, unsigned width);
Bits Coded2D(const Line& reference, const Line& line, unsigned width);

// A whole stream as a saver makes it.
Bytes CodedPicture(const Picture& picture, unsigned width, unsigned format, unsigned flags = 0,
                   unsigned kFactor = 2);

struct EncoderRun {
    EncoderRun(unsigned format, unsigned width, unsigned flags = 0, int resolution = 0);
    ~EncoderRun();
    EncoderRun(const EncoderRun&) = delete;
    EncoderRun& operator=(const EncoderRun&) = delete;

    void Encode(const Bytes& row);
    Bytes Finish();                     // the stream
    Bytes Save(const Picture& picture); // all of it

    CCITTG34 record = {};
    std::unique_ptr<_SAVEDISPATCH> dispatch = std::make_unique<_SAVEDISPATCH>();
    _BITMAPHANDLE bitmap = {};
    MemoryFile file;
    ReferenceEncoder expected;
    int setupStatus;
};
