// A decoder set up on a stream in memory, with a guarded row area and a dispatch to report to.
#pragma once

#include <cstring>
#include <memory>

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tests/code_stream.h"

struct CodecSetup {
    unsigned format = FORMAT_FAX_G4;
    unsigned width = 10;
    unsigned flags = 0;
    unsigned smallBuffer = 0;
    unsigned byteLimit = 0;
    std::vector<int> readScript = {};
};

inline constexpr size_t kRowAreaWords = 250000; // what one decoder call may write at most

struct CodecRun {
    CodecRun(const Bytes& stream, const CodecSetup& setup);
    ~CodecRun();
    CodecRun(const CodecRun&) = delete;
    CodecRun& operator=(const CodecRun&) = delete;

    // Sets the record up again, for another stream.
    void Restart(const Bytes& stream, const CodecSetup& setup);
    // Calls the line decoder of the format once.
    Rows Decode(unsigned lines);
    Rows DecodeG4(unsigned lines);
    int Probe();
    // The unread bit's place in the stream; holds while every read delivered its full count.
    size_t BitPosition() const;

    CCITTG34 record = {};
    std::unique_ptr<_LOADDISPATCH> dispatch = std::make_unique<_LOADDISPATCH>();
    std::unique_ptr<MemoryFile> file;
    std::vector<unsigned short> area;
    int setupStatus = 0;
};

bool IsG3(unsigned format);
