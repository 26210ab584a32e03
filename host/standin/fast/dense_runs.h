// Rows with a change every few pixels, as in dithered pictures, expanded eight runs at a time. Needs
// HasAvx2AndBmi2 (processor.h).
#pragma once

#include <cstddef>

namespace standin {

// Adds the runs' black pixels to a cleared packed row of width pixels, as long as 64 pixels of the row and
// eight runs remain. Returns how many runs were done, a multiple of eight, and the column behind them in *x.
size_t AddDenseRuns(const unsigned short* runs, size_t count, unsigned char* packed, size_t width, size_t* x);

} // namespace standin
