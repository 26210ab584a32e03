// A black-and-white picture as a person sees it.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/memory_budget.h"

#include <cstddef>
#include <cstdint>
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
// Makes pixels square by repeating rows, or joining some where they lie closer than the columns: a joined row
// is black where one of its rows is. A picture of no known resolution stays as it is. Asks for the memory.
void MakeSquare(Picture& picture, MemoryShare& memory);

// A white bitmap for a picture of that size, whose set bits are white; throws where the filter cannot save
// such a size or memory ends.
standin::BitmapPtr MakePictureBitmap(uint64_t width, uint64_t height);

} // namespace kfax
