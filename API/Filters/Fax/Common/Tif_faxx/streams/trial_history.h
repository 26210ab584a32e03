// What the trials of a search for a raw G3 stream share.
//
// The search decodes the file from one offset after the other, and a hostile file can make each of these
// trials run to the end of the file only to fail. But trials meet: where a line begins at the same bit of the
// file, below the same reference line, all that follows is the same. A trial notes the places where its first
// lines began; once it has failed, a later trial that comes to such a place knows how it will end, and need
// not go on.
//
// What is found never depends on it. Two trials end at the same bit only where the decoder takes the same
// number of zero bytes behind the data (EndsEarly), and only the trial of a file whose every read is full
// until its end is foretold exactly. Sharing begins when the failed trials have read a number of bytes that
// no ordinary file comes to.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"

#include <array>
#include <optional>

namespace faxx {

inline constexpr uint32_t kWidestProbed = 200000;
inline constexpr int32_t kFewestLinesProbed = 100;
inline constexpr uint64_t kReadUnshared = 32'000'000; // bytes

inline bool IsConvincing(uint32_t width, int lines) {
    return width >= 1 && width <= kWidestProbed && lines >= kFewestLinesProbed;
}

// A hash of a change list, modulo a prime, at two points that only this process knows: whoever makes a file
// cannot aim at two lists of one hash.
using ListHash = std::array<uint64_t, 2>;

// A place where a line begins, or an EOL in front of it, and what else matters there.
struct Landmark {
    uint32_t position;   // in bits, from the start of the handle
    uint32_t lines;      // before it
    uint32_t width;      // of the longest of them
    uint32_t widthAfter; // of the longest one-dimensional line behind it
    ListHash reference;  // where two-dimensional lines may follow
};

struct Trial {
    Landmark* marks = nullptr; // in the order of their positions
    uint32_t count = 0;
    uint32_t next = 0; // of the marks, not yet passed by the trial under way
    int lines = 0;     // the result
    uint32_t width = 0;
    uint32_t oneDimensionalAfter = 0; // lines: behind so many the reference line does not matter
    bool readToEnd = false;
};

// Trials of the same format and bit order, at offsets that are all even or all odd: codes enter the decoder
// in byte pairs, and the end of the input shows with the last of them. One is under way, the others are the
// last that ran to their own ends; several, since tags may have neighbouring trials see different lines.
struct TrialKind {
    static constexpr unsigned kTrials = 4;
    Trial trials[kTrials];
    unsigned current = 0;
};

// All trials of one search.
struct TrialHistory {
    static constexpr unsigned kKinds = 8;
    static constexpr uint32_t kMarks =
        kRowWords * sizeof(unsigned short) / sizeof(Landmark) / TrialKind::kTrials / kKinds;

    // scratch: kRowWords elements for as long as the history is used. Trials share once those that failed
    // have read more than readUnshared bytes.
    explicit TrialHistory(unsigned short* scratch, uint64_t readUnshared = kReadUnshared);

    TrialKind kinds[kKinds];
    ListHash hashPoints;
    uint64_t bytesUntilShared;
    uint64_t fileSize = 0; // once a trial has seen the end of the file
};

// The trial under way, as the probe reports it. The default one keeps no notes.
class TrialNotes {
public:
    TrialNotes() = default;
    // record: set up at an offset of the file.
    TrialNotes(TrialHistory& history, const CCITTG34* record, int64_t offset);

    // A line is due, below the record's reference line.
    void BeginLine() { reference_.reset(); }

    // A line begins at a bit of the input buffer after so many lines, or an EOL in front of it. True where
    // the trial is sure to fail: *lines and the record's Width are its result then, and what an ordinary end
    // would still have read has been read.
    bool KnowsTheEnd(CCITTG34* record, int64_t bufferPosition, int* lines);

    // Lines that were read: a two-dimensional one after so many, a one-dimensional one of this length.
    void TwoDimensionalLine(int lines);
    void OneDimensionalLine(uint32_t length);

    // The trial has come to its own end.
    void Finish(const CCITTG34* record, int lines);

private:
    Trial& Current() const { return kind_->trials[kind_->current]; }
    bool EndsEarly() const;
    void CountBytes(const CCITTG34* record);
    const ListHash& Reference(const CCITTG34* record);
    bool EndsLike(Trial& trial, CCITTG34* record, uint32_t position, int* lines);

    TrialHistory* history_ = nullptr;
    TrialKind* kind_ = nullptr;
    int64_t offset_ = 0;
    bool tagged_ = false;
    bool share_ = false;
    uint64_t bytesRead_ = 0; // from offset_; the record's own count is of 32 bits
    std::optional<ListHash> reference_;
};

} // namespace faxx
