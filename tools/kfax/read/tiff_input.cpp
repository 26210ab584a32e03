// Reading TIFF pages.
//
// The stored bytes of all strips or tiles are read into one piece of memory and decoded there by a single
// call: the filter's offsets have 32 bits, those of a large TIFF file more, and a byte count that points
// past the end of the file is cut where the bytes are read.
#include "tools/kfax/read/tiff_input.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/read/input.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>

namespace kfax {

namespace {

constexpr int kNotCompressed = 0;
constexpr unsigned kTableBytes = 64; // what is known of each strip or tile while they are read
constexpr const char* kBeyondEnd = "its data lies beyond the end of the file";

int FormatOfPage(const TiffFile& file) {
    const auto compression = TiffTag<uint16_t>(file, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    switch (compression) {
    case COMPRESSION_NONE:
        return kNotCompressed;
    case COMPRESSION_CCITTRLE:
        return FORMAT_FAX_G3_1D_NOEOL;
    case COMPRESSION_CCITTFAX3:
        return (TiffTag<uint32_t>(file, TIFFTAG_GROUP3OPTIONS, 0) & GROUP3OPT_2DENCODING) != 0
                   ? FORMAT_FAX_G3_2D
                   : FORMAT_FAX_G3_1D;
    case COMPRESSION_CCITTFAX4:
        return FORMAT_FAX_G4;
    default:
        throw std::runtime_error("TIFF compression " + std::to_string(compression) +
                                 " is neither fax nor none; convert it (tiffcp -c g4)");
    }
}

bool IsInvertedPage(const TiffFile& file, int format) {
    uint16_t photometric = 0;
    if (TIFFGetField(file.Tiff.get(), TIFFTAG_PHOTOMETRIC, &photometric) != 1)
        photometric = format == kNotCompressed ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_MINISWHITE;
    if (photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK)
        throw std::runtime_error("the TIFF page is not black and white; make it so (tiff2bw, pamditherbw)");
    return photometric == PHOTOMETRIC_MINISBLACK;
}

int DotsPerInch(const TiffFile& file, uint32_t tag) {
    const auto unit = TiffTag<uint16_t>(file, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    double dots = TiffTag<float>(file, tag, 0);
    if (unit == RESUNIT_CENTIMETER)
        dots *= 2.54;
    return unit != RESUNIT_NONE && dots > 0 && dots < INT_MAX ? static_cast<int>(std::lround(dots)) : 0;
}

// Width and height of the strips or tiles.
void ReadGrid(TiffFile& file, unsigned width, unsigned height, TiffPage& page) {
    TIFF* const tiff = file.Tiff.get();
    page.Tiled = TIFFIsTiled(tiff) != 0;
    page.BlockWidth = page.Tiled ? TiffTag<uint32_t>(file, TIFFTAG_TILEWIDTH, 0) : width;
    page.BlockHeight = TiffTag<uint32_t>(file, page.Tiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP,
                                         page.Tiled ? 0 : height);
    if (page.BlockWidth == 0 || page.BlockHeight == 0)
        throw std::runtime_error(page.Tiled ? "the TIFF page has tiles of size 0; its directory is damaged"
                                            : "the TIFF page has strips of 0 rows; its directory is damaged");
    if (page.BlockWidth > MAX_IMAGE_WIDTH)
        throw std::runtime_error("the TIFF page is " + std::to_string(page.BlockWidth) +
                                 " pixels wide; at most " + std::to_string(MAX_IMAGE_WIDTH) +
                                 " can be loaded; cut or shrink it");
    page.CodedHeight = page.BlockHeight;
    page.BlockHeight = std::min(page.BlockHeight, height);

    const uint64_t across = (uint64_t{width} + page.BlockWidth - 1) / page.BlockWidth;
    const uint64_t down = (uint64_t{height} + page.BlockHeight - 1) / page.BlockHeight;
    // Each has an entry of two bytes at least in the directory, and data.
    if (across * down > std::max<uint64_t>(file.Size, 1))
        throw std::runtime_error("the TIFF directory lists more strips or tiles than the file can hold; it "
                                 "is damaged or cut off: fetch it again");
    page.BlockCount = static_cast<uint32_t>(across * down);
    CheckPictureSize(static_cast<unsigned>(std::min<uint64_t>(across * page.BlockWidth, UINT_MAX)),
                     static_cast<int>(height));
}

uint32_t BlocksAcross(const TiffPage& page) {
    return (page.Image.FileInfo.Declared.Width + page.BlockWidth - 1) / page.BlockWidth;
}

struct Rows {
    uint32_t First, Count;
};

// Those of the block that lie in the image.
Rows RowsOfBlock(const TiffPage& page, uint32_t block) {
    const _FILEINFOA& info = page.Image.FileInfo.Declared;
    const uint32_t first = block / BlocksAcross(page) * page.BlockHeight;
    return {first, std::min(page.BlockHeight, static_cast<uint32_t>(info.Height) - first)};
}

size_t PackedBytes(const TiffPage& page, uint32_t block) {
    return size_t{RowsOfBlock(page, block).Count} * ((page.BlockWidth + 7) / 8);
}

std::string NameOfBlock(const TiffPage& page, uint32_t number) {
    return (page.Tiled ? "tile " : "strip ") + std::to_string(number + 1) + " of " +
           std::to_string(page.BlockCount);
}

// Where the file has a block's bytes.
struct Extent {
    uint64_t Offset = 0, Size = 0;
};

// Reads the bytes of all extents, each byte of the file once, however many of them it lies in. Fills the
// offsets and the byte counts. Returns an errno where the system refused some, else 0.
int ReadExtents(TiffFile& file, const std::vector<Extent>& extents, standin::Blocks& blocks,
                MemoryShare& memory) {
    std::vector<uint32_t> order(extents.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(),
              [&](uint32_t a, uint32_t b) { return extents[a].Offset < extents[b].Offset; });
    // The extents that touch become one piece.
    struct Piece {
        uint64_t Offset, End;
        size_t At = 0; // in blocks.Bytes
        int Error = 0;
    };
    std::vector<Piece> pieces;
    std::vector<size_t> pieceOf(extents.size());
    for (const uint32_t block : order) {
        const Extent& extent = extents[block];
        if (pieces.empty() || extent.Offset > pieces.back().End)
            pieces.push_back({extent.Offset, extent.Offset});
        Piece& piece = pieces.back();
        piece.End = std::max(piece.End, extent.Offset + extent.Size);
        pieceOf[block] = pieces.size() - 1;
    }
    size_t size = 0;
    for (Piece& piece : pieces) {
        piece.At = size;
        size += piece.End - piece.Offset;
    }
    if (size > UINT32_MAX)
        throw std::runtime_error("the TIFF page holds more than 4 GiB of data; cut it into several");
    memory.Add(size);
    blocks.Bytes.resize(size);
    for (Piece& piece : pieces) {
        unsigned char* const bytes = blocks.Bytes.data() + piece.At;
        piece.End = piece.Offset + ReadAt(file, piece.Offset, bytes, piece.End - piece.Offset, piece.Error);
    }
    int firstError = 0;
    for (size_t block = 0; block < extents.size(); ++block) {
        const Piece& piece = pieces[pieceOf[block]];
        const Extent& extent = extents[block];
        const size_t at = piece.At + (extent.Offset - piece.Offset);
        uint64_t end = std::min(extent.Offset + extent.Size, piece.End);
        if (piece.Error != 0) { // a bad place of the disk costs no other block its bytes
            int error = 0;
            end = extent.Offset + ReadAt(file, extent.Offset, blocks.Bytes.data() + at, extent.Size, error);
            firstError = firstError != 0 ? firstError : error;
        }
        blocks.Offsets[block] = static_cast<uint32_t>(at);
        blocks.ByteCounts[block] = static_cast<uint32_t>(end > extent.Offset ? end - extent.Offset : 0);
    }
    return firstError;
}

// The loader takes whole blocks of packed rows: what a short one lacks is white.
void CompletePackedRows(const TiffPage& page, uint32_t number, standin::Blocks& blocks, MemoryShare& memory) {
    const size_t needed = PackedBytes(page, number);
    const size_t count = blocks.ByteCounts[number];
    if (count >= needed || count == 0)
        return;
    memory.Add(needed);
    const size_t at = blocks.Bytes.size();
    if (at + needed > UINT32_MAX)
        throw std::runtime_error("the TIFF page holds more than 4 GiB of data; cut it into several");
    const bool inverted = (page.Image.LoadInfo.Flags & LOADINFO_INVERTED) != 0;
    blocks.Bytes.resize(at + needed, inverted ? 0xFF : 0);
    std::copy_n(blocks.Bytes.data() + blocks.Offsets[number], count, blocks.Bytes.data() + at);
    blocks.Offsets[number] = static_cast<uint32_t>(at);
    blocks.ByteCounts[number] = static_cast<uint32_t>(needed);
}

// Reads what the file has of every block. Returns what is missing, if anything is.
std::string ReadBlocks(TiffFile& file, const TiffPage& page, standin::Blocks& blocks, MemoryShare& memory) {
    TIFF* const tiff = file.Tiff.get();
    const uint32_t listed = page.Tiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
    memory.Add(uint64_t{page.BlockCount} * kTableBytes);
    blocks.Tiled = page.Tiled;
    blocks.Width = page.BlockWidth;
    blocks.Height = page.BlockHeight;
    blocks.Offsets.resize(page.BlockCount);
    blocks.ByteCounts.resize(page.BlockCount);
    std::vector<Extent> extents(page.BlockCount);
    std::string damage;
    uint32_t damaged = page.BlockCount; // the first block of which something is missing
    for (uint32_t number = 0; number < page.BlockCount; ++number) {
        errno = 0;
        const uint64_t offset = number < listed ? TIFFGetStrileOffset(tiff, number) : 0;
        const uint64_t count = number < listed ? TIFFGetStrileByteCount(tiff, number) : 0;
        if (offset < file.Size)
            extents[number] = {offset, std::min(count, file.Size - offset)};
        if ((count == 0 || extents[number].Size < count) && number < damaged) {
            damaged = number;
            damage = TakeError(file, count == 0 ? "no data" : kBeyondEnd);
        }
        file.Error.clear();
    }
    const int error = ReadExtents(file, extents, blocks, memory);
    const bool packed = page.Image.LoadInfo.Format == kNotCompressed;
    if (packed && (page.Image.LoadInfo.Flags & LOADINFO_REVERSED_BITS) != 0)
        TIFFReverseBits(blocks.Bytes.data(), static_cast<tmsize_t>(blocks.Bytes.size()));
    for (uint32_t number = 0; number < page.BlockCount; ++number) {
        const bool isShort =
            blocks.ByteCounts[number] < extents[number].Size || // it shrank, or is not readable
            (packed && blocks.ByteCounts[number] < PackedBytes(page, number));
        if (isShort && number < damaged) {
            damaged = number;
            damage = error != 0 ? SystemReason(error) : kBeyondEnd;
        }
        if (packed)
            CompletePackedRows(page, number, blocks, memory);
    }
    if (damaged != page.BlockCount)
        damage = NameOfBlock(page, damaged) + ": " + damage;
    if (blocks.Bytes.empty())
        throw std::runtime_error(damage);
    return damage;
}

std::vector<BlockFaults> InspectBlocks(const standin::Filter& filter, const TiffPage& page,
                                       standin::Blocks& blocks) {
    const _LOADINFO& info = page.Image.LoadInfo;
    std::vector<BlockFaults> faults;
    for (uint32_t number = 0; number < page.BlockCount; ++number) {
        const Rows rows = RowsOfBlock(page, number);
        BlockFaults block{NameOfBlock(page, number), rows.First};
        if (page.Tiled) {
            const uint32_t across = BlocksAcross(page);
            block.FirstColumn = number % across * page.BlockWidth;
            block.Columns = std::min(page.BlockWidth, page.Image.FileInfo.Declared.Width - block.FirstColumn);
        }
        const CodedStream stream{blocks.Bytes.data() + blocks.Offsets[number],
                                 blocks.ByteCounts[number],
                                 info.Format,
                                 page.BlockWidth,
                                 page.Tiled ? page.CodedHeight : rows.Count,
                                 (info.Flags & LOADINFO_REVERSED_BITS) != 0};
        if (stream.Size == 0)
            block.Lines.push_back({LineFault::DataEnds, 0, rows.Count - 1, true});
        else
            InspectLines(filter, stream, block.Lines);
        KeepRowsOfImage(block.Lines, rows.Count);
        if (!block.Lines.empty())
            faults.push_back(std::move(block));
    }
    return faults;
}

} // namespace

bool IsTiff(const std::string& name) {
    const FileHandle file = OpenInput(name);
    char start[4] = {};
    if (!file || std::fread(start, 1, sizeof start, file.get()) != sizeof start)
        return false;
    static constexpr const char* kMagics[] = {"II\x2A\0", "MM\0\x2A", "II\x2B\0", "MM\0\x2B"};
    return std::any_of(std::begin(kMagics), std::end(kMagics),
                       [&](const char* magic) { return std::memcmp(start, magic, sizeof start) == 0; });
}

unsigned CountTiffPages(TiffFile& file) {
    if (file.Pages == 0) {
        file.Pages = std::max<unsigned>(TIFFNumberOfDirectories(file.Tiff.get()), 1);
        file.Error.clear();
    }
    return file.Pages;
}

// Has the library read the directory of a page. From one page to the next it takes one step: to look a
// directory up by its number, the library walks all those in front of it.
static bool ReadDirectory(TiffFile& file, int64_t number) {
    TIFF* const tiff = file.Tiff.get();
    if (file.PageRead == number)
        return true;
    const bool next = file.PageRead != 0 && file.PageRead + 1 == number;
    const int read = next ? TIFFReadDirectory(tiff) : TIFFSetDirectory(tiff, static_cast<tdir_t>(number - 1));
    file.PageRead = read == 1 ? number : 0;
    return read == 1;
}

TiffPage OpenTiffPage(TiffFile& file, int64_t number) {
    const unsigned pages = CountTiffPages(file);
    if (number < 1 || number > pages)
        throw std::runtime_error("there is no page " + std::to_string(number) + "; the file has " +
                                 std::to_string(pages));
    errno = 0;
    if (!ReadDirectory(file, number))
        throw std::runtime_error(TakeError(file, "no TIFF directory", kDamagedTiff));
    file.Error.clear();
    if (TiffTag<uint16_t>(file, TIFFTAG_BITSPERSAMPLE, 1) != 1 ||
        TiffTag<uint16_t>(file, TIFFTAG_SAMPLESPERPIXEL, 1) != 1)
        throw std::runtime_error("the TIFF page is not black and white; make it so (tiff2bw, pamditherbw)");
    const auto width = TiffTag<uint32_t>(file, TIFFTAG_IMAGEWIDTH, 0);
    const auto height = TiffTag<uint32_t>(file, TIFFTAG_IMAGELENGTH, 0);
    if (width > INT_MAX || height > INT_MAX)
        throw std::runtime_error("the TIFF page is too large; cut it into several");
    CheckPictureSize(width, static_cast<int>(height));

    TiffPage page;
    ReadGrid(file, width, height, page);
    _LOADINFO stream{};
    stream.Format = FormatOfPage(file);
    stream.Width = static_cast<int32_t>(width);
    stream.Height = static_cast<int32_t>(height);
    stream.BitsPerPixel = 1;
    stream.XResolution = DotsPerInch(file, TIFFTAG_XRESOLUTION);
    stream.YResolution = DotsPerInch(file, TIFFTAG_YRESOLUTION);
    stream.Flags = OrientationFlag(TiffTag<uint16_t>(file, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT));
    if (IsInvertedPage(file, stream.Format))
        stream.Flags |= LOADINFO_INVERTED;
    if (TiffTag<uint16_t>(file, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB) == FILLORDER_LSB2MSB)
        stream.Flags |= LOADINFO_REVERSED_BITS;
    page.Image = standin::DescribeStream(stream);
    page.MayBeUncompressed =
        (TiffTag<uint32_t>(file, TIFFTAG_GROUP4OPTIONS, 0) & GROUP4OPT_UNCOMPRESSED) != 0;
    return page;
}

LoadedBlocks LoadTiffPage(const standin::Filter& filter, TiffFile& file, const TiffPage& page,
                          const standin::LoadOptions& options, bool findFaults) {
    LoadedBlocks result;
    result.Damage = ReadBlocks(file, page, result.Data, result.DataMemory);
    const bool packed = page.Image.LoadInfo.Format == kNotCompressed;
    result.Loaded = standin::LoadBlocks(filter, page.Image, result.Data, packed, options);
    if (result.Damage.empty() && result.Loaded.Status == SUCCESS && result.Loaded.DataStatus != 0)
        result.Damage = standin::StatusText(result.Loaded.DataStatus);
    if (findFaults && !packed)
        result.Faults = InspectBlocks(filter, page, result.Data);
    return result;
}

} // namespace kfax
