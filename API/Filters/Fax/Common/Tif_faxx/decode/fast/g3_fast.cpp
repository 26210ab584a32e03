// The fast reader of one-dimensional lines.
//
// The plain decoder (g3_decode.cpp) defines what happens for every input. This reader takes up to two runs
// from one table entry (fast_runs.h) and leaves everything out of the ordinary to it.
//
// The state of the loop, in RunReader:
//   bits       the window and the position (fast_bits.h); one refill serves five table entries.
//   lookups    the part of the table for the colour that is due.
//   remaining  the distance of the position reached from the right edge, above 0 throughout.
//   next       where the next change is written; a line has room for as many as the bits up to bits.endByte.
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_fast.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/instruction_sets.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/fast_runs.h"

namespace faxx::g3 {
namespace {

constexpr unsigned kLookupsPerRefill = FastBits::kRefilled / kRunIndexBits;

constexpr int kLongestZeros = 40; // of an EOL with fill that are read from one window

// Moves position behind an EOL in front of a line, if there is one, and its tag bit.
[[gnu::always_inline]] inline void SkipEol(CCITTG34* record, int64_t* position) {
    const int zeros = std::countl_zero(WindowAt(record->Buffer, static_cast<uint64_t>(*position)));
    if (zeros < int{kEolZeros} || zeros > kLongestZeros)
        return;
    *position += zeros + 1;
    if (HasTagBits(record->Format)) {
        record->NextLineTag =
            static_cast<int32_t>(AccumulatorAt(record->Buffer, static_cast<uint64_t>(*position)));
        ++*position;
    }
}

struct RunReader {
    const bool edgeEndsLine;
    const bool rowsBeginOnBytes;
    FastBits bits;
    const RunLookup* lookups = RunLookupsFor(Colour::White);
    uint32_t remaining;
    uint32_t* next;
    bool complete = false;

    [[gnu::always_inline]] RunReader(const Line& line, Edge edge, uint64_t start, uint64_t end)
        : edgeEndsLine(edge == Edge::EndsLine), rowsBeginOnBytes(RowsBeginOnBytes(line.record->Format)),
          bits(line.record->Buffer, start, end), remaining(line.remaining),
          next(line.record->CodingLine + line.written) {}

    // The runs of a table entry. False where the line may end with them, or they are not in the table.
    [[gnu::always_inline]] bool ReadShortRuns() {
        const uint64_t index = bits.Top(kRunIndexBits);
        const RunLookup& found = lookups[index];
        const uint32_t length = lookups[SeparateAddress(index)].bits;
        if (remaining <= found.both) [[unlikely]]
            return false;
        next[0] = remaining - found.first;
        remaining -= found.both;
        next[1] = remaining;
        next += found.runs;
        lookups = kRunLookups.data() + found.after;
        bits.Consume(length);
        return true;
    }

    // A run of any length. False where the line is complete, or the run is for the plain decoder.
    [[gnu::always_inline]] bool ReadLongRun() {
        bits.Refill();
        const Colour colour = lookups == RunLookupsFor(Colour::White) ? Colour::White : Colour::Black;
        uint32_t run = 0;
        uint32_t used = 0;
        if (!ReadWindowRun(bits.window, colour, &run, &used))
            return false;
        const uint32_t afterRun = remaining - run;
        if (static_cast<int32_t>(afterRun) <= 0) {
            complete = edgeEndsLine && afterRun == 0 &&
                       (colour == Colour::Black || rowsBeginOnBytes ||
                        bits.window << used >> (64 - kEmptyBlackRun.length) != kEmptyBlackRun.bits);
            if (complete) {
                remaining = 0;
                bits.Consume(used);
            }
            return false;
        }
        *next++ = remaining = afterRun;
        lookups = RunLookupsFor(Opposite(colour));
        bits.Consume(used);
        return true;
    }

    [[gnu::always_inline]] void ReadAll() {
        while (bits.Inside()) {
            bits.Refill();
            unsigned left = kLookupsPerRefill;
            while (left != 0 && ReadShortRuns())
                --left;
            if (left != 0 && !ReadLongRun())
                return;
        }
    }
};

[[gnu::always_inline]] inline bool ReadRuns(Line& line, Edge edge) {
    int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record, line.limit - line.written);
    if (start < 0 || start >= end || line.remaining > kNoRun)
        return false;
    if (line.written == 0) {
        SkipEol(line.record, &start);
        if (line.record->NextLineTag >= 0) {
            line.input.MoveTo(static_cast<uint64_t>(start));
            return false;
        }
    }
    RunReader reader(line, edge, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    reader.ReadAll();
    line.written = static_cast<uint32_t>(reader.next - line.record->CodingLine);
    line.remaining = reader.remaining;
    line.input.MoveTo(reader.bits.Position());
    return reader.complete;
}

} // namespace

bool ReadRunsBaseline(Line& line, Edge edge) {
    return ReadRuns(line, edge);
}

FAXX_AVX2 bool ReadRunsAvx2(Line& line, Edge edge) {
    return ReadRuns(line, edge);
}

} // namespace faxx::g3
