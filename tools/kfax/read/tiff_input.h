// The pages of a TIFF file: libtiff reads the directories and the stored bytes, the filter decodes them.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/memory_budget.h"
#include "tools/kfax/base/tiff_file.h"
#include "tools/kfax/read/line_faults.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kfax {

bool IsTiff(const std::string& name); // by its first bytes; false where it cannot be read

// A page as its directory describes it.
struct TiffPage {
    standin::Description Image; // Format 0: not compressed
    unsigned BlockWidth = 0;
    unsigned BlockHeight = 0; // at most the image's
    unsigned CodedHeight = 0; // of a block; the last rows of a tile can lie below the image
    uint32_t BlockCount = 0;
    bool Tiled = false;
    bool MayBeUncompressed = false; // lines in uncompressed mode (T.6), which few decoders know
};

unsigned CountTiffPages(TiffFile& file);

// Goes to a page, from 1. Throws std::runtime_error where there is no such page, its directory is damaged
// or it is not a fax or uncompressed black-and-white image.
TiffPage OpenTiffPage(TiffFile& file, int64_t number);

// What is wrong with the lines of a strip or tile.
struct BlockFaults {
    std::string Name; // "strip 3 of 12"; empty: the lines are those of a whole stream
    uint32_t FirstRow = 0;
    uint32_t FirstColumn = 0, Columns = 0; // 0: the page's whole width
    std::vector<FaultyLines> Lines{};
};

// A page or picture that was loaded, and the bytes that it was loaded from.
struct LoadedBlocks {
    standin::LoadResult Loaded;
    std::string Damage;              // of the bytes; empty: none
    std::vector<BlockFaults> Faults; // where they are asked for
    standin::Blocks Data;
    MemoryShare DataMemory;
};

// Loads the page that was opened last, and asks for the memory of its data. Throws where there is none at
// all. With findFaults the strips or tiles are looked at line by line as well.
LoadedBlocks LoadTiffPage(const standin::Filter& filter, TiffFile& file, const TiffPage& page,
                          const standin::LoadOptions& options, bool findFaults);

} // namespace kfax
