// What is wrong with which lines of a coded stream.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/standin/standin.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kfax {

// In memory, or a part of a file.
struct CodedStream {
    unsigned char* Bytes = nullptr; // only read; null: in File, from Offset on
    uint64_t Size = 0;
    int Format = FORMAT_FAX_G4;
    uint32_t Width = 0;
    uint32_t Lines = 0;
    bool Reversed = false; // the first bit is a byte's least significant
    std::string File{};
    uint64_t Offset = 0;
};

enum class LineFault {
    InvalidData,
    OtherWidth, // than the stream's
    EndsShort,  // of the right edge
    NoLineEnd,  // behind the right edge
    DataEnds,   // in the first of the lines
    DataLeft,   // behind the last line
};
const char* FaultText(LineFault fault); // "invalid codes"

struct FaultyLines {
    LineFault Fault = LineFault::InvalidData;
    uint32_t First = 0; // from 0
    uint32_t Last = 0;
    bool Missing = false; // nothing came from the decoder any more
};

// Decodes a stream line by line and appends what is wrong to faults, in the order of the lines, a line at
// most once. Returns the filter's status; ERROR_FILE_FORMAT where it has no codec to ask.
int InspectLines(const standin::Filter& filter, const CodedStream& stream, std::vector<FaultyLines>& faults);

// Drops what is wrong below the first count rows of a picture: nobody loses these. Data that is left over
// stays: it tells that there are more lines than there should be, wherever these came in.
void KeepRowsOfImage(std::vector<FaultyLines>& faults, uint32_t count);

} // namespace kfax
