// What stands between a file name and a description: is there a file that can be read, and what is it.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/file_handle.h"
#include "tools/kfax/base/memory_budget.h"

#include <cstdint>
#include <string>

namespace kfax {

// Opens a regular file for reading; null, with errno, for what is none: a pipe that nobody writes to would be
// waited for.
FileHandle OpenInput(const std::string& file);

// The file's size. Throws std::runtime_error with the reason when it is not a readable regular file.
uint64_t CheckInput(const std::string& file);

// Describes a file that describes itself; throws std::runtime_error with the reason otherwise.
standin::Description DescribeInput(const standin::Filter& filter, const std::string& file);

// Throws where the picture has no pixels, or takes more memory than kfax is to use.
void CheckPictureSize(unsigned width, int height);

// The same, and asks for the memory of the picture and its output.
void ReservePicture(MemoryShare& memory, unsigned width, int height);

// A stored picture's LOADINFO_ bits for an orientation as in TIFF, 1 to 8; any other value counts as 1.
uint32_t OrientationFlag(int orientation);

} // namespace kfax
