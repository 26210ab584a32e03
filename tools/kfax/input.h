// What stands between a file name and a description: is there a file that can be read, and what is it.
#pragma once

#include "host/standin/standin.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace kfax {

struct CloseInput {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using InputFile = std::unique_ptr<std::FILE, CloseInput>;

// Opens a regular file for reading; null, with errno, for what is none: a pipe that nobody writes to would be
// waited for.
InputFile OpenInput(const std::string& file);

// The file's size. Throws std::runtime_error with the reason when it is not a readable regular file.
uint64_t CheckInput(const std::string& file);

// Describes a file that describes itself; throws std::runtime_error with the reason otherwise.
standin::Description DescribeInput(const standin::Filter& filter, const std::string& file);

// Throws where the picture has no pixels, or would fill the machine's memory.
void CheckPictureSize(unsigned width, int height);

// A stored picture's LOADINFO_ bits for an orientation as in TIFF, 1 to 8; any other value counts as 1.
uint32_t OrientationFlag(int orientation);

} // namespace kfax
