// libtiff as the peer of the benchmarks: the same strip, coded and decoded in memory.
#pragma once

#include "bench/pages.h"

#include <memory>

namespace bench {

enum class Coding { G4, G3OneDimensional, G3TwoDimensional };

const char* CodingName(Coding coding);

// A TIFF file in memory whose only page is one strip of the given coding.
class TiffPeer {
public:
    TiffPeer();
    ~TiffPeer();
    TiffPeer(const TiffPeer&) = delete;
    TiffPeer& operator=(const TiffPeer&) = delete;

    // Codes the page with libtiff, replacing what was there.
    void Encode(Page& page, Coding coding);
    // The compressed bytes of the strip.
    std::vector<uint8_t> Strip() const;
    // Opens the file for DecodeInto.
    void OpenForDecoding();
    // Decodes the whole strip into packed rows. False when libtiff reports an error.
    bool DecodeInto(std::vector<uint8_t>& rows);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace bench
