// Pictures to code, and lines as their changing elements.
#pragma once

#include <cstdint>
#include <random>

#include "tests/code_stream.h"

using Picture = std::vector<Bytes>; // packed rows, 1 is black
using Line = std::vector<uint32_t>; // columns of the changes, the first one to black

// Bits beyond the width are set at random in every kind.
enum PictureKind { ALL_WHITE, ALL_BLACK, ALTERNATING, PAIRS, NOISE, STEPS, PAGE, PICTURE_KINDS };
Picture MakePicture(std::mt19937& random, int kind, unsigned width, size_t rows);
Picture PictureOf(unsigned width, size_t rows, int kind = PAGE); // always the same

Bytes Joined(const Picture& rows);
Bytes PackedRow(const Row& runs);
Line ChangesOf(const Bytes& row, unsigned width);
Line ChangesOf(const Row& runs); // joins the pieces of a long run
// The same lines, from whatever source.
std::vector<Line> LinesOf(const Picture& picture, unsigned width);
std::vector<Line> LinesOf(const Rows& rows);
