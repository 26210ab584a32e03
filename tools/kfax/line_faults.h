// What is wrong with which lines of a coded stream.
#pragma once

#include "host/standin/standin.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kfax {

struct CodedStream {
    unsigned char* Bytes = nullptr; // only read
    size_t Size = 0;
    int Format = 68;
    uint32_t Width = 0;
    uint32_t Lines = 0;
    bool Reversed = false; // the first bit is a byte's least significant
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
    LineFault Fault;
    uint32_t First, Last; // from 0
};

// Decodes a stream line by line and appends what is wrong to faults, in the order of the lines, a line at
// most once. Returns the filter's status; ERROR_FILE_FORMAT where it has no codec to ask.
int InspectLines(const standin::Filter& filter, const CodedStream& stream, std::vector<FaultyLines>& faults);

// Drops what is wrong below the first count rows of a picture: nobody loses these. Data that is left over
// stays: it tells that there are more lines than there should be, wherever these came in.
void KeepRowsOfImage(std::vector<FaultyLines>& faults, uint32_t count);

} // namespace kfax
