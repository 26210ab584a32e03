// What all users of a CCITTG34 record share.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/memory.h"

namespace faxx {

// NextLineTag of a decoder, where the next line is one-dimensional: negative.
inline constexpr int32_t kNextLineOneDimensional = INT32_MIN;

inline void FreeBuffers(CCITTG34* record) {
    Free(record->ReferenceLine);
    Free(record->CodingLine);
    Free(record->Buffer);
}

// Leaves a data error in the load's dispatch, if there is one.
inline void ReportDataError(CCITTG34* record, int status) {
    if (record->LoadDispatch)
        record->LoadDispatch->Status = status;
}

} // namespace faxx
