// The pages of a TIFF file: libtiff reads the directories and the stored bytes, the filter decodes them.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/line_faults.h"
#include "tools/kfax/tiff_file.h"

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
};

unsigned CountTiffPages(TiffFile& file);

// Goes to a page, from 1. Throws std::runtime_error where there is no such page, its directory is damaged
// or it is not a fax or uncompressed black-and-white image.
TiffPage OpenTiffPage(TiffFile& file, int64_t number);

// What is wrong with the lines of a strip or tile.
struct BlockFaults {
    std::string Name; // "strip 3 of 12"; empty: the lines are those of a whole stream
    uint32_t FirstRow = 0;
    std::vector<FaultyLines> Lines;
};

// Loads the page that was opened last. What is wrong with the file's bytes is in damage; throws where
// there are none at all. With faults the strips or tiles are looked at line by line as well.
standin::LoadResult LoadTiffPage(const standin::Filter& filter, TiffFile& file, const TiffPage& page,
                                 const standin::LoadOptions& options, std::string& damage,
                                 std::vector<BlockFaults>* faults = nullptr);

} // namespace kfax
