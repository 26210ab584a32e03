// Bitmaps of 1 bit per pixel. Rows are padded to 4 bytes and lie in one tracked block. The kernel keeps its
// address and the two palette entries in the record's Unused108.
#include "host/kernel.h"
#include "host/standin/fast/copy_row.h"
#include "host/standin/memory.h"
#include "host/standin/rows.h"
#include "host/standin/standin.h"

#include <algorithm>
#include <cstring>

namespace {

// Read and written by copying: the record is byte-packed, so these fields are not aligned in it.
struct OwnFields {
    unsigned char* Rows;
    _PALETTEENTRY Palette[2];
};
static_assert(sizeof(OwnFields) <= sizeof(_BITMAPHANDLE::Unused108));

OwnFields GetOwn(const _BITMAPHANDLE& bitmap) {
    OwnFields own{};
    std::memcpy(&own, bitmap.Unused108, sizeof own);
    return own;
}

void SetOwn(_BITMAPHANDLE& bitmap, const OwnFields& own) {
    std::memcpy(bitmap.Unused108, &own, sizeof own);
}

bool HasRow(const _BITMAPHANDLE* bitmap, unsigned row) {
    return bitmap && bitmap->Height > 0 && row < static_cast<unsigned>(bitmap->Height) &&
           standin::BitmapRow(*bitmap, row);
}

// Copies the first pixels of a packed row to a column of another one, leaving the pixels around it.
void PutPixels(unsigned char* row, size_t column, const unsigned char* source, size_t pixels) {
    const size_t shift = column % 8;
    unsigned char* target = row + column / 8;
    for (; pixels >= 8; pixels -= 8, ++target, ++source) {
        if (shift == 0) {
            const size_t bytes = pixels / 8;
            std::memcpy(target, source, bytes);
            target += bytes;
            source += bytes;
            pixels %= 8;
            break;
        }
        const auto left = static_cast<unsigned char>(0xFF >> shift);
        target[0] = static_cast<unsigned char>((target[0] & ~left) | *source >> shift);
        target[1] = static_cast<unsigned char>((target[1] & left) | *source << (8 - shift));
    }
    if (pixels == 0)
        return;
    const unsigned mask = (0xFF00u >> pixels & 0xFF) << 8 >> shift;
    const unsigned bits = static_cast<unsigned>(*source) << 8 >> shift & mask;
    target[0] = static_cast<unsigned char>((target[0] & ~(mask >> 8)) | bits >> 8);
    if ((mask & 0xFF) != 0)
        target[1] = static_cast<unsigned char>((target[1] & ~mask) | bits);
}

} // namespace

namespace standin {

void FreeBitmap::operator()(_BITMAPHANDLE* bitmap) const {
    K_FreeBitmap(bitmap);
    delete bitmap;
}

BitmapPtr MakeBitmapWithoutRows(unsigned width, int height) {
    static constexpr _PALETTEENTRY kWhiteAndBlack[] = {{255, 255, 255, 0}, {0, 0, 0, 0}};
    BitmapPtr bitmap(new _BITMAPHANDLE);
    K_InitBitmap(bitmap.get(), sizeof(_BITMAPHANDLE), static_cast<int>(width), height, 1);
    K_SetBitmapNewPalette(bitmap.get(), kWhiteAndBlack, bitmap->PaletteParam, -1);
    return bitmap;
}

BitmapPtr MakeBitmap(unsigned width, int height) {
    BitmapPtr bitmap = MakeBitmapWithoutRows(width, height);
    if (K_AllocateBitmap(bitmap.get(), BITMAP_MEMORY_KIND) != SUCCESS)
        return nullptr;
    return bitmap;
}

unsigned char* BitmapRow(const _BITMAPHANDLE& bitmap, size_t row) {
    unsigned char* const rows = GetOwn(bitmap).Rows;
    return rows ? rows + row * bitmap.BytesPerLine : nullptr;
}

bool IsInverted(const _BITMAPHANDLE& bitmap) {
    return bitmap.Palette && GetOwn(bitmap).Palette[0].Red == 0;
}

_BITMAPHANDLE BitmapRows(const _BITMAPHANDLE& bitmap, size_t firstRow, int rows) {
    _BITMAPHANDLE part = bitmap;
    OwnFields own = GetOwn(bitmap);
    if (own.Rows)
        own.Rows += firstRow * bitmap.BytesPerLine;
    SetOwn(part, own);
    part.Height = rows;
    return part;
}

} // namespace standin

extern "C" {

void K_InitBitmap(_BITMAPHANDLE* bitmap, unsigned recordSize, int width, int height, int bitsPerPixel) {
    _BITMAPHANDLE empty{};
    empty.Width = static_cast<uint32_t>(width);
    empty.Height = height;
    empty.BitsPerPixel = bitsPerPixel;
    const uint64_t bits = uint64_t{empty.Width} * static_cast<uint32_t>(std::max(bitsPerPixel, 0));
    empty.BytesPerLine = static_cast<uint32_t>((bits + 31) / 32 * 4);
    empty.Orientation = 1;
    // A caller's record may be shorter than the kernel's; one that claims to be longer has no more fields.
    std::memcpy(static_cast<void*>(bitmap), &empty, std::min<size_t>(recordSize, sizeof empty));
}

int K_AllocateBitmap(_BITMAPHANDLE* bitmap, int /*memoryKind*/) {
    if (!bitmap)
        return ERROR_NULL_PTR;
    if (bitmap->Height < 0 || (bitmap->Flags & BITMAP_ALLOCATED) != 0)
        return ERROR_INV_PARAMETER;
    const size_t bytes = size_t{bitmap->BytesPerLine} * static_cast<unsigned>(bitmap->Height);
    OwnFields own = GetOwn(*bitmap);
    own.Rows = static_cast<unsigned char*>(
        standin::AllocateTracked(bytes + standin::kRowSlack, true, __LINE__, "bitmap rows"));
    if (!own.Rows)
        return ERROR_NO_MEMORY;
    SetOwn(*bitmap, own);
    bitmap->Flags |= BITMAP_ALLOCATED;
    return SUCCESS;
}

int K_IntAccessBitmap(_BITMAPHANDLE* bitmap, int /*zero*/) {
    return bitmap && (bitmap->Flags & BITMAP_ALLOCATED) != 0 ? SUCCESS : ERROR_NULL_PTR;
}

int K_IntReleaseBitmap(_BITMAPHANDLE* /*bitmap*/, int /*one*/, int status) {
    return status;
}

void K_FreeBitmap(_BITMAPHANDLE* bitmap) {
    if (!bitmap || (bitmap->Flags & BITMAP_ALLOCATED) == 0)
        return;
    OwnFields own = GetOwn(*bitmap);
    standin::FreeTracked(own.Rows, __LINE__, "bitmap rows");
    own.Rows = nullptr;
    SetOwn(*bitmap, own);
    bitmap->Flags &= static_cast<uint8_t>(~BITMAP_ALLOCATED);
}

int K_SetBitmapNewPalette(_BITMAPHANDLE* bitmap, const _PALETTEENTRY* twoEntries, unsigned /*paletteParam*/,
                          int /*normal*/) {
    if (!bitmap || !twoEntries)
        return ERROR_NULL_PTR;
    OwnFields own = GetOwn(*bitmap);
    std::copy_n(twoEntries, 2, own.Palette);
    SetOwn(*bitmap, own);
    bitmap->Palette = bitmap->Unused108 + offsetof(OwnFields, Palette);
    return SUCCESS;
}

int K_GetBitmapRowCompressed(_BITMAPHANDLE* bitmap, unsigned char* /*work*/, unsigned short* runs,
                             unsigned row, unsigned rowCount) {
    for (; rowCount != 0; --rowCount, ++row) {
        if (!runs || !HasRow(bitmap, row))
            return ERROR_INV_PARAMETER;
        runs = standin::CompressRow(standin::BitmapRow(*bitmap, row), bitmap->Width, runs);
    }
    return SUCCESS;
}

int K_PutBitmapRowColCompressed(_BITMAPHANDLE* bitmap, unsigned char* work, const unsigned short* runs,
                                unsigned row, unsigned column, unsigned pixels) {
    if (!runs || !HasRow(bitmap, row) || column > bitmap->Width)
        return ERROR_INV_PARAMETER;
    pixels = std::min(pixels, bitmap->Width - column);
    unsigned char* const target = standin::BitmapRow(*bitmap, row);
    if (column % 8 == 0 && column + pixels == bitmap->Width) { // no pixels follow in the row
        standin::ExpandRow(runs, target + column / 8, pixels);
        return SUCCESS;
    }
    if (!work)
        return ERROR_NULL_PTR;
    standin::ExpandRow(runs, work, pixels);
    PutPixels(target, column, work, pixels);
    return SUCCESS;
}

} // extern "C"
