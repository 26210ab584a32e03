// The stream probe as the search for a stream runs it: trial after trial, at neighbouring offsets.
//
// Trials of one kind meet: where a line is due at the same bit of the file, below the same reference line,
// all that follows is the same. A trial notes where its first lines began; once it has failed, a later one
// that comes to such a place need not go on to the end of the file to fail as well. That relies on the handle
// to give the same bytes each time, and full reads until its end, so it begins only after the trials have
// read kReadUnshared bytes: until then every trial runs to its end.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/limits.h"

#include <array>

namespace faxx {

inline constexpr uint32_t kWidestProbed = 200000;
inline constexpr int32_t kFewestLinesProbed = 100;
inline constexpr uint64_t kReadUnshared = 32'000'000;

// A place where a one-dimensional line is due, or an EOL in front of it, and what else matters there.
struct Landmark {
    uint32_t position;                 // in bits, from the start of the handle
    uint32_t lines;                    // before it
    uint32_t width;                    // of the longest of them
    std::array<uint32_t, 2> reference; // a hash of the reference line, where two-dimensional lines may follow
};

struct Trial {
    Landmark* marks = nullptr; // in the order of their positions
    uint32_t count = 0;
    uint32_t next = 0; // of the marks, not yet passed by the trial under way
    int lines = 0;     // the result
    uint32_t width = 0;
    uint32_t oneDimensionalAfter = 0; // so many lines: from there on the reference line does not matter
    bool readToEnd = false;
};

// Trials of the same format and bit order, at offsets that are all even or all odd: codes enter the decoder
// in byte pairs, and the end of the input shows with the last of them. One is under way, the others are the
// last that failed at their own ends; several, since tags may have neighbouring trials see different lines.
struct TrialKind {
    static constexpr unsigned kTrials = 4;
    Trial trials[kTrials];
    unsigned current = 0;
};

// All trials of one search.
struct TrialHistory {
    static constexpr unsigned kKinds = 8;
    static constexpr uint32_t kMarks =
        kRowWords * sizeof(unsigned short) / sizeof(Landmark) / (TrialKind::kTrials * kKinds);

    // scratch: kRowWords elements for as long as the history is used.
    explicit TrialHistory(unsigned short* scratch);

    TrialKind kinds[kKinds];
    uint64_t bytesRead = 0; // by the trials that failed
};

// InfoDecodeG3 on a record that was set up at offset, with the same result. A stream that is not convincing
// leaves its notes in the history.
int ProbeStream(CCITTG34* record, unsigned short* rows, int64_t offset, TrialHistory& history);

inline bool IsConvincing(uint32_t width, int lines) {
    return width >= 1 && width <= kWidestProbed && lines >= kFewestLinesProbed;
}

} // namespace faxx
