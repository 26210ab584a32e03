// Code streams for the tests, written as text: '0' and '1', blanks between them ignored.
//
// The code words are those of the T.4 tables, kept here on their own so that a wrong entry on either
// side shows.
#pragma once

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/trace_kernel.h"

using Bits = std::string;

inline const Bits kEol = "000000000001";
inline const Bits kEofb = kEol + kEol;
inline const Bits kV0 = "1", kVR1 = "011", kVR2 = "000011", kVR3 = "0000011";
inline const Bits kVL1 = "010", kVL2 = "000010", kVL3 = "0000010";
inline const Bits kHorizontal = "001", kPass = "0001", kUncompressed = "0000001111";

struct RunCode {
    unsigned run;
    Bits bits;
};
// The 104 codes of a colour: 0..63, 64..1728, 1792..2560.
const std::vector<RunCode>& RunCodes(bool black);

Bits RunBits(bool black, unsigned run);               // make-up codes and the terminating one
Bits Line1D(const std::vector<unsigned>& runs);       // alternately white and black
Bits Horizontal(unsigned white, unsigned black);      // a pair that begins white
Bits HorizontalBlack(unsigned black, unsigned white); // a pair that begins black
Bits Repeated(const Bits& bits, size_t times);
Bits AlignedToByte(Bits bits);

// The last byte is filled with zeros. reversed: least significant bit first.
Bytes Packed(std::string_view bits, bool reversed = false);

// A run-length row as its runs, and rows written "2 3 5|0 10".
using Row = std::vector<unsigned>;
using Rows = std::vector<Row>;
Rows RowsFromText(std::string_view text);
Rows RowsFromWords(const unsigned short* words, size_t rowCount);
size_t WordsOf(const Rows& rows);

// Random codes of the formats, right and wrong, dense enough to reach every branch of a decoder.
// twoDimensional: chances of mode codes rather than run pairs and EOLs.
Bits RandomCodes(std::mt19937& random, unsigned format, unsigned width, size_t bits);
