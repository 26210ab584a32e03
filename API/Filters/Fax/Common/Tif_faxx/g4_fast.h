// The mode loop of the G4 decoder for the inside of the input buffer and of a well-formed line.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/g4_line.h"

namespace faxx::g4 {

// Carries the line on as far as nothing out of the ordinary comes up, and leaves it, and the bit position,
// where the plain decoder would: LineEnd when the line is complete, NextCode when the next code is for the
// plain decoder (which may be all of them).
After DecodeFast(Line& line);

// Its two forms (instructions.h).
After DecodeFastAnywhere(Line& line);
After DecodeFastFaster(Line& line);

// At the start of a line below a blank one: how many blank lines, most at the most, the next bits code.
// Consumes them.
uint32_t ReadBlankLines(Line& line, uint32_t most);

} // namespace faxx::g4
