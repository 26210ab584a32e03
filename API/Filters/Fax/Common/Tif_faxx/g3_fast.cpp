// The plain decoder (g3_decode.cpp) defines what happens; this one reads two short runs from one look-up of a
// 64-bit window, and leaves everything out of the ordinary to it. As in g4_fast.cpp, the window is loaded at
// a bit position that stays below the plain decoder's next refill by more than one step consumes.
#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"
#include "API/Filters/Fax/Common/Tif_faxx/g3_line.h"

#include <algorithm>

namespace faxx::g3 {
namespace {

constexpr unsigned kWindowBits = 57;

// More than is consumed between two looks at the position: a window, and the codes of another.
constexpr int64_t kStepBits = 128;

constexpr unsigned kEolZeros = 8;      // no run code begins with so many
constexpr unsigned kLongestZeros = 40; // of an EOL with fill that are read from one window

} // namespace

bool ReadFast(Line& line, Edge edge) {
    // Every entry written has cost a bit: the line cannot reach its limit before this position.
    const int64_t start = line.input.Position();
    const int64_t roomBits = int64_t{line.limit} - line.written;
    const int64_t end = std::min(line.input.PositionLimit(), start + roomBits) - kStepBits;
    if (start < 0 || start >= end)
        return false;

    CCITTG34* const record = line.record;
    const uint8_t* const buffer = record->Buffer;
    const bool alignedRows = record->Format == FORMAT_FAX_G3_1D_NOEOL;
    uint32_t* const first = record->CodingLine;
    uint32_t* next = first + line.written;
    uint32_t remaining = line.remaining;
    uint64_t base = static_cast<uint64_t>(start); // position of the window
    uint64_t window = WindowAt(buffer, base);
    unsigned used = 0; // bits of the window
    bool complete = false;

    for (;;) {
        if (used <= kWindowBits - kPairIndexBits) [[likely]] {
            const uint32_t pair = kRunPairs[0][window >> (64 - kPairIndexBits)];
            const uint32_t white = remaining - (pair & 0xFF);
            const uint32_t black = white - (pair >> 8 & 0xFF);
            if (pair != 0 && static_cast<int32_t>(black) > 0) [[likely]] {
                next[0] = white;
                next[1] = black;
                next += 2;
                remaining = black;
                used += pair >> 16;
                window <<= pair >> 16;
                continue;
            }
        }

        if (used != 0) {
            base += used;
            used = 0;
            window = WindowAt(buffer, base);
        }
        if (static_cast<int64_t>(base) >= end)
            break;
        if (window >> (64 - kEolZeros) == 0) {
            const unsigned zeros = static_cast<unsigned>(std::countl_zero(window));
            if (next != first || zeros > kLongestZeros)
                break;
            base += zeros + 1;
            if (HasTagBits(record)) {
                record->NextLineTag = static_cast<int32_t>(AccumulatorAt(buffer, base));
                ++base;
                if (record->NextLineTag >= 0)
                    break;
            }
            window = WindowAt(buffer, base);
            continue;
        }

        uint32_t run = 0;
        uint32_t bits = 0;
        if (!ReadWindowRun(window, Colour::White, &run, &bits))
            break;
        const uint32_t white = remaining - run;
        if (static_cast<int32_t>(white) <= 0) {
            complete = edge == Edge::EndsLine && white == 0 &&
                       (alignedRows || window << bits >> (64 - kEmptyBlackRunBits) != kEmptyBlackRun);
            if (complete) {
                remaining = 0;
                used = bits;
            }
            break;
        }
        if (!ReadWindowRun(window, Colour::Black, &run, &bits))
            break;
        const uint32_t black = white - run;
        if (static_cast<int32_t>(black) <= 0) {
            complete = edge == Edge::EndsLine && black == 0;
            if (complete) {
                *next++ = white;
                remaining = 0;
                used = bits;
            }
            break;
        }
        next[0] = white;
        next[1] = black;
        next += 2;
        remaining = black;
        used = bits;
        window <<= bits;
    }

    line.written = static_cast<uint32_t>(next - first);
    line.remaining = remaining;
    line.input.MoveTo(base + used);
    return complete;
}

} // namespace faxx::g3
