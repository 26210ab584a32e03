#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"

namespace faxx {
namespace {

constexpr RunPairTable BuildPairs(Colour firstColour) {
    RunPairTable table{};
    for (uint32_t first = 0; first < kTerminatingCodes; ++first) {
        const CodeWord firstCode = RunCode(firstColour, first);
        for (uint32_t second = 0; second < kTerminatingCodes; ++second) {
            const CodeWord secondCode = RunCode(Opposite(firstColour), second);
            const uint32_t bits = firstCode.length + secondCode.length;
            if (bits > kPairIndexBits)
                continue;
            const uint32_t spare = kPairIndexBits - bits;
            const uint32_t index = (firstCode.bits << secondCode.length | secondCode.bits) << spare;
            for (uint32_t i = 0; i < 1u << spare; ++i)
                table[index + i] = bits << 16 | second << 8 | first;
        }
    }
    return table;
}

} // namespace

constexpr std::array<RunPairTable, 2> kRunPairs = {BuildPairs(Colour::White), BuildPairs(Colour::Black)};

} // namespace faxx
