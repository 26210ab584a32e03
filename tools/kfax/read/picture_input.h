// Reading a picture to be saved as fax.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/memory_budget.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace kfax {

// Whether the file is one that ReadPicture reads, by its first bytes; false where it cannot be read.
bool IsPicture(const std::string& name);

// Reads a PNG or PBM picture, told apart by their first bytes, into a bitmap whose set bits are white
// (the inverted palette), as is usual for pictures that are not fax.
// A picture with pixels that are neither black nor white is refused, unless threshold tells which grey
// values, those below it, are black. What it takes is added to memory. Throws std::runtime_error with the
// reason.
standin::BitmapPtr ReadPicture(const std::string& name, std::optional<int> threshold, MemoryShare& memory);

// The two kinds of file, from their first byte on.
standin::BitmapPtr ReadPng(std::FILE* file, std::optional<int> threshold, MemoryShare& memory);
standin::BitmapPtr ReadPbm(std::FILE* file, MemoryShare& memory);

// MakePictureBitmap, which asks for the memory first.
standin::BitmapPtr MakeReservedBitmap(uint64_t width, uint64_t height, MemoryShare& memory);

} // namespace kfax
