// Repair of damaged lines.
#include "tools/kfax/read/repair.h"

#include <cstring>

namespace kfax {

namespace {

bool IsDecodedWrong(const FaultyLines& lines) {
    return !lines.Missing && lines.Fault != LineFault::DataLeft && lines.Fault != LineFault::DataEnds;
}

} // namespace

unsigned RepairLines(_BITMAPHANDLE& bitmap, const std::vector<BlockFaults>& faults) {
    const int white = standin::IsInverted(bitmap) ? 0xFF : 0;
    unsigned repaired = 0;
    for (const BlockFaults& block : faults) {
        const size_t columns = block.Columns != 0 ? block.Columns : bitmap.Width;
        const size_t firstByte = block.FirstColumn / 8; // tiles begin at multiples of 16 pixels
        const size_t bytes = (columns + 7) / 8;
        for (const FaultyLines& lines : block.Lines) {
            if (!IsDecodedWrong(lines))
                continue;
            for (uint32_t line = lines.First; line <= lines.Last; ++line) {
                const size_t row = size_t{block.FirstRow} + line;
                if (row >= static_cast<size_t>(bitmap.Height))
                    break;
                ++repaired;
                unsigned char* const bad = standin::BitmapRow(bitmap, row) + firstByte;
                if (row == 0)
                    std::memset(bad, white, bytes);
                else
                    std::memcpy(bad, standin::BitmapRow(bitmap, row - 1) + firstByte, bytes);
            }
        }
    }
    return repaired;
}

} // namespace kfax
