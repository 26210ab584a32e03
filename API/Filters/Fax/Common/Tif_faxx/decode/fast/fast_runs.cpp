#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/fast_runs.h"

#include <algorithm>

namespace faxx {
namespace {

constexpr uint32_t kMostRuns = 2;

struct CodedRun {
    uint32_t length;
    CodeWord code;
};

// Parsed once: compilers bound the work of a constant.
template <Colour colour>
constexpr auto kCodedRuns = [] {
    std::array<CodedRun, kTerminatingCodes + kMakeUpCodes + kExtendedCodes> runs{};
    size_t next = 0;
    ForEachCodedRun([&](uint32_t length) { runs[next++] = {length, RunCode(colour, length)}; });
    return runs;
}();

struct Lookups {
    std::array<RunLookup, 2 << kRunIndexBits> table;

    // Enters the codes read so far at every index that begins with them, and over that all codes that may
    // follow and fit. Each takes at least two of the index's bits.
    // NOLINTNEXTLINE(misc-no-recursion)
    constexpr void Enter(Colour start, CodeWord read, Colour due, const uint32_t (&run)[kMostRuns],
                         uint32_t runs) {
        const uint32_t spare = kRunIndexBits - read.length;
        const auto of = [](Colour colour) { return static_cast<uint32_t>(colour) << kRunIndexBits; };
        if (read.length != 0)
            std::fill_n(table.begin() + of(start) + (read.bits << spare), 1 << spare,
                        RunLookup{static_cast<uint16_t>(run[0]), static_cast<uint16_t>(run[0] + run[1]),
                                  static_cast<uint16_t>(of(due)), static_cast<uint8_t>(read.length),
                                  static_cast<uint8_t>(runs)});
        if (runs == kMostRuns)
            return;
        for (const auto& [length, code] :
             due == Colour::White ? kCodedRuns<Colour::White> : kCodedRuns<Colour::Black>) {
            const bool ends = length < kTerminatingCodes;
            if (code.length > spare || (runs != 0 && !ends))
                continue;
            uint32_t with[kMostRuns] = {run[0], run[1]};
            with[runs] += length;
            Enter(start, {read.bits << code.length | code.bits, read.length + code.length},
                  ends ? Opposite(due) : due, with, runs + ends);
        }
    }
};

constexpr auto BuildLookups() {
    Lookups lookups{};
    lookups.table.fill({0, kNoRun, 0, 0, 0});
    for (const Colour colour : {Colour::White, Colour::Black})
        lookups.Enter(colour, {0, 0}, colour, {0, 0}, 0);
    return lookups.table;
}

} // namespace

constexpr std::array<RunLookup, 2 << kRunIndexBits> kRunLookups = BuildLookups();

} // namespace faxx
