// Two-dimensional lines, as the G3 decoder calls for them.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

namespace faxx {

// Decodes up to output.linesLeft (at least 1) two-dimensional lines and returns how many rows were written.
// The first line is begun whatever the budget, every later one only while a full row fits into it.
// referenceEntries: at least as many as the reference line has, where that is known.
unsigned DecodeG4Lines(CCITTG34* record, RowOutput& output, uint32_t referenceEntries);

inline constexpr uint32_t kEntriesUnknown = UINT32_MAX;

} // namespace faxx
