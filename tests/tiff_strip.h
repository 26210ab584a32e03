// A coded strip as the only one of a TIFF file, decoded by libtiff.
#pragma once

#include <cstdint>
#include <optional>

#include "tests/pictures.h"

// What libtiff makes of the stream; nothing when it complains. Formats 66, 67, 68 and 162.
std::optional<Picture> decodedByLibtiff(const Bytes& stream, unsigned format, unsigned width, size_t rows,
                                        bool reversed);
