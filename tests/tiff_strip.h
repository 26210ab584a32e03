// Strips of a TIFF file in memory, coded and decoded by libtiff.
#pragma once

#include <optional>

#include "tests/pictures.h"

// How libtiff codes one of our formats. options: of TIFFTAG_GROUP3OPTIONS.
struct TiffCoding {
    unsigned format; // 66, 67, 68 or 162
    uint32_t options = 0;
};
inline constexpr uint32_t kTiffFillBits = 4;

// The strips that libtiff makes of a picture.
std::vector<Bytes> CodedByLibtiff(const Picture& picture, unsigned width, TiffCoding coding, bool reversed,
                                  size_t stripRows);
// What libtiff makes of a stream; nothing when it complains.
std::optional<Picture> DecodedByLibtiff(const Bytes& stream, unsigned format, unsigned width, size_t rows,
                                        bool reversed);
