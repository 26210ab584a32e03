// The tiled loader with any table of tiles over any bytes, and sizes that do not fit one another.
#include "fuzz/harness.h"

#include <algorithm>
#include <memory>

namespace {

enum : uint8_t {
    UPSET = 3,
    BATCHES = 4,
    NO_MARKS = 8,
    NO_OFFSETS = 16,
    PALETTE = 32,
    OTHER_WIDTH = 64,
    OTHER_HEIGHT = 128
};
constexpr uint64_t kMostTiles = 4096;
constexpr unsigned kMark = 0x8000; // of a listed byte count: the tile is packed rows

uint64_t CeilDivide(uint64_t value, uint64_t divisor) {
    return (value + divisor - 1) / divisor;
}

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const Stream stream = TakeStream(input);
    _FAXTILEINFO tiles{};
    tiles.TileWidth = TakeWidth(input);
    tiles.TileHeight = input.Word();
    tiles.TileCount = input.Byte();
    if (tiles.TileWidth != 0 && tiles.TileHeight != 0) {
        const uint64_t across = CeilDivide(stream.Width, tiles.TileWidth);
        if (across * CeilDivide(stream.Height, tiles.TileHeight) > kMostTiles ||
            uint64_t{stream.Width} * tiles.TileHeight > 4 * uint64_t{kMostPixels})
            return;
    }
    std::vector<uint32_t> offsets(tiles.TileCount);
    std::vector<uint32_t> byteCounts(tiles.TileCount);
    Bytes marks(tiles.TileCount);
    for (size_t i = 0; i < tiles.TileCount; ++i) {
        offsets[i] = input.Word();
        const unsigned count = input.Word();
        marks[i] = (count & kMark) != 0;
        byteCounts[i] = count & ~kMark;
    }
    const bool listed = tiles.TileCount != 0 && (stream.Choice & NO_OFFSETS) == 0;
    uint32_t none = 0;
    tiles.TileOffsets = listed ? offsets.data() : (stream.Choice & NO_OFFSETS) != 0 ? nullptr : &none;
    tiles.TileByteCounts = byteCounts.data();
    Bytes block = input.Rest();

    const auto dispatch = std::make_unique<standin::Padded<_LOADDISPATCH>>();
    const auto fileInfo = std::make_unique<standin::Padded<_FILEINFOA>>();
    _FILEINFOA& info = fileInfo->Declared;
    info.Width = (stream.Choice & OTHER_WIDTH) != 0 ? stream.Width / 2 : stream.Width;
    info.Height = static_cast<int>(stream.Height) + ((stream.Choice & OTHER_HEIGHT) != 0 ? 7 : 0);
    dispatch->Declared.Flags = (stream.Choice & BATCHES) != 0 ? LOADDISPATCH_BATCHES : 0;
    dispatch->Declared.LoadInfo = LoadInfoOf(stream);
    const standin::BitmapPtr bitmap = standin::MakeBitmap(stream.Width, 0);
    bitmap->Height = static_cast<int>(stream.Height);
    if ((stream.Choice & PALETTE) == 0)
        bitmap->Palette = nullptr;

    RowSink sink;
    KeepRows(sink, stream.Width, stream.Height);
    sink.MostWidth = std::max(stream.Width, MAX_CODEC_WIDTH); // of several columns
    sink.What = static_cast<RowSink::Upset>(stream.Choice & UPSET);
    if (sink.What == RowSink::Upset::CutHeight)
        sink.What = RowSink::Upset::None;
    sink.UpsetAt = 2;
    const MemoryHandle handle(REDIRECT_READ, block);
    const int status = K_LoadTiledFax(&dispatch->Declared, handle.Get(), &dispatch->Declared.LoadInfo, &tiles,
                                      &info, bitmap.get(), CheckRows, 1, &sink,
                                      (stream.Choice & NO_MARKS) != 0 ? nullptr : marks.data());
    const bool upset = sink.What != RowSink::Upset::None && sink.Calls >= sink.UpsetAt;
    if (upset)
        Require(status == (sink.What == RowSink::Upset::Stop ? kStopped : ERROR_EXCEPTION),
                "the upset's status");
    else
        Require(status == SUCCESS || status == ERROR_FILE_READ || status == ERROR_NULL_PTR ||
                    status == ERROR_INV_PARAMETER,
                "a status of the tiled loader");
    if (status == SUCCESS)
        Require(sink.Ended || info.Height == 0, "the last batch is marked");
}
