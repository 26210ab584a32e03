// A picture saved and loaded again: every pixel must come back, whichever way it went.
#include "fuzz/harness.h"

#include "API/Filters/Fax/Fax.h"
#include "host/kernel.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>

namespace {

enum : uint8_t {
    ROAD = 3,
    XOR_ROWS = 4,
    ALIGN_EOL = 8,
    NO_INVERT = 16,
    INVERTED = 32,
    CONVERTED = 64,
    TRAILER = 128
};
constexpr unsigned kMostRoundTripPixels = 1 << 18;
// At the greatest widths a line of single pixels has more changes than the decoders' lists hold.
constexpr unsigned kMostDenseWidth = 249900;
constexpr size_t kBlankBytes = 32;

// Rows without line ends have no trailer either that could be dropped.
bool LosesItsEnd(int format, size_t bytes, bool smallBuffer) {
    return format == FORMAT_FAX_G3_1D_NOEOL && fuzz::EndsAtRefill(bytes, smallBuffer);
}

// Rows from the data, over and over. XOR_ROWS: as what differs from the row above, so that rows resemble one
// another where the data is sparse.
standin::BitmapPtr PictureOf(const fuzz::Stream& stream, const fuzz::Bytes& data) {
    standin::BitmapPtr bitmap = standin::MakeBitmap(stream.Width, static_cast<int>(stream.Height));
    const size_t rowBytes = (stream.Width + 7) / 8;
    size_t at = 0;
    for (size_t y = 0; y < stream.Height; ++y) {
        unsigned char* const row = standin::BitmapRow(*bitmap, y);
        const unsigned char* const above =
            y != 0 && (stream.Choice & XOR_ROWS) != 0 ? standin::BitmapRow(*bitmap, y - 1) : nullptr;
        for (size_t i = 0; i < rowBytes; ++i) {
            const unsigned byte = data.empty() ? 0 : data[at++ % data.size()];
            if (stream.Width <= kMostDenseWidth || i >= kBlankBytes)
                row[i] = static_cast<unsigned char>(byte ^ (above ? above[i] : 0u));
        }
    }
    return bitmap;
}

// The picture's packed rows without padding; the bits beyond the width are 0.
fuzz::Bytes Packed(const _BITMAPHANDLE& bitmap, bool invert = false) {
    const size_t rowBytes = (bitmap.Width + 7) / 8;
    const auto lastMask = static_cast<uint8_t>(bitmap.Width % 8 != 0 ? ~(0xFF >> bitmap.Width % 8) : 0xFF);
    fuzz::Bytes pixels;
    for (size_t y = 0; y < static_cast<size_t>(bitmap.Height); ++y) {
        const unsigned char* const row = standin::BitmapRow(bitmap, y);
        pixels.insert(pixels.end(), row, row + rowBytes);
        if (invert)
            std::transform(pixels.end() - static_cast<ptrdiff_t>(rowBytes), pixels.end(),
                           pixels.end() - static_cast<ptrdiff_t>(rowBytes),
                           [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
        pixels.back() &= lastMask;
    }
    return pixels;
}

void Compare(const fuzz::Bytes& saved, const standin::LoadResult& loaded, int height) {
    fuzz::Require(loaded.Status == SUCCESS, "the load's status");
    fuzz::Require(loaded.DataStatus == 0, "the data is whole");
    fuzz::Require(loaded.Rows == height, "all rows come back");
    fuzz::Require(Packed(*loaded.Bitmap) == saved, "the pixels come back");
}

void ThroughFile(const fuzz::Stream& stream, _BITMAPHANDLE& bitmap, const standin::SaveOptions& how,
                 const fuzz::Bytes& coded) {
    const fuzz::NamedFile file({});
    fuzz::Require(standin::SaveFile(fuzz::TheFilter(), file.Name(), bitmap, how) == SUCCESS,
                  "the save's status");
    fuzz::Stream given = stream;
    given.Offset = 0;
    given.Flags = LOADINFO_ORIENTATION_1 | (how.ReverseBits ? LOADINFO_REVERSED_BITS : 0);
    const standin::Description description = standin::DescribeStream(fuzz::LoadInfoOf(given));
    standin::LoadOptions options;
    options.Batches = stream.Flags & 1;
    if (LosesItsEnd(stream.Format, std::filesystem::file_size(file.Name()), options.Batches))
        return;
    Compare(coded, standin::Load(fuzz::TheFilter(), file.Name(), description, options), bitmap.Height);
}

void ThroughBuffer(const fuzz::Stream& stream, const fuzz::Bytes& pixels) {
    _BITMAPINFOHEADER header{};
    header.Width = static_cast<int32_t>(stream.Width);
    header.Height = static_cast<int32_t>(stream.Height);
    header.BitsPerPixel = 1;
    const unsigned flags = stream.Flags & (FAX_REVERSE_BITS | FAX_BYTE_TRAILER | FAX_ALIGN_EOL);
    const bool offered = stream.Width <= MAX_BUFFER_WIDTH;
    fuzz::Bytes source = pixels;
    // A capacity that may be too small.
    fuzz::Bytes block(stream.Offset % 4 == 0 ? stream.Flags >> 4 : pixels.size() * 9 + 4096);
    block.reserve(1);
    unsigned long long length = block.size();
    const int saved =
        fltSaveBuffer(source.data(), &header, block.data(), &length, 0, flags, stream.Format, 0, 0);
    if (!offered)
        return fuzz::Require(saved == ERROR_INV_PARAMETER, "a width out of range is refused");
    if (saved == ERROR_BUFFER_TOO_SMALL)
        return fuzz::Require(length > block.size(), "only what does not fit is refused");
    fuzz::Require(saved == SUCCESS && length <= block.size(), "the save's status");
    if (LosesItsEnd(stream.Format, length, false))
        return;
    block.resize(length);
    block.shrink_to_fit();
    fuzz::Bytes loaded(pixels.size(), 0xA5);
    const int status =
        fltLoadBuffer(block.data(), length, loaded.data(), stream.Format, header.Width, header.Height, 0, 0,
                      (flags & FAX_REVERSE_BITS) != 0 ? LOADINFO_REVERSED_BITS : 0);
    fuzz::Require(status == SUCCESS && loaded == pixels, "the pixels come back from a block");
}

void ThroughBlocks(const fuzz::Stream& stream, _BITMAPHANDLE& bitmap, const standin::SaveOptions& how,
                   const fuzz::Bytes& coded, bool tiled) {
    standin::Blocks blocks;
    blocks.Tiled = tiled;
    blocks.Width = tiled ? 8u * (1 + stream.Offset % 32) : stream.Width;
    blocks.Height = 1 + (stream.Flags >> 8) % 64u;
    blocks.Padding = 2; // decoders look ahead
    if (uint64_t{stream.Width / blocks.Width + 1} * (stream.Height / blocks.Height + 1) > 12)
        return;
    fuzz::Require(standin::SaveBlocks(fuzz::TheFilter(), bitmap, how, blocks) == SUCCESS, "the blocks' save");
    fuzz::Stream given = stream;
    given.Offset = 0;
    given.Flags = LOADINFO_ORIENTATION_1 | (how.ReverseBits ? LOADINFO_REVERSED_BITS : 0);
    const standin::Description description = standin::DescribeStream(fuzz::LoadInfoOf(given));
    standin::LoadOptions options;
    options.Batches = stream.Flags & 1;
    for (const uint32_t byteCount : blocks.ByteCounts)
        if (LosesItsEnd(stream.Format, byteCount, options.Batches))
            return;
    Compare(coded, standin::LoadBlocks(fuzz::TheFilter(), description, blocks, false, options),
            bitmap.Height);
}

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    Stream stream = TakeStream(input);
    if (stream.Width == 0 || stream.Width > MAX_IMAGE_WIDTH || stream.Format == FORMAT_FAX_G4_HEADER)
        return;
    stream.Height = std::min(stream.Height, kMostRoundTripPixels / stream.Width);
    if (stream.Height == 0)
        return;
    const standin::BitmapPtr bitmap = PictureOf(stream, input.Rest());
    standin::SaveOptions how;
    how.Format = stream.Format;
    how.ReverseBits = (stream.Flags & 2) != 0;
    how.AlignEol = (stream.Choice & ALIGN_EOL) != 0;
    how.NoInvert = (stream.Choice & NO_INVERT) != 0;
    how.ConvertedCopy = (stream.Choice & CONVERTED) != 0;
    bitmap->YResolution = stream.Offset * 8;
    const bool inverted = (stream.Choice & INVERTED) != 0;
    if (inverted) {
        static constexpr _PALETTEENTRY kBlackAndWhite[] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
        K_SetBitmapNewPalette(bitmap.get(), kBlackAndWhite, bitmap->PaletteParam, 0);
    }
    // What the coder sees.
    const bool flipped = inverted && (how.ConvertedCopy || !how.NoInvert);
    switch (stream.Choice & ROAD) {
    case 0:
        return ThroughFile(stream, *bitmap, how, Packed(*bitmap, flipped));
    case 1:
        return ThroughBuffer(stream, Packed(*bitmap));
    case 2:
        return ThroughBlocks(stream, *bitmap, how, Packed(*bitmap, flipped), true);
    default:
        return ThroughBlocks(stream, *bitmap, how, Packed(*bitmap, flipped), false);
    }
}
