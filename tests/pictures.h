// Pictures to code, and lines as their changing elements.
#pragma once

#include <cstdint>
#include <random>

#include "tests/code_stream.h"

using Picture = std::vector<Bytes>; // packed rows, 1 is black
using Line = std::vector<uint32_t>; // columns of the changes, the first one to black

// Bits beyond the width are set at random in every kind.
enum PictureKind { ALL_WHITE, ALL_BLACK, ALTERNATING, PAIRS, NOISE, STEPS, PAGE, PICTURE_KINDS };
Picture makePicture(std::mt19937& random, int kind, unsigned width, size_t rows);
Picture pictureOf(unsigned width, size_t rows, int kind = PAGE); // always the same

Bytes joined(const Picture& rows);
Bytes packedRow(const Row& runs);
Line changesOf(const Bytes& row, unsigned width);
Line changesOf(const Row& runs); // joins the pieces of a long run
// The same lines, from whatever source.
std::vector<Line> linesOf(const Picture& picture, unsigned width);
std::vector<Line> linesOf(const Rows& rows);
