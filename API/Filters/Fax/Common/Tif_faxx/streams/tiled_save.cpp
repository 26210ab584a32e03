// Saves a bitmap as a grid of tiles, each a complete stream of its own, one after another.
//
// Tile columns start on byte boundaries: the tile of column k takes bytes k * T .. k * T + T - 1 of each row,
// T the bytes of a tile row. What lies outside the image is white.
#include "API/Filters/Fax/Common/Tif_faxx/encode/line_encoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/save_session.h"

#include <algorithm>
#include <cstring>

namespace faxx {
namespace {

// The tile's part of a row buffer.
struct TileBytes {
    unsigned char* data;
    uint64_t firstPixel;
    uint32_t count;
};

// Makes every pixel at or beyond width white.
void ClearPadding(const TileBytes& bytes, uint32_t width) {
    const uint64_t pixels = width > bytes.firstPixel ? width - bytes.firstPixel : 0;
    if (pixels >= uint64_t{bytes.count} * 8)
        return;
    const uint32_t whole = static_cast<uint32_t>(pixels / 8);
    bytes.data[whole] = static_cast<unsigned char>(bytes.data[whole] & ~(0xFFu >> pixels % 8));
    std::memset(bytes.data + whole + 1, 0, bytes.count - whole - 1);
}

struct TileRows {
    _SAVEDISPATCH* dispatch;
    _BITMAPHANDLE* saveBitmap;
    _SAVEFILESTRUCT* saveFile;
    unsigned char* rowBuffer;
    bool invert;
    TileBytes bytes;
};

// Fetches image row y and brings the tile's bytes of it to the codec's polarity.
int FetchRow(const TileRows& rows, uint64_t y) {
    const uint32_t height = rows.saveBitmap->Height > 0 ? static_cast<uint32_t>(rows.saveBitmap->Height) : 0;
    if (y >= height) {
        std::memset(rows.bytes.data, 0, rows.bytes.count);
        return SUCCESS;
    }
    _SAVEDISPATCH* dispatch = rows.dispatch;
    const bool bottomUp = dispatch->Bitmap && dispatch->Bitmap->Orientation == ORIENTATION_BOTTOM_UP;
    const int status = dispatch->GetRowCallback(dispatch->Bitmap, rows.saveBitmap, rows.rowBuffer,
                                                static_cast<unsigned>(bottomUp ? height - 1 - y : y), 1,
                                                dispatch->CallbackParam, dispatch->UserData1,
                                                dispatch->UserData2, rows.saveFile);
    if (status != SUCCESS)
        return status;
    if (rows.invert)
        InvertBits(rows.bytes.data, rows.bytes.count);
    ClearPadding(rows.bytes, rows.saveBitmap->Width);
    return SUCCESS;
}

struct TiledSave {
    SaveSession& session;
    CCITTG34& codec;
    tagHANDLE* handle = nullptr;
    _FAXTILEINFO* tile = nullptr;
    unsigned char* uncompressed = nullptr;
    unsigned gap = 0;
    unsigned format = 0;
    unsigned flags = 0;
    unsigned char* rowBuffer = nullptr;
    uint32_t tilesAcross = 0;
    uint32_t tilesDown = 0;
    uint32_t tileRowBytes = 0;

    uint64_t TileCount() const { return uint64_t{tilesAcross} * tilesDown; }
};

int SaveTile(TiledSave& save, uint32_t tileRow, uint32_t column) {
    const uint32_t index = tileRow * save.tilesAcross + column;
    uint32_t* const size = save.tile->TileByteCounts ? save.tile->TileByteCounts + index : nullptr;
    const auto put = [&](int compress) {
        return SaveFaxTile(save.session.dispatch, save.handle, &save.codec, static_cast<int>(save.format),
                           save.tile, save.flags, tileRow * save.tile->TileHeight, column * save.tileRowBytes,
                           save.tileRowBytes, save.session.saveFile->NoInvert == 0, size,
                           save.session.saveBitmap, save.session.saveFile, save.rowBuffer, compress);
    };
    if (save.gap != 0)
        K_RedirectedSeek(save.handle, save.gap, 1);
    int status = put(1);
    if (status != SUCCESS || !save.uncompressed ||
        *size <= uint64_t{save.tile->TileHeight} * save.tileRowBytes)
        return status;

    // Compression made it larger: its rows take the stream's place.
    K_RedirectedSeek(save.handle, -static_cast<long long>(*size), 1);
    save.uncompressed[index] = 1;
    status = put(0);
    if (status == SUCCESS)
        K_RedirectedWrite(save.handle, save.rowBuffer, 0);
    return status;
}

int SaveTiles(TiledSave& save) {
    for (uint32_t tileRow = 0; tileRow < save.tilesDown; ++tileRow)
        for (uint32_t column = 0; column < save.tilesAcross; ++column) {
            const int status = SaveTile(save, tileRow, column);
            if (status != SUCCESS)
                return status;
        }
    if (save.tile->TileOffsets)
        for (uint32_t i = 0; i + 1 < save.TileCount(); ++i)
            save.tile->TileOffsets[i + 1] =
                save.tile->TileOffsets[i] + save.gap + save.tile->TileByteCounts[i];
    return SUCCESS;
}

uint32_t CeilDivide(uint32_t value, uint32_t divisor) {
    return static_cast<uint32_t>((uint64_t{value} + divisor - 1) / divisor);
}

} // namespace
} // namespace faxx

int SaveFaxTile(_SAVEDISPATCH* dispatch, tagHANDLE* handle, CCITTG34* codec, int format, _FAXTILEINFO* tile,
                unsigned flags, unsigned firstRow, unsigned byteOffset, unsigned byteCount, int invert,
                unsigned* tileSize, _BITMAPHANDLE* saveBitmap, _SAVEFILESTRUCT* saveFile,
                unsigned char* rowBuffer, int compress) {
    using namespace faxx;
    const unsigned number = static_cast<unsigned>(format);
    if (compress && InitEncodeG34(dispatch, codec, number, tile->TileWidth, flags, handle) != 0)
        return ERROR_NO_MEMORY;
    const TileRows rows{dispatch,    saveBitmap,
                        saveFile,    rowBuffer,
                        invert != 0, {rowBuffer + byteOffset, uint64_t{byteOffset} * 8, byteCount}};
    LineEncoder* encode = LineEncoderFor(number);
    int status = SUCCESS;
    for (uint32_t row = 0; row < tile->TileHeight; ++row) {
        status = FetchRow(rows, uint64_t{firstRow} + row);
        if (status != SUCCESS)
            break;
        if (compress) {
            encode(codec, rows.bytes.data);
            encode = NextLineEncoder(codec, encode);
        } else if (K_RedirectedWrite(handle, rows.bytes.data, byteCount) != static_cast<int>(byteCount)) {
            return ERROR_FILE_WRITE;
        }
    }
    if (compress)
        QuitEncodeG34(codec);
    if (tileSize)
        *tileSize = compress ? codec->TotalBytes : byteCount * tile->TileHeight;
    if (compress && status == SUCCESS && codec->WriteStatus == WRITE_STATUS_SHORT)
        status = ERROR_FILE_WRITE;
    return status;
}

int K_SaveTiledFax(_SAVEDISPATCH* dispatch, tagHANDLE* handle, _BITMAPHANDLE* bitmap, _FAXTILEINFO* tile,
                   unsigned char* uncompressed, unsigned gap, int bitsPerPixel, unsigned format,
                   unsigned callbackParam, void* userData1, void* userData2, unsigned* lastSize,
                   unsigned flags) {
    using namespace faxx;
    if (!dispatch || !bitmap || !tile || bitsPerPixel != 1 || tile->TileWidth > MAX_IMAGE_WIDTH)
        return ERROR_NULL_PTR;
    if (tile->TileWidth == 0 || tile->TileHeight == 0)
        return ERROR_INV_PARAMETER;
    if (uncompressed && !tile->TileByteCounts)
        return ERROR_NULL_PTR;

    SaveSession session{dispatch, bitmap, callbackParam, userData1, userData2, false};
    CCITTG34 codec{};
    Buffer<unsigned char> rowBuffer;
    Buffer<uint32_t> ownByteCounts;
    OnUnwind endSession([&] { session.End(); });
    OnUnwind dropEncoder([&] { DropEncoder(&codec); });
    OnUnwind dropByteCounts([&] {
        if (ownByteCounts.data)
            tile->TileByteCounts = nullptr;
    });
    const auto finish = [&](int status) {
        dropEncoder.Disarm();
        endSession.Disarm();
        session.End();
        rowBuffer.Release();
        if (ownByteCounts.data) {
            tile->TileByteCounts = nullptr;
            ownByteCounts.Release();
        }
        dropByteCounts.Disarm();
        return status;
    };

    const int started = session.Start();
    if (started <= 0)
        return finish(started);
    dispatch->CallbackParam = session.callbackParam;

    const _BITMAPHANDLE* image = session.saveBitmap;
    TiledSave save{session, codec, handle, tile, uncompressed, gap, format, flags};
    save.tilesAcross = CeilDivide(image->Width, tile->TileWidth);
    save.tilesDown =
        CeilDivide(image->Height > 0 ? static_cast<uint32_t>(image->Height) : 0, tile->TileHeight);
    save.tileRowBytes = (tile->TileWidth + 7) / 8;
    if (save.TileCount() > UINT32_MAX)
        return finish(ERROR_INV_PARAMETER);
    const size_t stripBytes = size_t{save.tilesAcross} * save.tileRowBytes;
    const size_t bitmapRowBytes = dispatch->Bitmap ? dispatch->Bitmap->BytesPerLine : 0;
    if (!rowBuffer.Allocate(std::max(stripBytes, bitmapRowBytes)))
        return finish(ERROR_NO_MEMORY);
    save.rowBuffer = rowBuffer.data;
    std::memset(save.rowBuffer, session.saveFile->NoInvert ? 0x00 : 0xFF, stripBytes);

    if (tile->TileOffsets) {
        if (!tile->TileByteCounts) {
            if (!ownByteCounts.Allocate(save.TileCount()))
                return finish(ERROR_NO_MEMORY);
            tile->TileByteCounts = ownByteCounts.data;
        }
        const long long position = K_RedirectedSeek(handle, 0, 1);
        if (save.TileCount() != 0)
            tile->TileOffsets[0] = static_cast<uint32_t>(position) + gap;
    }
    if (uncompressed)
        std::memset(uncompressed, 0, save.TileCount());

    const int status = SaveTiles(save);
    QuitEncodeG34(&codec);
    if (lastSize)
        *lastSize = codec.TotalBytes;
    return finish(status);
}
