// What a format number says of a stream. Every number that is not one of the four G3 formats is G4.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

namespace faxx {

constexpr bool IsG3(uint32_t format) {
    return format == FORMAT_FAX_G3_1D || format == FORMAT_FAX_G3_2D || format == FORMAT_FAX_G3_2D_ALL2D ||
           format == FORMAT_FAX_G3_1D_NOEOL;
}

// One-dimensional rows without EOLs, each of which begins on a byte boundary.
constexpr bool RowsBeginOnBytes(uint32_t format) {
    return format == FORMAT_FAX_G3_1D_NOEOL;
}

// The stream begins with an EOL, and one follows each one-dimensional line.
constexpr bool HasEols(uint32_t format) {
    return IsG3(format) && !RowsBeginOnBytes(format);
}

// EOLs are followed by a tag bit: 1, the next line is one-dimensional (T.4 § 4.2.2).
constexpr bool HasTagBits(uint32_t format) {
    return format == FORMAT_FAX_G3_2D || format == FORMAT_FAX_G3_2D_ALL2D;
}

// All lines from the second on are two-dimensional, and from the third on there are no EOLs between them.
constexpr bool HasTwoDimensionalTail(uint32_t format) {
    return format == FORMAT_FAX_G3_2D_ALL2D;
}

// Groups of KFactor lines, the first one-dimensional, the others two-dimensional (T.4 § 4.2.1).
constexpr bool HasLineGroups(uint32_t format) {
    return format == FORMAT_FAX_G3_2D;
}

} // namespace faxx
