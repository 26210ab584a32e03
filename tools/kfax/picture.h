// A black-and-white picture as a person sees it, and the files it can be written to.
#pragma once

#include "host/standin/standin.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace kfax {

// Packed rows of RowBytes bytes, first pixel in the most significant bit, a set bit is black, padding 0.
struct Picture {
    size_t Width = 0;
    size_t Height = 0;
    size_t RowBytes = 0;
    std::vector<uint8_t> Pixels;
    int XResolution = 0; // dots per inch, 0 = not known
    int YResolution = 0;
};

// The bitmap's picture in black and white by its palette, turned upright by its orientation.
Picture UprightPicture(const _BITMAPHANDLE& bitmap);
// The other way: a bitmap whose set bits are white, for the savers.
standin::BitmapPtr BitmapOfPicture(const Picture& picture);
void Invert(Picture& picture);
void MirrorRows(Picture& picture);

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
