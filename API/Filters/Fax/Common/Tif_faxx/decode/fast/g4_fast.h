// The fast reader of two-dimensional lines.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/decode/g4_line.h"

namespace faxx::g4 {

// Reads the mode codes that are ordinary and lie inside the input buffer. LineEnd: the line is complete.
// NextCode: the next code is for the plain decoder. The line and the bit position are as the plain decoder
// would have them there.
After ReadModesBaseline(Line& line);
After ReadModesAvx2(Line& line);

// At the start of a line below a blank one: reads the codes of further blank lines, most of them at the most.
// Returns how many.
uint32_t ReadBlankLines(Line& line, uint32_t most);

} // namespace faxx::g4
