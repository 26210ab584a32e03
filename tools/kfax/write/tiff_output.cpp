// Writing TIFF pages.
#include "tools/kfax/write/tiff_output.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/base/errors.h"

#include <algorithm>
#include <cerrno>

namespace kfax {

namespace {

constexpr unsigned kTileUnit = 16; // TIFF 6.0, section 15: tile sizes are multiples of it
// Readers look further than a short last row reaches, which nothing follows where lines have no ends: libtiff
// loses such a row without these.
constexpr unsigned kLookaheadBytes = 2;
constexpr unsigned kStripBytes = 64 * 1024; // of packed rows, where the command line says nothing

void ParseTile(const std::string& text, TiffOutput& output) {
    if (!ParsePair(text, output.TileWidth, output.TileHeight) || output.TileWidth == 0 ||
        output.TileHeight == 0 || output.TileWidth % kTileUnit != 0 || output.TileHeight % kTileUnit != 0)
        throw UsageError("--tile wants WIDTHxHEIGHT, both multiples of 16, not " + text);
    if (output.TileWidth > MAX_IMAGE_WIDTH || output.TileHeight > INT32_MAX)
        throw UsageError("--tile " + text + " is too large");
}

uint16_t CompressionOf(int format) {
    switch (format) {
    case FORMAT_FAX_G3_1D:
    case FORMAT_FAX_G3_2D:
        return COMPRESSION_CCITTFAX3;
    case FORMAT_FAX_G4:
        return COMPRESSION_CCITTFAX4;
    case FORMAT_FAX_G3_1D_NOEOL:
        return COMPRESSION_CCITTRLE;
    default:
        throw UsageError("a TIFF file cannot hold this --format; it holds g3, g3-2d, g4 and g3-noeol");
    }
}

struct TagWriter {
    TIFF* Tiff = nullptr;
    bool Good = true;

    template <typename... Values>
    void Set(uint32_t tag, Values... values) {
        Good = Good && TIFFSetField(Tiff, tag, values...) == 1;
    }
};

bool SetTags(TIFF* tiff, const CodedPage& page, const TiffOutput& output, unsigned number) {
    TagWriter tags{tiff};
    tags.Set(TIFFTAG_SUBFILETYPE, number != 0 ? FILETYPE_PAGE : 0);
    tags.Set(TIFFTAG_IMAGEWIDTH, page.Width);
    tags.Set(TIFFTAG_IMAGELENGTH, page.Height);
    tags.Set(TIFFTAG_BITSPERSAMPLE, 1);
    tags.Set(TIFFTAG_SAMPLESPERPIXEL, 1);
    tags.Set(TIFFTAG_COMPRESSION, CompressionOf(output.How.Format));
    if (output.How.Format == FORMAT_FAX_G3_1D || output.How.Format == FORMAT_FAX_G3_2D)
        tags.Set(TIFFTAG_GROUP3OPTIONS,
                 GROUP3OPT_FILLBITS | (output.How.Format == FORMAT_FAX_G3_2D ? GROUP3OPT_2DENCODING : 0));
    tags.Set(TIFFTAG_PHOTOMETRIC, page.BlackIsZero ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_MINISWHITE);
    tags.Set(TIFFTAG_FILLORDER, output.How.ReverseBits ? FILLORDER_LSB2MSB : FILLORDER_MSB2LSB);
    tags.Set(TIFFTAG_ORIENTATION, page.Orientation);
    tags.Set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (page.XResolution > 0 && page.YResolution > 0) {
        tags.Set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        tags.Set(TIFFTAG_XRESOLUTION, static_cast<double>(page.XResolution));
        tags.Set(TIFFTAG_YRESOLUTION, static_cast<double>(page.YResolution));
    }
    if (output.TileWidth != 0) {
        tags.Set(TIFFTAG_TILEWIDTH, page.Strips.Width);
        tags.Set(TIFFTAG_TILELENGTH, page.Strips.Height);
    } else {
        tags.Set(TIFFTAG_ROWSPERSTRIP, page.Strips.Height);
    }
    if (number != 0)
        tags.Set(TIFFTAG_PAGENUMBER, std::min(number - 1, 65535u), 0); // of an unknown total
    return tags.Good;
}

bool WriteBlocks(TIFF* tiff, bool tiled, const standin::Blocks& blocks) {
    for (uint32_t i = 0; i < blocks.Offsets.size(); ++i) {
        // The library does not write to them.
        auto* const bytes = const_cast<unsigned char*>(blocks.Bytes.data()) + blocks.Offsets[i];
        const auto count = static_cast<tmsize_t>(blocks.ByteCounts[i]);
        if ((tiled ? TIFFWriteRawTile : TIFFWriteRawStrip)(tiff, i, bytes, count) != count)
            return false;
    }
    return true;
}

} // namespace

TiffOutput ChooseTiffOutput(const OutputOptions& options, int format) {
    TiffOutput output;
    static_cast<void>(CompressionOf(format));
    output.How.Format = format;
    output.How.ReverseBits = options.ReverseBits;
    output.How.AlignEol = options.AlignEol;
    output.How.NoInvert = options.NoInvert;
    if (options.RowsPerStrip && !options.Tile.empty())
        throw UsageError("--rows-per-strip and --tile exclude each other");
    if (options.RowsPerStrip && (*options.RowsPerStrip < 1 || *options.RowsPerStrip > UINT32_MAX))
        throw UsageError("--rows-per-strip must be 1 to " + std::to_string(UINT32_MAX));
    output.RowsPerStrip = static_cast<unsigned>(options.RowsPerStrip.value_or(0));
    if (!options.Tile.empty())
        ParseTile(options.Tile, output);
    return output;
}

standin::Blocks TiffBlocks(const _BITMAPHANDLE& bitmap, const TiffOutput& output) {
    const auto height = static_cast<unsigned>(bitmap.Height);
    standin::Blocks blocks;
    blocks.Tiled = output.TileWidth != 0;
    if (blocks.Tiled) {
        blocks.Width = output.TileWidth;
        blocks.Height = output.TileHeight;
    } else {
        blocks.Width = bitmap.Width;
        const unsigned rows = std::max(kStripBytes / ((bitmap.Width + 7) / 8), 1u);
        blocks.Height = std::min(output.RowsPerStrip != 0 ? output.RowsPerStrip : rows, height);
    }
    if (output.How.Format == FORMAT_FAX_G3_1D_NOEOL)
        blocks.Padding = kLookaheadBytes;
    return blocks;
}

void WriteTiffPage(TiffFile& file, const CodedPage& page, const TiffOutput& output, unsigned number) {
    TIFF* const tiff = file.Tiff.get();
    errno = 0;
    if (!SetTags(tiff, page, output, number) || !WriteBlocks(tiff, page.Strips.Tiled, page.Strips) ||
        TIFFWriteDirectory(tiff) != 1)
        throw std::runtime_error(TakeError(file, standin::StatusText(ERROR_FILE_WRITE)));
}

} // namespace kfax
