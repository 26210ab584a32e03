// Writing TIFF files: the filter codes strips or tiles, libtiff stores them and writes the directories.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/page.h"
#include "tools/kfax/base/tiff_file.h"
#include "tools/kfax/write/output_options.h"

namespace kfax {

struct TiffOutput {
    standin::SaveOptions How;
    unsigned RowsPerStrip = 0;              // 0: a sensible number
    unsigned TileWidth = 0, TileHeight = 0; // 0: strips
};

// What the command line asks for; throws UsageError where a TIFF cannot be that.
TiffOutput ChooseTiffOutput(const OutputOptions& options, int format);

// The strips or tiles that a bitmap is to be coded in.
standin::Blocks TiffBlocks(const _BITMAPHANDLE& bitmap, const TiffOutput& output);

// Appends a page. number: from 1, of a file with several pages; 0 for one alone. Throws std::runtime_error
// with the reason.
void WriteTiffPage(TiffFile& file, const CodedPage& page, const TiffOutput& output, unsigned number);

} // namespace kfax
