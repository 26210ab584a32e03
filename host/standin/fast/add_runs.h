// Adding black runs to a packed row, many bytes at a time.
#pragma once

#include <cstddef>

namespace standin {

// How far a row is done.
struct RowPosition {
    const unsigned short* Run; // the next run, a white one
    size_t Column;             // where it begins
};

// Adds the black ones of the runs to a cleared packed row, and stops where fewer than 64 pixels of the row
// are left behind a run or one run is left. The caller adds the rest.
RowPosition AddMostRuns(const unsigned short* runs, const unsigned short* end, unsigned char* packed,
                        size_t width);

} // namespace standin
