// Tiles: what is saved, tile by tile, the calls it takes, and that the loader brings the same rows back.
#include <numeric>

#include "tests/save_run.h"
#include "tests/tile_grid.h"

namespace {

class Tiles : public KernelTest {};

struct Shape {
    unsigned width;
    size_t height;
    unsigned tileWidth, tileHeight;
};
const Shape kShapes[] = {{100, 100, 64, 64}, {128, 32, 64, 16}, {100, 30, 256, 40},  {100, 50, 100, 8},
                         {1700, 9, 1728, 4}, {97, 20, 20, 7},   {1700, 60, 256, 64}, {8, 3, 1, 1}};

void ExpectSaved(const Shape& shape, int format, unsigned variant) {
    const Picture picture = PictureOf(shape.width, shape.height,
                                      variant % 3 == 0   ? NOISE
                                      : variant % 3 == 1 ? PAGE
                                                         : ALL_BLACK);
    Grid grid(shape.width, shape.height, shape.tileWidth, shape.tileHeight);
    SaveRun save(picture, shape.width, format);
    const bool chooses = (variant & 1) != 0;
    const unsigned gap = variant & 2 ? 16 : 0;
    save.saveFile->NoInvert = variant & 4 ? 0 : 9;
    save.invertRows = (variant & 4) != 0;
    save.options->OutputBits = SaveOptionNoInvert; // not asked
    save.bitmap.Orientation = variant & 8 ? ORIENTATION_BOTTOM_UP : 1;
    save.flags = variant % 8;
    save.file.bytes.assign(100, 0xEE);
    save.file.position = 100;
    EXPECT_EQ(save.RunTiled(&grid.info, chooses ? grid.uncompressed.data() : nullptr, gap), SUCCESS);
    EXPECT_EQ(save.dispatch->CallbackParam, 78u);
    EXPECT_EQ(save.starts * 10 + save.ends, 11);

    MemoryFile wanted(Bytes(100, 0xEE));
    wanted.position = 100;
    for (size_t i = 0; i < grid.count; ++i) {
        const Picture tile = grid.Tile(picture, i);
        const Bytes stream =
            CodedPicture(tile, shape.tileWidth, static_cast<unsigned>(format), save.flags, 2);
        const bool raw = chooses && stream.size() > grid.RawSize();
        wanted.position += gap;
        ASSERT_EQ(grid.offsets[i], wanted.position) << "tile " << i;
        for (const Bytes& bytes : {stream, raw ? Joined(tile) : Bytes()}) {
            wanted.bytes.resize(std::max(wanted.bytes.size(), wanted.position + bytes.size()));
            std::copy(bytes.begin(), bytes.end(),
                      wanted.bytes.begin() + static_cast<ptrdiff_t>(wanted.position));
        }
        wanted.position += grid.counts[i];
        ASSERT_EQ(grid.counts[i], raw ? grid.RawSize() : stream.size()) << "tile " << i;
        ASSERT_EQ(grid.uncompressed[i], chooses ? (raw ? 1 : 0) : 0xAA) << "tile " << i;
        EXPECT_TRUE(i + 1 < grid.count || save.size == stream.size());
    }
    EXPECT_TRUE(save.file.bytes == wanted.bytes);

    // And back again. Tiles that do not end on a byte do not tile for a loader.
    if (grid.across != 1 && shape.tileWidth % 8 != 0)
        return;
    LoadRun load(save.file.bytes, format, 0, 0);
    for (uint32_t& offset : grid.offsets)
        offset -= 50;
    load.Info().Offset = 50;
    load.Info().Flags = save.flags & FAX_REVERSE_BITS ? LOADINFO_REVERSED_BITS : 0;
    load.dispatch->Flags = variant & 4 ? LOADDISPATCH_BATCHES : 0;
    load.bitmap.Width = load.fileInfo->Width = shape.width;
    load.bitmap.Height = load.fileInfo->Height = static_cast<int>(shape.height);
    EXPECT_EQ(K_LoadTiledFax(load.dispatch.get(), load.file.Handle(), &load.Info(), &grid.info,
                             load.fileInfo.get(), &load.bitmap, load.callback, 1, &load,
                             chooses ? grid.uncompressed.data() : nullptr),
              SUCCESS);
    EXPECT_EQ(load.dispatch->Status, 0);
    EXPECT_EQ(load.bitmap.Orientation, 4);
    EXPECT_TRUE(LinesOf(load.rows) == LinesOf(picture, shape.width));
    for (const Row& row : load.rows)
        EXPECT_EQ(std::accumulate(row.begin(), row.end(), 0u), shape.width);
    EXPECT_EQ(CallsNamed("AllocateBitmap").size(), CallsNamed("FreeBitmap").size());
}

TEST_F(Tiles, SaveAndLoadEveryShape) {
    for (const Shape& shape : kShapes)
        for (const int format : {66, 67, 68, 117, 162})
            for (unsigned variant = 0; variant < 16; ++variant) {
                SCOPED_TRACE(testing::Message()
                             << shape.width << 'x' << shape.height << " in " << shape.tileWidth << 'x'
                             << shape.tileHeight << " format " << format << " variant " << variant);
                ResetTestKernel();
                ExpectSaved(shape, format, variant);
                EXPECT_TRUE(NothingHeld());
            }
}

// Offsets, byte counts, or with both of them the choice of raw tiles and a gap.
TEST_F(Tiles, SaverCallsInTheirOrder) {
    const Picture picture = PictureOf(100, 20, NOISE);
    for (int arrays = 0; arrays < 4; ++arrays) {
        SCOPED_TRACE(arrays);
        ResetTestKernel();
        Grid grid(100, 20, 64, 16);
        SaveRun save(picture, 100, 66);
        if ((arrays & 1) == 0)
            grid.info.TileOffsets = nullptr;
        if ((arrays & 2) == 0)
            grid.info.TileByteCounts = nullptr;
        const bool chooses = arrays == 3;
        EXPECT_EQ(save.RunTiled(&grid.info, chooses ? grid.uncompressed.data() : nullptr, chooses ? 16 : 0),
                  SUCCESS);
        Trace wanted = {"Start", "Alloc 16 1"};
        const auto add = [&](const Trace& calls) { wanted.insert(wanted.end(), calls.begin(), calls.end()); };
        if (arrays == 1)
            add({"Alloc 4 4"});
        if ((arrays & 1) != 0)
            add({"Seek 0 1"});
        for (size_t i = 0; i < grid.count; ++i) {
            const size_t size = CodedPicture(grid.Tile(picture, i), 64, 66).size();
            Trace fetches, rawRows;
            for (size_t y = i / 2 * 16; y < i / 2 * 16 + 16; ++y) {
                if (y < 20)
                    rawRows.push_back(fetches.emplace_back("GetRow " + std::to_string(y)));
                rawRows.push_back("Write 8");
            }
            if (chooses)
                add({"Seek 16 1"});
            add({"Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1"});
            add(fetches);
            add({"Write " + std::to_string(size), "Free 1000000", "Free 1000000", "Free 200000"});
            if (!chooses || size <= grid.RawSize())
                continue;
            add({"Seek -" + std::to_string(size) + " 1"});
            add(rawRows);
            add({"Write 0"});
        }
        add({"End", "Free 16"});
        if (arrays == 1) // the saver's own counts
            add({"Free 16"});
        EXPECT_EQ(KernelInUse().trace, wanted);
        EXPECT_EQ(grid.info.TileByteCounts, (arrays & 2) != 0 ? grid.counts.data() : nullptr);
    }
}

TEST_F(Tiles, SaverRefusals) {
    const Picture picture = PictureOf(100, 20);
    Grid grid(100, 20, 64, 16);
    SaveRun save(picture, 100, 68);
    save.tiled = true;
    const auto status = [&](unsigned tileWidth, unsigned tileHeight, int bits, bool counts) {
        Grid g(100, 20, 64, 16);
        g.info.TileWidth = tileWidth;
        g.info.TileHeight = tileHeight;
        save.dispatch->BitsPerPixel = bits;
        if (!counts)
            g.info.TileByteCounts = nullptr;
        return save.RunTiled(&g.info, g.uncompressed.data());
    };
    EXPECT_EQ(status(MAX_IMAGE_WIDTH + 1, 0, 1, true), ERROR_NULL_PTR);
    EXPECT_EQ(status(0, 16, 1, false), ERROR_INV_PARAMETER);
    EXPECT_EQ(status(64, 0, 1, true), ERROR_INV_PARAMETER);
    EXPECT_EQ(status(0, 16, 8, true), ERROR_NULL_PTR);
    EXPECT_EQ(status(64, 16, 1, false), ERROR_NULL_PTR);
    EXPECT_EQ(save.RunTiled(nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(K_SaveTiledFax(nullptr, save.file.Handle(), &save.bitmap, &grid.info, nullptr, 0, 1, 68, 0,
                             nullptr, nullptr, nullptr, 0),
              ERROR_NULL_PTR);
    EXPECT_EQ(K_SaveTiledFax(save.dispatch.get(), save.file.Handle(), nullptr, &grid.info, nullptr, 0, 1, 68,
                             0, nullptr, nullptr, nullptr, 0),
              ERROR_NULL_PTR);
    EXPECT_TRUE(KernelInUse().trace.empty());

    SaveRun refused(picture, 100, 68);
    refused.startStatus = -3;
    EXPECT_EQ(refused.RunTiled(&grid.info), -3);
    EXPECT_EQ(KernelInUse().trace, (Trace{"Start", "End"}));
    SaveRun widest(Picture(1, Bytes(13)), 100, 68);
    Grid wide(100, 1, MAX_IMAGE_WIDTH, 1);
    EXPECT_EQ(widest.RunTiled(&wide.info), SUCCESS);
}

TEST_F(Tiles, OneTileLeavesTheRestOfTheRow) {
    for (const int invert : {0, 1}) {
        const Picture picture = PictureOf(100, 5, NOISE);
        SaveRun save(picture, 100, 68);
        save.tiled = true;
        save.invertRows = invert != 0;
        save.dispatch->CallbackParam = 78;
        save.bitmap.Orientation = ORIENTATION_BOTTOM_UP;
        _FAXTILEINFO info = {};
        info.TileWidth = 40;
        info.TileHeight = 4;
        Bytes row(16, 0x77);
        CCITTG34 codec = {};
        unsigned size = 0;
        EXPECT_EQ(SaveFaxTile(save.dispatch.get(), save.file.Handle(), &codec, 68, &info, 0, 3, 8, 5, invert,
                              &size, &save.saveBitmap, save.saveFile.get(), row.data(), 0),
                  SUCCESS);
        EXPECT_EQ(size, 20u);
        Bytes wanted;
        for (size_t y = 3; y < 7; ++y)
            for (size_t i = 8; i < 13; ++i)
                wanted.push_back(y < 5 ? picture[y][i] & (i == 12 ? 0xF0 : 0xFF) : 0);
        EXPECT_EQ(save.file.bytes, wanted);
        for (size_t i = 0; i < 8; ++i)
            EXPECT_EQ(row[i], invert ? static_cast<uint8_t>(~picture[4][i]) : picture[4][i]);
        // Without rows it is white.
        save.saveBitmap.Height = -1;
        save.file.position = 0;
        EXPECT_EQ(SaveFaxTile(save.dispatch.get(), save.file.Handle(), &codec, 68, &info, 0, 3, 8, 5, invert,
                              nullptr, &save.saveBitmap, save.saveFile.get(), row.data(), 0),
                  SUCCESS);
        EXPECT_EQ(save.file.bytes, Bytes(20));
    }
}

// Tiles are counted, and their pixels numbered, beyond 32 bits.
TEST_F(Tiles, MoreTilesThanAnArrayHas) {
    const Picture picture(1, Bytes(13));
    const struct {
        unsigned width;
        int height;
        int status;
    } images[] = {{65536, 65536, ERROR_INV_PARAMETER},
                  {0xFFFF'FFFF, 1 << 30, ERROR_INV_PARAMETER},
                  {65536, 0, SUCCESS}};
    for (const auto& image : images) {
        SaveRun save(picture, 100, 68);
        save.saveBitmap.Width = image.width;
        save.saveBitmap.Height = image.height;
        Grid grid(100, 1, 1, 1);
        EXPECT_EQ(save.RunTiled(&grid.info, grid.uncompressed.data()), image.status);
        EXPECT_EQ(grid.uncompressed[0], 0xAA);
        EXPECT_EQ(grid.offsets[0], 0xAAAAAAAA);
        if (image.status != SUCCESS) {
            EXPECT_EQ(KernelInUse().trace, (Trace{"Start", "End"}));
        }
        ResetTestKernel();
    }

    // Byte 2^29 of a row is pixel 2^32, far behind an image of 100 pixels. No page but its own is touched.
    SaveRun save(picture, 100, 68);
    constexpr size_t kByte = size_t{1} << 29;
    save.dispatch->GetRowCallback = [](_BITMAPHANDLE*, _BITMAPHANDLE*, unsigned char* row, unsigned, int,
                                       unsigned, void*, void*, _SAVEFILESTRUCT*) -> int {
        row[kByte] = 0xFF;
        return SUCCESS;
    };
    _FAXTILEINFO info = {};
    info.TileWidth = 8;
    info.TileHeight = 1;
    CCITTG34 codec = {};
    const std::unique_ptr<void, decltype(&std::free)> row(std::calloc(kByte + 1, 1), std::free);
    EXPECT_EQ(SaveFaxTile(save.dispatch.get(), save.file.Handle(), &codec, 68, &info, 0, 0, kByte, 1, 0,
                          nullptr, &save.saveBitmap, save.saveFile.get(),
                          static_cast<unsigned char*>(row.get()), 0),
              SUCCESS);
    EXPECT_EQ(save.file.bytes, Bytes(1));
}

} // namespace
