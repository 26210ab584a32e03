#include "API/Filters/Fax/Common/Tif_faxx/codes/decode_tables.h"

#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"

#include <algorithm>

namespace faxx {
namespace {

// Enters each code word at every index that begins with it.
template <unsigned IndexBits>
constexpr auto BuildTable(Colour colour) {
    std::array<uint16_t, 1 << IndexBits> table{};
    table.fill(kNoCode);
    ForEachCodedRun([&](uint32_t run) {
        const CodeWord code = RunCode(colour, run);
        const uint32_t spare = IndexBits - code.length;
        const auto first = table.begin() + (code.bits << spare);
        std::fill(first, first + (1 << spare), static_cast<uint16_t>(code.length << 12 | run));
    });
    return table;
}

} // namespace

constexpr std::array<uint16_t, 1 << kWhiteIndexBits> WhiteDecodeTable =
    BuildTable<kWhiteIndexBits>(Colour::White);
constexpr std::array<uint16_t, 1 << kBlackIndexBits> BlackDecodeTable =
    BuildTable<kBlackIndexBits>(Colour::Black);

// The codes fill the tables but for the indices that begin with eight zero bits.
static_assert(std::count(WhiteDecodeTable.begin(), WhiteDecodeTable.end(), kNoCode) == 16);
static_assert(std::count(BlackDecodeTable.begin(), BlackDecodeTable.end(), kNoCode) == 32);
static_assert(WhiteDecodeTable[0x00F] == kNoCode && BlackDecodeTable[0x001F] == kNoCode);

} // namespace faxx
