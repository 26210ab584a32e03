// The sizes of the working areas. They are fixed, not computed from the image.
#pragma once

#include <cstdint>

namespace faxx {

inline constexpr uint32_t kListEntries = 250000; // a change list, its three closing zeros included
inline constexpr uint32_t kClosingZeros = 3;

inline constexpr uint32_t kInputBytes = 200000; // the decoder's input buffer
inline constexpr uint32_t kSmallInputBytes = 2048;

// The input buffer is refilled when the decoder has read past this many of its bytes.
constexpr uint32_t RefillThresholdOf(uint32_t capacity) {
    return capacity / 4 * 3;
}

inline constexpr uint32_t kRawRowWords = 251000;    // run-length rows of a batch, raw loader
inline constexpr uint32_t kRowWords = 250000;       // run-length rows of a batch, elsewhere
inline constexpr uint32_t kMirrorRowWords = 334000; // the same, each row grown by an empty white run
inline constexpr int32_t kRowBudget = 249998;       // words that one decoder call may write

} // namespace faxx
