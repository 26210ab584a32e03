// In place of the fast loops: none, so that the plain decoders do everything.
#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_blank.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

namespace faxx {

const CodecFunctions kFunctions{
    [](g3::Line&, g3::Edge) { return false; }, [](g4::Line&) { return g4::After::NextCode; },
    [](const uint32_t*, uint32_t, uint32_t, uint16_t*) { return 0U; }, nullptr, nullptr};

} // namespace faxx

namespace faxx::g3 {

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

uint32_t ReadBlankLines(Line&, uint32_t) {
    return 0;
}

} // namespace faxx::g4
