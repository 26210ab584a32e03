// Images that a container keeps as strips or tiles: K_LoadTiledFax and K_SaveTiledFax on a block of memory.
//
// One call loads a whole image. In a column of strips a damaged one ends the load, or shifts the rows of
// the strips behind it: such an image is loaded again, strip by strip, each into its own rows. The saver
// completes the last row of blocks with white rows; a strip must not have these, so a last strip with fewer
// rows is saved on its own.
#include "host/kernel.h"
#include "host/standin/memory_handle.h"
#include "host/standin/row_target.h"
#include "host/standin/standin.h"

#include <algorithm>
#include <cstring>

namespace standin {

namespace {

struct BlockLoad {
    const Filter& ToolFilter;
    tagHANDLE* Handle;
    Blocks& Source;
    std::vector<unsigned char> Uncompressed; // empty: none
    RowTarget Target;
    Padded<_LOADDISPATCH> Dispatch;
    Padded<_FILEINFOA> FileInfo;
};

// Loads count blocks from first on into bitmap.
int LoadSome(BlockLoad& load, _BITMAPHANDLE& bitmap, size_t first, size_t count) {
    _FAXTILEINFO tiles{};
    tiles.TileWidth = load.Source.Width;
    tiles.TileHeight = load.Source.Height;
    tiles.TileOffsets = load.Source.Offsets.data() + first;
    tiles.TileByteCounts = load.Source.ByteCounts.data() + first;
    tiles.TileCount = static_cast<uint32_t>(count);
    load.FileInfo.Declared.Height = bitmap.Height;
    load.Target.Bitmap = load.Target.Bitmap ? &bitmap : nullptr;
    load.Target.Rows = 0;
    load.Dispatch.Declared.Bitmap = &bitmap;
    load.Dispatch.Declared.Status = 0;
    unsigned char* const uncompressed =
        load.Uncompressed.empty() ? nullptr : load.Uncompressed.data() + first;
    return load.ToolFilter.LoadTiled(&load.Dispatch.Declared, load.Handle, &load.Dispatch.Declared.LoadInfo,
                                     &tiles, &load.FileInfo.Declared, &bitmap, ReceiveRows, 1, &load.Target,
                                     uncompressed);
}

void ClearRows(_BITMAPHANDLE& bitmap) {
    unsigned char* const rows = BitmapRow(bitmap, 0);
    std::memset(rows, 0, size_t{bitmap.BytesPerLine} * static_cast<unsigned>(bitmap.Height));
}

int LoadStripByStrip(BlockLoad& load, _BITMAPHANDLE& bitmap, int* dataStatus) {
    const auto height = static_cast<unsigned>(bitmap.Height);
    const unsigned stripRows = load.Source.Height;
    for (size_t strip = 0; strip < load.Source.Offsets.size(); ++strip) {
        const size_t firstRow = strip * stripRows;
        if (firstRow >= height)
            break;
        const auto rows = static_cast<int>(std::min<size_t>(stripRows, height - firstRow));
        _BITMAPHANDLE part = BitmapRows(bitmap, firstRow, rows);
        if (load.Target.Bitmap)
            ClearRows(part);
        load.Target.RowsBefore = static_cast<int>(firstRow);
        if (load.Source.ByteCounts[strip] == 0) {
            *dataStatus = ERROR_FILE_READ;
            continue;
        }
        const int status = LoadSome(load, part, strip, 1);
        if (status != SUCCESS)
            return status;
        if (load.Dispatch.Declared.Status != 0)
            *dataStatus = load.Dispatch.Declared.Status;
        else if (load.Target.Rows < rows)
            *dataStatus = ERROR_FAX_DATA_CORRUPT;
    }
    return SUCCESS;
}

// Appends the blocks of some rows of the image.
int AppendBlocks(const Filter& filter, const _BITMAPHANDLE& image, unsigned firstRow, unsigned rows,
                 const SaveOptions& options, Blocks& blocks) {
    _BITMAPHANDLE bitmap = BitmapRows(image, firstRow, static_cast<int>(rows));
    SaveOptions how = options;
    if (options.Progress)
        how.Progress = [&](int done, int /*total*/) {
            return options.Progress(static_cast<int>(firstRow) + done, image.Height);
        };
    const unsigned across = (bitmap.Width + blocks.Width - 1) / blocks.Width;
    const size_t count = size_t{across} * ((rows + blocks.Height - 1) / blocks.Height);
    std::vector<uint32_t> offsets(count);
    std::vector<uint32_t> byteCounts(count);
    _FAXTILEINFO tiles{};
    tiles.TileWidth = blocks.Width;
    tiles.TileHeight = blocks.Height;
    tiles.TileOffsets = offsets.data();
    tiles.TileByteCounts = byteCounts.data();
    tiles.TileCount = static_cast<uint32_t>(count);

    SaveCall call;
    PrepareSave(call, "", bitmap, how);
    call.Tiled = true;
    MemoryHandle memory(REDIRECT_WRITE, nullptr, 0);
    if (memory.Status != SUCCESS)
        return memory.Status;
    const unsigned flags = kTilesByteTrailer | (options.ReverseBits ? kTilesReverseBits : 0) |
                           (options.AlignEol ? kTilesAlignEol : 0);
    _SAVEDISPATCH& dispatch = call.Dispatch.Declared;
    const int status =
        filter.SaveTiled(&dispatch, memory.Handle, &bitmap, &tiles, nullptr, blocks.Padding,
                         bitmap.BitsPerPixel, static_cast<unsigned>(options.Format), dispatch.CallbackParam,
                         dispatch.UserData1, dispatch.UserData2, nullptr, flags);
    unsigned char* bytes = nullptr;
    unsigned long long size = 0;
    K_StopRedirectToBuffer(memory.Redirect, &bytes, &size);
    memory.Redirect = nullptr;
    if (status != SUCCESS)
        return status;
    const size_t before = blocks.Bytes.size();
    if (before + size + blocks.Padding > UINT32_MAX)
        return ERROR_FILE_WRITE;
    blocks.Bytes.insert(blocks.Bytes.end(), bytes, bytes + size);
    blocks.Bytes.resize(blocks.Bytes.size() + blocks.Padding);
    for (uint32_t& byteCount : byteCounts) // the gap in front of the next block is this one's padding
        byteCount += blocks.Padding;
    for (uint32_t& offset : offsets)
        offset += static_cast<uint32_t>(before);
    blocks.Offsets.insert(blocks.Offsets.end(), offsets.begin(), offsets.end());
    blocks.ByteCounts.insert(blocks.ByteCounts.end(), byteCounts.begin(), byteCounts.end());
    return SUCCESS;
}

} // namespace

LoadResult LoadBlocks(const Filter& filter, const Description& image, Blocks& blocks, bool uncompressed,
                      const LoadOptions& options) {
    LoadResult result;
    const _FILEINFOA& info = image.FileInfo.Declared;
    if (!filter.LoadTiled) {
        result.Status = ERROR_FILE_FORMAT;
        return result;
    }
    const auto make = options.DiscardRows ? MakeBitmapWithoutRows : MakeBitmap;
    BitmapPtr bitmap = make(info.Width, info.Height);
    if (!bitmap) {
        result.Status = ERROR_NO_MEMORY;
        return result;
    }
    bitmap->Palette = nullptr; // chosen by the loader
    MemoryHandle memory(REDIRECT_READ, blocks.Bytes.data(), blocks.Bytes.size());
    if (memory.Status != SUCCESS) {
        result.Status = memory.Status;
        return result;
    }

    RowTarget target{options.DiscardRows ? nullptr : bitmap.get(), &options.Progress, info.Height};
    BlockLoad load{filter, memory.Handle, blocks, {}, target, {}, image.FileInfo};
    if (uncompressed)
        load.Uncompressed.assign(blocks.Offsets.size(), 1);
    _LOADDISPATCH& dispatch = load.Dispatch.Declared;
    dispatch.Flags = options.Batches ? LOADDISPATCH_BATCHES : 0;
    dispatch.RowCallback = ReceiveRows;
    dispatch.UserData = &load.Target;
    dispatch.FileInfo = &load.FileInfo.Declared;
    dispatch.LoadInfoValid = 1;
    dispatch.LoadInfo = image.LoadInfo;
    dispatch.LoadInfo.Flags |= options.AddedFlags;

    result.Status = LoadSome(load, *bitmap, 0, blocks.Offsets.size());
    result.DataStatus = dispatch.Status;
    result.Rows = load.Target.Rows;
    const bool oneColumn = blocks.Width >= info.Width;
    const bool complete = result.DataStatus == 0 && result.Rows >= info.Height;
    if (result.Status == SUCCESS && !complete && oneColumn) {
        result.DataStatus = 0;
        result.Status = LoadStripByStrip(load, *bitmap, &result.DataStatus);
    }
    if (result.Status == SUCCESS && result.DataStatus == 0 &&
        std::find(blocks.ByteCounts.begin(), blocks.ByteCounts.end(), 0u) != blocks.ByteCounts.end())
        result.DataStatus = ERROR_FILE_READ;
    result.LoadInfo = dispatch.LoadInfo;
    result.Bitmap = std::move(bitmap);
    return result;
}

int SaveBlocks(const Filter& filter, _BITMAPHANDLE& bitmap, const SaveOptions& options, Blocks& blocks) {
    if (!filter.SaveTiled)
        return ERROR_FORMAT_NOT_WRITABLE;
    if (const int refusal = SaveRefusal(bitmap); refusal != SUCCESS)
        return refusal;
    if (blocks.Width == 0 || blocks.Height == 0 || bitmap.Orientation == ORIENTATION_BOTTOM_UP)
        return ERROR_INV_PARAMETER;
    const auto height = static_cast<unsigned>(bitmap.Height);
    const unsigned lastRows = blocks.Tiled ? 0 : height % blocks.Height;
    const unsigned wholeRows = height - lastRows;
    int status = SUCCESS;
    if (wholeRows != 0)
        status = AppendBlocks(filter, bitmap, 0, wholeRows, options, blocks);
    if (status != SUCCESS || lastRows == 0)
        return status;
    const unsigned stripRows = blocks.Height;
    blocks.Height = lastRows;
    status = AppendBlocks(filter, bitmap, wholeRows, lastRows, options, blocks);
    blocks.Height = stripRows;
    return status;
}

} // namespace standin
