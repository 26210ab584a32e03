// Pictures from bitmaps: polarity by the palette, and the eight orientations as a transposition in
// blocks of 8 by 8 pixels, a reversal of each row and a reversal of the rows' order.
#include "tools/kfax/base/picture.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/kernel.h"

#include <algorithm>
#include <array>
#include <climits>
#include <new>
#include <stdexcept>
#include <string>

namespace kfax {

namespace {

constexpr auto kReversed = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned value = 0; value < 256; ++value)
        for (unsigned bit = 0; bit < 8; ++bit)
            if ((value >> bit & 1) != 0)
                table[value] |= static_cast<uint8_t>(0x80 >> bit);
    return table;
}();

void ClearPadding(Picture& picture) {
    if (picture.Width % 8 == 0)
        return;
    const auto mask = static_cast<uint8_t>(~(0xFF >> (picture.Width % 8)));
    for (size_t at = picture.RowBytes; at <= picture.Pixels.size(); at += picture.RowBytes)
        picture.Pixels[at - 1] &= mask;
}

void ReverseRowOrder(Picture& picture) {
    uint8_t* const rows = picture.Pixels.data();
    for (size_t top = 0, bottom = picture.Height; top + 1 < bottom; ++top) {
        --bottom;
        std::swap_ranges(rows + top * picture.RowBytes, rows + (top + 1) * picture.RowBytes,
                         rows + bottom * picture.RowBytes);
    }
}

// Eight rows' bytes as one word, first row on top, with rows and columns exchanged.
uint64_t TransposeBlock(uint64_t block) {
    uint64_t moved = (block ^ block >> 7) & 0x00AA00AA00AA00AA;
    block ^= moved ^ moved << 7;
    moved = (block ^ block >> 14) & 0x0000CCCC0000CCCC;
    block ^= moved ^ moved << 14;
    moved = (block ^ block >> 28) & 0x00000000F0F0F0F0;
    return block ^ moved ^ moved << 28;
}

// A picture of the bitmap's rows and columns exchanged.
Picture Transposed(const _BITMAPHANDLE& bitmap) {
    const size_t width = bitmap.Width;
    const size_t height = static_cast<size_t>(std::max(bitmap.Height, 0));
    Picture turned;
    turned.Width = height;
    turned.Height = width;
    turned.RowBytes = (turned.Width + 7) / 8;
    turned.XResolution = bitmap.YResolution;
    turned.YResolution = bitmap.XResolution;
    turned.Pixels.resize(turned.RowBytes * turned.Height);
    for (size_t y = 0; y < height; y += 8) {
        const unsigned char* rows[8];
        for (size_t i = 0; i < 8; ++i)
            rows[i] = y + i < height ? standin::BitmapRow(bitmap, y + i) : nullptr;
        for (size_t byte = 0; byte < (width + 7) / 8; ++byte) {
            uint64_t block = 0;
            for (const unsigned char* const row : rows)
                block = block << 8 | (row ? row[byte] : 0u);
            block = TransposeBlock(block);
            for (size_t i = 0; i < 8 && byte * 8 + i < width; ++i)
                turned.Pixels[(byte * 8 + i) * turned.RowBytes + y / 8] =
                    static_cast<uint8_t>(block >> (56 - 8 * i));
        }
    }
    return turned;
}

Picture Copied(const _BITMAPHANDLE& bitmap) {
    Picture picture;
    picture.Width = bitmap.Width;
    picture.Height = static_cast<size_t>(std::max(bitmap.Height, 0));
    picture.RowBytes = (picture.Width + 7) / 8;
    picture.XResolution = bitmap.XResolution;
    picture.YResolution = bitmap.YResolution;
    picture.Pixels.reserve(picture.RowBytes * picture.Height);
    for (size_t y = 0; y < picture.Height; ++y) {
        const unsigned char* const row = standin::BitmapRow(bitmap, y);
        picture.Pixels.insert(picture.Pixels.end(), row, row + picture.RowBytes);
    }
    return picture;
}

} // namespace

void Invert(Picture& picture) {
    for (uint8_t& byte : picture.Pixels)
        byte = static_cast<uint8_t>(~byte);
    ClearPadding(picture);
}

void MirrorRows(Picture& picture) {
    const size_t padding = picture.RowBytes * 8 - picture.Width;
    for (size_t y = 0; y < picture.Height; ++y) {
        uint8_t* const row = picture.Pixels.data() + y * picture.RowBytes;
        std::reverse(row, row + picture.RowBytes);
        unsigned bits = kReversed[row[0]];
        for (size_t i = 0; i < picture.RowBytes; ++i) {
            bits = bits << 8 | (i + 1 < picture.RowBytes ? kReversed[row[i + 1]] : 0u);
            row[i] = static_cast<uint8_t>(bits << padding >> 8);
        }
    }
}

void MakeSquare(Picture& picture, MemoryShare& memory) {
    if (picture.XResolution <= 0 || picture.YResolution <= 0 || picture.XResolution == picture.YResolution)
        return;
    const auto across = static_cast<uint64_t>(picture.XResolution);
    const auto down = static_cast<uint64_t>(picture.YResolution);
    const uint64_t height = std::max<uint64_t>((picture.Height * across + down / 2) / down, 1);
    if (height > INT_MAX)
        throw std::runtime_error("the picture would have too many lines with square pixels; see whether its "
                                 "resolution is true (--dpi)");
    memory.Add(2 * picture.RowBytes * height); // and of what becomes of it
    std::vector<uint8_t> pixels(picture.RowBytes * height);
    for (uint64_t y = 0; y < height; ++y) {
        const uint64_t first = std::min<uint64_t>(y * down / across, picture.Height - 1);
        // The last row takes what rounding leaves over.
        const uint64_t next =
            y + 1 == height ? picture.Height : std::min<uint64_t>((y + 1) * down / across, picture.Height);
        uint8_t* const row = pixels.data() + y * picture.RowBytes;
        for (uint64_t source = first; source < std::max(first + 1, next); ++source) {
            const uint8_t* const from = picture.Pixels.data() + source * picture.RowBytes;
            for (size_t i = 0; i < picture.RowBytes; ++i)
                row[i] |= from[i];
        }
    }
    picture.Pixels = std::move(pixels);
    picture.Height = height;
    picture.YResolution = picture.XResolution;
}

Picture UprightPicture(const _BITMAPHANDLE& bitmap) {
    const int orientation = bitmap.Orientation;
    const bool turned = orientation >= 5 && orientation <= 8;
    Picture picture = turned ? Transposed(bitmap) : Copied(bitmap);
    if (standin::IsInverted(bitmap))
        Invert(picture);

    // Where the first row and the first column of the stored image belong.
    if (orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7)
        MirrorRows(picture);
    if (orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8)
        ReverseRowOrder(picture);
    return picture;
}

standin::BitmapPtr MakePictureBitmap(uint64_t width, uint64_t height) {
    static constexpr _PALETTEENTRY kBlackAndWhite[] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
    if (width == 0 || height == 0)
        throw std::runtime_error("the picture has no pixels; make it again");
    if (width > MAX_IMAGE_WIDTH)
        throw std::runtime_error("the picture is " + std::to_string(width) + " pixels wide; at most " +
                                 std::to_string(MAX_IMAGE_WIDTH) + " can be saved; cut or shrink it");
    if (height > INT_MAX)
        throw std::runtime_error("the picture has too many lines; cut it");
    standin::BitmapPtr bitmap = standin::MakeBitmap(static_cast<unsigned>(width), static_cast<int>(height));
    if (!bitmap)
        throw std::bad_alloc();
    K_SetBitmapNewPalette(bitmap.get(), kBlackAndWhite, bitmap->PaletteParam, 0);
    return bitmap;
}

standin::BitmapPtr BitmapOfPicture(const Picture& picture) {
    standin::BitmapPtr bitmap = MakePictureBitmap(picture.Width, picture.Height);
    bitmap->XResolution = picture.XResolution;
    bitmap->YResolution = picture.YResolution;
    for (size_t y = 0; y < picture.Height; ++y) {
        const uint8_t* const source = picture.Pixels.data() + y * picture.RowBytes;
        std::transform(source, source + picture.RowBytes, standin::BitmapRow(*bitmap, y),
                       [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
    }
    return bitmap;
}

} // namespace kfax
