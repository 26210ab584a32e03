// In place of the fast loops: none, so that the plain decoders do everything.
#include "API/Filters/Fax/Common/Tif_faxx/g3_blank.h"
#include "API/Filters/Fax/Common/Tif_faxx/g4_fast.h"

namespace faxx::g3 {

bool ReadFast(Line&, Edge) {
    return false;
}

BlankLineCode BlankLineOf(const CCITTG34* record) {
    return {.width = record->Width};
}

uint32_t ReadBlankLines(Line&, const BlankLineCode&, uint32_t) {
    return 0;
}

// 64 bits that no line of a test begins with.
constinit const std::array<uint64_t, kLongestCodeRun> kNarrowPairs = [] {
    std::array<uint64_t, kLongestCodeRun> pairs{};
    pairs.fill(0x9E37'79B9'7F4A'7C00);
    return pairs;
}();

unsigned DecodeOtherPair(CCITTG34* record, uint16_t* rows, unsigned lines, LineDecoder* otherwise) {
    return otherwise(record, rows, lines);
}

} // namespace faxx::g3

namespace faxx::g4 {

After DecodeFast(Line&) {
    return After::NextCode;
}

uint32_t ReadBlankLines(Line&, uint32_t) {
    return 0;
}

} // namespace faxx::g4
