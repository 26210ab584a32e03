// Loads an image that a container stores as a grid of separately compressed tiles, or as a column of strips.
//
// With one column, a strip's rows go to the row callback as they are decoded. With several, the tiles of a
// tile row are put side by side in a work bitmap of TileHeight rows, and the assembled rows go on from there.
#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/decoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/cleanup.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/description.h"

#include <algorithm>
#include <cstring>

namespace faxx {
namespace {

// The words of a row are at most so many more than its pixels: RunCount, and a run more than changes.
constexpr uint32_t kMostExtraWords = 3;

// The arguments and working storage of one call.
struct TiledLoad {
    _LOADDISPATCH* dispatch;
    tagHANDLE* handle;
    _LOADINFO* loadInfo;
    _FAXTILEINFO* tiles;
    _FILEINFOA* fileInfo;
    _BITMAPHANDLE* bitmap;
    RowCallbackFn* rowCallback;
    void* userData;
    const uint8_t* uncompressedTiles;

    // Of the image, taken once: a callback may change the bitmap, and the work areas would not fit it.
    uint32_t width = 0;
    uint32_t height = 0;
    LineDecoder* decode = nullptr;
    uint32_t batch = 0;
    uint32_t tilesAcross = 0;
    uint32_t tilesDown = 0;
    uint32_t tileRowBytes = 0;

    CCITTG34 codec{};
    _BITMAPHANDLE work{};
    Buffer<uint8_t> row{};
    Buffer<unsigned short> runs{};

    uint32_t delivered = 0; // rows handed to the callback
    bool workReleased = false;
    bool workFreed = false;
};

// Where a tile's rows come from.
enum class Source : uint8_t { White, Packed, Compressed };

struct Tile {
    uint32_t column;
    uint32_t rows;
    Source source;
    uint32_t width; // pixels that it contributes to a row of the image
};

unsigned BatchFlags(const TiledLoad& load, bool last) {
    return ROWS_ALWAYS | (load.delivered == 0 ? ROWS_FIRST_BATCH : 0) | (last ? ROWS_LAST_BATCH : 0);
}

int Deliver(TiledLoad& load, uint32_t rowCount, bool last) {
    const int result =
        load.rowCallback(load.fileInfo, load.bitmap, load.runs.data, BatchFlags(load, last),
                         static_cast<int>(load.delivered), static_cast<int>(rowCount), load.userData);
    load.delivered += rowCount;
    return result;
}

// Whether the image is complete with so many more rows.
bool Completes(const TiledLoad& load, uint32_t rowCount) {
    return static_cast<int64_t>(load.delivered) + rowCount == load.fileInfo->Height;
}

// Stands at the tile's data and sets the decoder up for it where it needs one.
int OpenTile(TiledLoad& load, uint32_t index, Source* source) {
    const _FAXTILEINFO& tiles = *load.tiles;
    const bool listed = index < tiles.TileCount;
    uint32_t byteCount = 0;
    if (listed) {
        K_RedirectedSeek(load.handle, load.loadInfo->Offset + tiles.TileOffsets[index], 0);
        byteCount = tiles.TileByteCounts[index];
    }
    // A single tile may come without its size: it is decoded to its end.
    const bool hasData = byteCount != 0 || tiles.TileCount == 1;
    const bool packed = listed && load.uncompressedTiles && load.uncompressedTiles[index];
    *source = !hasData ? Source::White : packed ? Source::Packed : Source::Compressed;
    if (*source != Source::Compressed)
        return SUCCESS;
    const _LOADINFO& info = *load.loadInfo;
    return SetUpDecoder(load.dispatch, &load.codec, static_cast<unsigned>(info.Format), tiles.TileWidth,
                        ReversedBits(info.Flags), load.handle, load.dispatch->Flags & LOADDISPATCH_BATCHES,
                        byteCount);
}

// Puts the tile's next rows, left at most, at the start of the run buffer; *got is 0 where a decoder has no
// more.
int ProduceRows(TiledLoad& load, const Tile& tile, uint32_t left, uint32_t* got) {
    unsigned short* rows = load.runs.data;
    *got = 1;
    switch (tile.source) {
    case Source::White:
        WriteWhiteRow(&rows, load.tiles->TileWidth);
        return SUCCESS;
    case Source::Packed: {
        if (K_RedirectedRead(load.handle, load.row.data, load.tileRowBytes) !=
            static_cast<int>(load.tileRowBytes))
            return ERROR_FILE_READ;
        const int status = K_CompressRow(rows, load.row.data, 0, tile.width);
        return status < SUCCESS ? status : static_cast<int>(SUCCESS);
    }
    case Source::Compressed:
        break;
    }
    *got = load.decode(&load.codec, rows, std::min(left, load.batch));
    if (load.codec.DecodeStatus == DECODE_STATUS_NO_DATA)
        load.dispatch->Status = ERROR_FILE_READ;
    else if (load.codec.DecodeStatus != DECODE_STATUS_OK)
        load.dispatch->Status = ERROR_FAX_DATA_CORRUPT;
    if (*got == 0)
        load.dispatch->Status = ERROR_FAX_DATA_CORRUPT;
    return SUCCESS;
}

// Visits each of rowCount rows: its RunCount, its runs. RunCount may be lowered.
template <typename Visit>
void ForEachRow(unsigned short* rows, uint32_t rowCount, Visit visit) {
    for (uint32_t i = 0; i < rowCount; ++i) {
        uint32_t runCount;
        std::memcpy(&runCount, rows, sizeof runCount);
        unsigned short* const next = rows + kRowHeaderWords + runCount;
        visit(rows, runCount);
        rows = next;
    }
}

// Ends a row at width pixels: the run that reaches it is shortened, the runs after it are dropped.
void CutRow(unsigned short* row, uint32_t runCount, uint32_t width) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < runCount; ++i) {
        unsigned short& run = row[kRowHeaderWords + i];
        if (sum + run >= width) {
            run = static_cast<unsigned short>(width - sum);
            const uint32_t kept = i + 1;
            std::memcpy(row, &kept, sizeof kept);
            return;
        }
        sum += run;
    }
}

void PutRow(TiledLoad& load, const Tile& tile, const unsigned short* row, uint32_t y) {
    K_PutBitmapRowColCompressed(&load.work, load.row.data, row, y, tile.column * load.tiles->TileWidth,
                                tile.width);
}

// Several columns: the rows go side by side into the work bitmap.
void PutRows(TiledLoad& load, const Tile& tile, uint32_t firstRow, uint32_t rowCount) {
    const bool lastColumn = tile.column + 1 == load.tilesAcross;
    uint32_t y = firstRow;
    ForEachRow(load.runs.data, rowCount, [&](unsigned short* row, uint32_t runCount) {
        if (lastColumn)
            CutRow(row, runCount, tile.width);
        PutRow(load, tile, row, y++);
    });
}

// What a damaged tile did not give is white.
void PutMissingRows(TiledLoad& load, const Tile& tile, uint32_t firstRow) {
    for (uint32_t y = firstRow; y < tile.rows; ++y) {
        unsigned short* end = load.runs.data;
        WriteWhiteRow(&end, tile.width);
        PutRow(load, tile, load.runs.data, y);
    }
}

// One column: the rows are the image's. *ends is set where the load is over with them.
int DeliverStripRows(TiledLoad& load, const Tile& tile, uint32_t rowCount, bool* ends) {
    if (load.width < load.tiles->TileWidth && tile.source != Source::Packed)
        ShortenRunLengthWidths(load.runs.data, load.tiles, load.fileInfo, rowCount);
    *ends = load.codec.DecodeStatus != DECODE_STATUS_OK;
    return Deliver(load, rowCount, *ends || Completes(load, rowCount));
}

// Carries one tile through. A status other than SUCCESS, or *ends, is the end of the load.
int LoadTile(TiledLoad& load, const Tile& tile, bool* ends) {
    const bool strip = load.tilesAcross == 1;
    uint32_t done = 0;
    while (done < tile.rows) {
        uint32_t got = 0;
        int status = ProduceRows(load, tile, tile.rows - done, &got);
        if (status != SUCCESS)
            return status;
        if (got == 0)
            break;
        if (strip) {
            status = DeliverStripRows(load, tile, got, ends);
            if (status != SUCCESS || *ends)
                return status;
        } else {
            PutRows(load, tile, done, got);
        }
        done += got;
    }
    if (!strip)
        PutMissingRows(load, tile, done);
    QuitDecodeG34(&load.codec, 0);
    return SUCCESS;
}

// Several columns: hands the assembled rows of a tile row on, in chunks that fit the run buffer.
int DeliverTileRow(TiledLoad& load, uint32_t tileRows) {
    const uint32_t rows = std::min(load.height - load.delivered, tileRows);
    const uint32_t chunk =
        std::max(1u, static_cast<uint32_t>(kRowWords / (uint64_t{load.width} + kMostExtraWords)));
    for (uint32_t first = 0; first < rows; first += chunk) {
        const uint32_t count = std::min(rows - first, chunk);
        K_GetBitmapRowCompressed(&load.work, load.row.data, load.runs.data, first, count);
        const int status = Deliver(load, count, Completes(load, count));
        if (status != SUCCESS)
            return status;
    }
    return SUCCESS;
}

int LoadTiles(TiledLoad& load) {
    const _FAXTILEINFO& tiles = *load.tiles;
    for (uint32_t tileRow = 0; tileRow < load.tilesDown; ++tileRow) {
        uint32_t rows = std::min(load.height - tileRow * tiles.TileHeight, tiles.TileHeight);
        bool lastStrip = false;
        for (uint32_t column = 0; column < load.tilesAcross; ++column) {
            const uint32_t index = tileRow * load.tilesAcross + column;
            const uint32_t width = std::min(load.width - column * tiles.TileWidth, tiles.TileWidth);
            Tile tile{column, rows, Source::White, width};
            int status = OpenTile(load, index, &tile.source);
            if (status != SUCCESS)
                return status;
            // The last listed strip supplies all the rows that are still missing.
            if (load.tilesAcross == 1 && index + 1 >= tiles.TileCount && load.height > load.delivered) {
                rows = tile.rows = load.height - load.delivered;
                lastStrip = true;
            }
            bool ends = false;
            status = LoadTile(load, tile, &ends);
            if (status != SUCCESS || ends)
                return status;
        }
        if (load.tilesAcross > 1) {
            const int status = DeliverTileRow(load, rows);
            if (status != SUCCESS)
                return status;
        }
        if (lastStrip)
            break;
    }
    // The kernel always hears the end.
    if (static_cast<int64_t>(load.delivered) < load.fileInfo->Height)
        return Deliver(load, 0, true);
    return SUCCESS;
}

// Takes the working storage and prepares the target. An exception here leaves the call.
int SetUp(TiledLoad& load) {
    const _FAXTILEINFO& tiles = *load.tiles;
    _BITMAPHANDLE* bitmap = load.bitmap;
    load.tilesAcross = (tiles.TileWidth + load.width - 1) / tiles.TileWidth;
    load.tileRowBytes = (tiles.TileWidth + 7) / 8;
    if (load.tilesAcross != 0) {
        int status = K_AllocateBitmap(&load.work, BITMAP_MEMORY_KIND);
        if (status == SUCCESS)
            status = K_IntAccessBitmap(&load.work, 0);
        if (status != SUCCESS)
            return status;
        if (!load.row.Allocate(std::max(load.tileRowBytes, load.work.BytesPerLine)))
            return ERROR_NO_MEMORY;
    }
    ApplyDescription(load.loadInfo, bitmap);
    if (!bitmap->Palette)
        SetBitmapPalette(load.dispatch, load.loadInfo, bitmap);
    if (!load.runs.Allocate(std::max<size_t>(kRowWords, size_t{load.width} + kMostExtraWords)))
        return ERROR_NO_MEMORY;

    load.decode = LineDecoderFor(static_cast<uint32_t>(load.loadInfo->Format));
    load.batch = load.dispatch->Flags & LOADDISPATCH_BATCHES ? kBatchLines : kAllLines;
    load.height = bitmap->Height > 0 ? static_cast<uint32_t>(bitmap->Height) : 0;
    load.tilesDown = (tiles.TileHeight + load.height - 1) / tiles.TileHeight;
    return SUCCESS;
}

// A call's clean-up; what was released already is left out. The release of the work bitmap has the last word
// on the result; what throws there ends the clean-up with the result as it is.
int ReleaseTiledLoad(TiledLoad& load, int result) {
    RunGuarded([&] { QuitDecodeG34(&load.codec, 1); });
    RunGuarded([&] { load.runs.Release(); });
    RunGuarded([&] { load.row.Release(); });
    if (!(load.work.Flags & BITMAP_ALLOCATED))
        return result;
    RunGuarded([&] {
        if (!std::exchange(load.workReleased, true))
            result = K_IntReleaseBitmap(&load.work, 1, result);
        if (!std::exchange(load.workFreed, true))
            K_FreeBitmap(&load.work);
    });
    return result;
}

} // namespace
} // namespace faxx

void ShortenRunLengthWidths(unsigned short* rows, _FAXTILEINFO* tileInfo, _FILEINFOA* fileInfo,
                            unsigned rowCount) {
    using namespace faxx;
    if (!rows || tileInfo->TileWidth <= fileInfo->Width)
        return;
    ForEachRow(rows, rowCount, [&](unsigned short* row, uint32_t runCount) {
        uint32_t excess = tileInfo->TileWidth - fileInfo->Width;
        for (uint32_t i = runCount; i-- > 0 && excess != 0;) {
            unsigned short& run = row[kRowHeaderWords + i];
            const uint32_t cut = std::min<uint32_t>(run, excess);
            run = static_cast<unsigned short>(run - cut);
            excess -= cut;
        }
    });
}

int K_LoadTiledFax(_LOADDISPATCH* dispatch, tagHANDLE* handle, _LOADINFO* loadInfo, _FAXTILEINFO* tileInfo,
                   _FILEINFOA* fileInfo, _BITMAPHANDLE* bitmap, RowCallbackFn* rowCallback, int bitsPerPixel,
                   void* userData, unsigned char* uncompressedTiles) {
    using namespace faxx;
    if (!dispatch || !fileInfo || !loadInfo || !tileInfo || !bitmap || !rowCallback)
        return ERROR_NULL_PTR;
    if (tileInfo->TileWidth > MAX_IMAGE_WIDTH || tileInfo->TileWidth == 0 || tileInfo->TileHeight == 0)
        return ERROR_INV_PARAMETER;

    TiledLoad load{dispatch, handle,      loadInfo, tileInfo,          fileInfo,
                   bitmap,   rowCallback, userData, uncompressedTiles, bitmap->Width};
    K_InitBitmap(&load.work, BITMAP_RECORD_SIZE, static_cast<int>(load.width),
                 static_cast<int>(tileInfo->TileHeight), 1);
    OnUnwind release([&] { ReleaseTiledLoad(load, ERROR_EXCEPTION); });

    int result = ERROR_NULL_PTR;
    if (bitsPerPixel == 1 && tileInfo->TileOffsets)
        result = SetUp(load);
    if (result == SUCCESS && !RunGuarded([&] { result = LoadTiles(load); }))
        result = ERROR_EXCEPTION;
    result = ReleaseTiledLoad(load, result);
    release.Disarm();
    return result;
}
