// From packed rows to change lists.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

namespace faxx {

// Lists the changing elements of a packed row of record->Width pixels (1 = black) in CodingLine, closed by
// three zeros. Reads the row's (Width + 7) / 8 bytes and ignores the bits beyond Width.
void ListChanges(CCITTG34* record, const uint8_t* row);

// The two forms that ListChanges chooses from when it is first called; the second asks for HasBitCounting.
void ListChangesAnywhere(CCITTG34* record, const uint8_t* row);
void ListChangesWithInstruction(CCITTG34* record, const uint8_t* row);
bool HasBitCounting();

} // namespace faxx
