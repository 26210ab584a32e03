// Writing TIFF files: the filter codes strips or tiles, libtiff stores them and writes the directories.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/tiff_file.h"

namespace kfax {

struct TiffOutput {
    standin::SaveOptions How;
    unsigned RowsPerStrip = 0;              // 0: a sensible number
    unsigned TileWidth = 0, TileHeight = 0; // 0: strips
};

// What the command line asks for; throws UsageError where a TIFF cannot be that.
TiffOutput ChooseTiffOutput(const OutputOptions& options, int format);

// Appends a page. number: from 1, of a file with several pages; 0 for one alone. The bitmap is upright.
// Throws std::runtime_error with the reason.
void WriteTiffPage(const standin::Filter& filter, TiffFile& file, _BITMAPHANDLE& bitmap,
                   const TiffOutput& output, unsigned number);

} // namespace kfax
