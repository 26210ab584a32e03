// The choice of a record's line encoder.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"

namespace faxx {

using LineEncoder = void(CCITTG34* record, unsigned char* row);

inline LineEncoder* LineEncoderFor(uint32_t format) {
    return IsG3(format) ? EncodeG3 : EncodeG4;
}

// After a row: the lines of a stream without further EOLs are the G4 encoder's from the third on.
inline LineEncoder* NextLineEncoder(const CCITTG34* record, LineEncoder* encode) {
    return HasTwoDimensionalTail(record->Format) && record->NextLineTag > 1 ? EncodeG4 : encode;
}

} // namespace faxx
