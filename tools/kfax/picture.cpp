// Pictures from bitmaps: polarity by the palette, and the eight orientations as a transposition in
// blocks of 8 by 8 pixels, a reversal of each row and a reversal of the rows' order.
#include "tools/kfax/picture.h"

#include "tools/kfax/picture_input.h"

#include <algorithm>
#include <array>
#include <cstring>

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

void Transpose(Picture& picture) {
    Picture turned;
    turned.Width = picture.Height;
    turned.Height = picture.Width;
    turned.RowBytes = (turned.Width + 7) / 8;
    turned.XResolution = picture.YResolution;
    turned.YResolution = picture.XResolution;
    turned.Pixels.resize(turned.RowBytes * turned.Height);
    for (size_t y = 0; y < picture.Height; y += 8)
        for (size_t byte = 0; byte < picture.RowBytes; ++byte) {
            uint64_t block = 0;
            for (size_t i = 0; i < 8; ++i)
                block = block << 8 |
                        (y + i < picture.Height ? picture.Pixels[(y + i) * picture.RowBytes + byte] : 0u);
            block = TransposeBlock(block);
            for (size_t i = 0; i < 8 && byte * 8 + i < turned.Height; ++i)
                turned.Pixels[(byte * 8 + i) * turned.RowBytes + y / 8] =
                    static_cast<uint8_t>(block >> (56 - 8 * i));
        }
    picture = std::move(turned);
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

Picture UprightPicture(const _BITMAPHANDLE& bitmap) {
    Picture picture;
    picture.Width = bitmap.Width;
    picture.Height = static_cast<size_t>(std::max(bitmap.Height, 0));
    picture.RowBytes = (picture.Width + 7) / 8;
    picture.XResolution = bitmap.XResolution;
    picture.YResolution = bitmap.YResolution;
    picture.Pixels.resize(picture.RowBytes * picture.Height);
    for (size_t y = 0; y < picture.Height; ++y)
        std::memcpy(picture.Pixels.data() + y * picture.RowBytes, standin::BitmapRow(bitmap, y),
                    picture.RowBytes);
    if (standin::IsInverted(bitmap))
        Invert(picture);

    // Where the first row and the first column of the stored image belong.
    const int orientation = bitmap.Orientation;
    if (orientation >= 5 && orientation <= 8)
        Transpose(picture);
    if (orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7)
        MirrorRows(picture);
    if (orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8)
        ReverseRowOrder(picture);
    return picture;
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
