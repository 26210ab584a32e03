// The plain decoder (g3_decode.cpp) defines what happens; this one reads up to two runs from one look-up of
// a 64-bit window (fast_bits.h), and leaves everything out of the ordinary to it.
#include "API/Filters/Fax/Common/Tif_faxx/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"
#include "API/Filters/Fax/Common/Tif_faxx/g3_line.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

namespace faxx::g3 {
namespace {

constexpr unsigned kStepsInBlock = FastBits::kRefilled / kStepIndexBits;

constexpr int kEolZeros = 8;      // no run code begins with so many
constexpr int kLongestZeros = 40; // of an EOL with fill that are read from one window

[[gnu::always_inline]] inline bool Read(Line& line, Edge edge) {
    int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record, line.limit - line.written);
    if (start < 0 || start >= end || line.remaining > kNoStep)
        return false;

    CCITTG34* const record = line.record;
    const uint64_t window = WindowAt(record->Buffer, static_cast<uint64_t>(start));
    const int zeros = std::countl_zero(window);
    if (zeros >= kEolZeros && zeros <= kLongestZeros && line.written == 0) {
        // An EOL in front of the line.
        start += zeros + 1;
        if (HasTagBits(record)) {
            record->NextLineTag =
                static_cast<int32_t>(AccumulatorAt(record->Buffer, static_cast<uint64_t>(start)));
            ++start;
            if (record->NextLineTag >= 0) {
                line.input.MoveTo(static_cast<uint64_t>(start));
                return false;
            }
        }
    }

    const bool alignedRows = record->Format == FORMAT_FAX_G3_1D_NOEOL;
    uint32_t* const first = record->CodingLine;
    uint32_t* next = first + line.written;
    uint32_t remaining = line.remaining;
    const RunStep* steps = StepsFor(Colour::White);
    FastBits bits(record->Buffer, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    bool complete = false;

    while (bits.Inside()) {
        bits.Refill();
        unsigned stepsLeft = kStepsInBlock;
        do {
            const uint64_t index = bits.Top(kStepIndexBits);
            const RunStep& step = steps[index];
            const uint32_t stepBits = steps[Again(index)].bits;
            if (remaining <= step.both) [[unlikely]]
                break;
            next[0] = remaining - step.first;
            remaining -= step.both;
            next[1] = remaining;
            next += step.runs;
            steps = kRunSteps.data() + step.after;
            bits.Consume(stepBits);
        } while (--stepsLeft != 0);
        if (stepsLeft == 0)
            continue;

        // The end of the line, or a code longer than the tables'. One run, then.
        bits.Refill();
        const Colour colour = steps == StepsFor(Colour::White) ? Colour::White : Colour::Black;
        uint32_t run = 0;
        uint32_t used = 0;
        if (!ReadWindowRun(bits.window, colour, &run, &used))
            break;
        const uint32_t afterRun = remaining - run;
        if (static_cast<int32_t>(afterRun) <= 0) {
            complete = edge == Edge::EndsLine && afterRun == 0 &&
                       (colour == Colour::Black || alignedRows ||
                        bits.window << used >> (64 - kEmptyBlackRunBits) != kEmptyBlackRun);
            if (complete) {
                remaining = 0;
                bits.Consume(used);
            }
            break;
        }
        *next++ = remaining = afterRun;
        steps = StepsFor(Opposite(colour));
        bits.Consume(used);
    }

    line.written = static_cast<uint32_t>(next - first);
    line.remaining = remaining;
    line.input.MoveTo(bits.Position());
    return complete;
}

} // namespace

bool ReadFastAnywhere(Line& line, Edge edge) {
    return Read(line, edge);
}

FAXX_FASTER_FORM bool ReadFastFaster(Line& line, Edge edge) {
    return Read(line, edge);
}

static const auto kReadFast = ChooseForm(ReadFastAnywhere, ReadFastFaster);

bool ReadFast(Line& line, Edge edge) {
    return kReadFast(line, edge);
}

} // namespace faxx::g3
