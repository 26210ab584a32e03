// libtiff as the peer of the benchmarks: the same page, coded and decoded in memory, whole or in blocks.
#pragma once

#include "bench/pages.h"

#include <memory>

namespace bench {

enum class Coding { G4, G3OneDimensional, G3TwoDimensional };

inline constexpr Coding kAllCodings[] = {Coding::G4, Coding::G3OneDimensional, Coding::G3TwoDimensional};

const char* CodingName(Coding coding);

// The filter's format number for a coding.
int FormatOf(Coding coding);

// Calls visit(kind, size, coding) for every page that whole-page benchmarks run on.
template <typename Visit>
void ForEachPage(Visit visit) {
    for (const Coding coding : kAllCodings)
        for (const PageSize size : kPageSizes)
            for (const PageKind kind : kAllPageKinds)
                visit(kind, size, coding);
}

// How a page is cut: strips of blockHeight rows, or tiles where blockWidth (a multiple of 16) is not 0. And
// whether EOLs in G3 streams end on byte boundaries, as many a scanner writes them.
struct Layout {
    unsigned blockWidth = 0;
    unsigned blockHeight = 0;
    bool alignedEols = false;
};

// The page's blocks in the container's order: strips as they lie, the last one shorter; tiles all of one
// size, white beyond the page.
std::vector<Page> CutIntoBlocks(Page& page, Layout layout);

// A TIFF file in memory with one page.
class TiffPeer {
public:
    TiffPeer();
    ~TiffPeer();
    TiffPeer(const TiffPeer&) = delete;
    TiffPeer& operator=(const TiffPeer&) = delete;

    // Codes the blocks of a page with libtiff, replacing what was there.
    void Encode(const Page& page, std::vector<Page>& blocks, Coding coding, Layout layout);
    // Opens the file for what follows.
    void OpenForDecoding();
    // The compressed bytes of a block.
    std::vector<uint8_t> Compressed(unsigned block) const;
    // Decodes a block into packed rows. Throws std::runtime_error when libtiff reports an error.
    void Decode(unsigned block, Page& rows);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace bench
