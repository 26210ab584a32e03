// Tiles: what is saved, tile by tile, the calls it takes, and that the loader brings the same rows back.
#include <gtest/gtest.h>
#include <numeric>

#include "tests/load_run.h"
#include "tests/save_run.h"
#include "tests/tile_grid.h"

namespace {

using Trace = std::vector<std::string>;

Picture pictureOf(unsigned width, size_t rows, int kind = PAGE) {
    std::mt19937 random(width);
    return makePicture(random, kind, width, rows);
}

struct Shape {
    unsigned width;
    size_t height;
    unsigned tileWidth, tileHeight;
};
const Shape shapes[] = {{100, 100, 64, 64}, {128, 32, 64, 16}, {100, 30, 256, 40},  {100, 50, 100, 8},
                        {1700, 9, 1728, 4}, {97, 20, 20, 7},   {1700, 60, 256, 64}, {8, 3, 1, 1}};

class Tiles : public testing::Test {
protected:
    void SetUp() override { resetTestKernel(); }
    void TearDown() override { EXPECT_TRUE(nothingHeld()); }
};

void expectSaved(const Shape& shape, int format, unsigned variant) {
    const Picture picture = pictureOf(shape.width, shape.height,
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
    EXPECT_EQ(save.runTiled(&grid.info, chooses ? grid.uncompressed.data() : nullptr, gap), SUCCESS);
    EXPECT_EQ(save.dispatch->CallbackParam, 78u);
    EXPECT_EQ(save.starts * 10 + save.ends, 11);

    MemoryFile wanted(Bytes(100, 0xEE));
    wanted.position = 100;
    for (size_t i = 0; i < grid.count; ++i) {
        const Picture tile = grid.tile(picture, i);
        const Bytes stream =
            codedPicture(tile, shape.tileWidth, static_cast<unsigned>(format), save.flags, 2);
        const bool raw = chooses && stream.size() > grid.rawSize();
        wanted.position += gap;
        ASSERT_EQ(grid.offsets[i], wanted.position) << "tile " << i;
        for (const Bytes& bytes : {stream, raw ? joined(tile) : Bytes()}) {
            wanted.bytes.resize(std::max(wanted.bytes.size(), wanted.position + bytes.size()));
            std::copy(bytes.begin(), bytes.end(),
                      wanted.bytes.begin() + static_cast<ptrdiff_t>(wanted.position));
        }
        wanted.position += grid.counts[i];
        ASSERT_EQ(grid.counts[i], raw ? grid.rawSize() : stream.size()) << "tile " << i;
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
    load.info().Offset = 50;
    load.info().Flags = save.flags & FAX_REVERSE_BITS ? LOADINFO_REVERSED_BITS : 0;
    load.dispatch->Flags = variant & 4 ? LOADDISPATCH_BATCHES : 0;
    load.bitmap.Width = load.fileInfo->Width = shape.width;
    load.bitmap.Height = load.fileInfo->Height = static_cast<int>(shape.height);
    EXPECT_EQ(K_LoadTiledFax(load.dispatch.get(), load.file.handle(), &load.info(), &grid.info,
                             load.fileInfo.get(), &load.bitmap, load.callback, 1, &load,
                             chooses ? grid.uncompressed.data() : nullptr),
              SUCCESS);
    EXPECT_EQ(load.dispatch->Status, 0);
    EXPECT_EQ(load.bitmap.Orientation, 4);
    EXPECT_TRUE(linesOf(load.rows) == linesOf(picture, shape.width));
    for (const Row& row : load.rows)
        EXPECT_EQ(std::accumulate(row.begin(), row.end(), 0u), shape.width);
    EXPECT_EQ(callsNamed("AllocateBitmap"), callsNamed("FreeBitmap"));
}

TEST_F(Tiles, SaveAndLoadEveryShape) {
    for (const Shape& shape : shapes)
        for (const int format : {66, 67, 68, 117, 162})
            for (unsigned variant = 0; variant < 16; ++variant) {
                SCOPED_TRACE(testing::Message()
                             << shape.width << 'x' << shape.height << " in " << shape.tileWidth << 'x'
                             << shape.tileHeight << " format " << format << " variant " << variant);
                resetTestKernel();
                expectSaved(shape, format, variant);
                EXPECT_TRUE(nothingHeld());
            }
}

Trace saveTrace(const Grid& grid, const std::vector<std::string>& beforeTiles, bool gap, bool raw) {
    Trace trace = beforeTiles;
    const auto rows = [&](size_t index, bool writes) {
        const size_t first = index / grid.across * grid.info.TileHeight;
        for (size_t y = first; y < first + grid.info.TileHeight; ++y) {
            if (y < grid.height)
                trace.push_back("GetRow " + std::to_string(y));
            if (writes)
                trace.push_back("Write " + std::to_string(grid.rowBytes()));
        }
    };
    const Picture picture = pictureOf(grid.width, grid.height, NOISE);
    for (size_t i = 0; i < grid.count; ++i) {
        if (gap)
            trace.push_back("Seek 16 1");
        trace.insert(trace.end(), {"Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1"});
        rows(i, false);
        const size_t size = codedPicture(grid.tile(picture, i), grid.info.TileWidth, 66).size();
        trace.push_back("Write " + std::to_string(size));
        trace.insert(trace.end(), {"Free 1000000", "Free 1000000", "Free 200000"});
        if (raw && size > grid.rawSize()) {
            trace.push_back("Seek -" + std::to_string(size) + " 1");
            rows(i, true);
            trace.push_back("Write 0");
        }
    }
    trace.push_back("End");
    return trace;
}

TEST_F(Tiles, SaverCallsInTheirOrder) {
    const Picture picture = pictureOf(100, 20, NOISE);
    for (int arrays = 0; arrays < 4; ++arrays) {
        SCOPED_TRACE(arrays);
        resetTestKernel();
        Grid grid(100, 20, 64, 16);
        SaveRun save(picture, 100, 66);
        if ((arrays & 1) == 0)
            grid.info.TileOffsets = nullptr;
        if ((arrays & 2) == 0)
            grid.info.TileByteCounts = nullptr;
        const bool chooses = arrays == 3;
        EXPECT_EQ(save.runTiled(&grid.info, chooses ? grid.uncompressed.data() : nullptr, chooses ? 16 : 0),
                  SUCCESS);
        Trace before = {"Start", "Alloc 16 1"};
        if (arrays == 1)
            before.push_back("Alloc 4 4");
        if ((arrays & 1) != 0)
            before.push_back("Seek 0 1");
        Trace wanted = saveTrace(grid, before, chooses, chooses);
        wanted.push_back("Free 16");
        Trace made = testKernel().trace;
        if (arrays == 1) { // the saver's own array goes, at the offsets' seek or the end, unordered
            EXPECT_EQ(grid.info.TileByteCounts, nullptr);
            wanted.push_back("Free 16");
        }
        EXPECT_EQ(made, wanted);
    }
}

TEST_F(Tiles, SaverRefusals) {
    const Picture picture = pictureOf(100, 20);
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
        return save.runTiled(&g.info, g.uncompressed.data());
    };
    EXPECT_EQ(status(MAX_IMAGE_WIDTH + 1, 0, 1, true), ERROR_NULL_PTR);
    EXPECT_EQ(status(0, 16, 1, false), ERROR_INV_PARAMETER);
    EXPECT_EQ(status(64, 0, 1, true), ERROR_INV_PARAMETER);
    EXPECT_EQ(status(0, 16, 8, true), ERROR_NULL_PTR);
    EXPECT_EQ(status(64, 16, 1, false), ERROR_NULL_PTR);
    EXPECT_EQ(save.runTiled(nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(K_SaveTiledFax(nullptr, save.file.handle(), &save.bitmap, &grid.info, nullptr, 0, 1, 68, 0,
                             nullptr, nullptr, nullptr, 0),
              ERROR_NULL_PTR);
    EXPECT_EQ(K_SaveTiledFax(save.dispatch.get(), save.file.handle(), nullptr, &grid.info, nullptr, 0, 1, 68,
                             0, nullptr, nullptr, nullptr, 0),
              ERROR_NULL_PTR);
    EXPECT_TRUE(testKernel().trace.empty());

    SaveRun refused(picture, 100, 68);
    refused.startStatus = -3;
    EXPECT_EQ(refused.runTiled(&grid.info), -3);
    EXPECT_EQ(testKernel().trace, (Trace{"Start", "End"}));
    SaveRun widest(Picture(1, Bytes(13)), 100, 68);
    Grid wide(100, 1, MAX_IMAGE_WIDTH, 1);
    EXPECT_EQ(widest.runTiled(&wide.info), SUCCESS);
}

TEST_F(Tiles, OneTileLeavesTheRestOfTheRow) {
    for (const int invert : {0, 1}) {
        const Picture picture = pictureOf(100, 5, NOISE);
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
        EXPECT_EQ(SaveFaxTile(save.dispatch.get(), save.file.handle(), &codec, 68, &info, 0, 3, 8, 5, invert,
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
    }
}

class TileSaveFaults : public testing::TestWithParam<Fault> {};

TEST_P(TileSaveFaults, AtEveryCall) {
    const Picture picture = pictureOf(100, 20, NOISE);
    bool hit = true;
    for (unsigned n = 1; hit; ++n) {
        resetTestKernel();
        testKernel().fault = GetParam();
        testKernel().faultAt = n;
        Grid grid(100, 20, 64, 16);
        const bool own = n % 2 != 0; // the saver's own byte counts, or the choice of raw tiles
        if (own)
            grid.info.TileByteCounts = nullptr;
        SaveRun save(picture, 100, 66);
        int status = 0;
        bool thrown = false;
        try {
            status = save.runTiled(&grid.info, own ? nullptr : grid.uncompressed.data());
        } catch (const KernelFault&) {
            thrown = true;
        }
        const std::string call = testKernel().faulted;
        hit = !call.empty() || own;
        SCOPED_TRACE("call " + std::to_string(n) + ", " + call);
        const auto is = [&](const char* name) { return call.rfind(name, 0) == 0; };
        EXPECT_TRUE(nothingHeld());
        EXPECT_EQ(thrown, !call.empty() && GetParam() == Fault::Throw);
        EXPECT_LE(save.ends, 1);
        EXPECT_EQ(grid.info.TileByteCounts, own ? nullptr : grid.counts.data());
        if (thrown)
            continue;
        EXPECT_EQ(save.ends, 1);
        if (call != "Write 0") {
            EXPECT_EQ(status, is("Start") || is("GetRow") ? CALLBACK_STOPS
                              : is("Alloc")               ? ERROR_NO_MEMORY
                              : is("Write")               ? ERROR_FILE_WRITE
                                                          : SUCCESS);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, TileSaveFaults, testing::Values(Fault::Fail, Fault::Short, Fault::Throw));

} // namespace
