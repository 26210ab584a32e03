// Pictures as files for other programs: PNG and PBM.
#pragma once

#include "tools/kfax/base/picture.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace kfax {

// A byte a pixel, 0 is black; rows follow one another.
struct GreyPicture {
    size_t Width = 0;
    size_t Height = 0;
    std::vector<uint8_t> Pixels;
};

// Write a whole picture file; throw std::runtime_error with the reason.
void WritePng(const Picture& picture, std::FILE* file);
void WritePng(const GreyPicture& picture, std::FILE* file);
void WritePbm(const Picture& picture, std::FILE* file);

} // namespace kfax
