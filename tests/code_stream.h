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

inline const Bits EOL = "000000000001";
inline const Bits EOFB = EOL + EOL;
inline const Bits V0 = "1", VR1 = "011", VR2 = "000011", VR3 = "0000011";
inline const Bits VL1 = "010", VL2 = "000010", VL3 = "0000010";
inline const Bits HORIZONTAL = "001", PASS = "0001", UNCOMPRESSED = "0000001111";

struct RunCode {
    unsigned run;
    Bits bits;
};
// The 104 codes of a colour: 0..63, 64..1728, 1792..2560.
const std::vector<RunCode>& runCodes(bool black);

Bits runBits(bool black, unsigned run);               // make-up codes and the terminating one
Bits line1D(const std::vector<unsigned>& runs);       // alternately white and black
Bits horizontal(unsigned white, unsigned black);      // a pair that begins white
Bits horizontalBlack(unsigned black, unsigned white); // a pair that begins black
Bits repeated(const Bits& bits, size_t times);
Bits alignedToByte(Bits bits);

// The last byte is filled with zeros. reversed: least significant bit first.
Bytes packed(std::string_view bits, bool reversed = false);

// A run-length row as its runs, and rows written "2 3 5|0 10".
using Row = std::vector<unsigned>;
using Rows = std::vector<Row>;
Rows rowsFromText(std::string_view text);
Rows rowsFromWords(const unsigned short* words, size_t rowCount);
size_t wordsOf(const Rows& rows);

// Random codes of the formats, right and wrong, dense enough to reach every branch of a decoder.
// twoDimensional: chances of mode codes rather than run pairs and EOLs.
Bits randomCodes(std::mt19937& random, unsigned format, unsigned width, size_t bits);
