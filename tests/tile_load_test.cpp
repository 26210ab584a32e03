// K_LoadTiledFax and ShortenRunLengthWidths: the calls, the batches, damage and refusals.
#include "tests/tile_grid.h"

namespace {

class TiledLoader : public KernelTest {};

extern "C" int CountNoRows(_FILEINFOA*, _BITMAPHANDLE*, unsigned short*, unsigned, int, int, void*) {
    ADD_FAILURE() << "rows";
    return SUCCESS;
}

TEST_F(TiledLoader, LoaderCallsInTheirOrder) {
    const Picture picture = PictureOf(100, 20, NOISE);
    TiledLoad load(picture, 100, 64, 16);
    load.MakeRaw(1);
    load.grid.counts[2] = 0; // empty
    EXPECT_EQ(load.Load(), SUCCESS);
    const auto text = [](uint32_t value) { return std::to_string(value); };
    const Grid& g = load.grid;
    // In the last column rows end with the picture, whatever the tile has behind it.
    const auto put = [&](size_t tile, uint32_t y) {
        const unsigned pixels = tile % 2 == 0 ? 64 : 36;
        const size_t changes = tile == 2 ? 0 : ChangesOf(g.Tile(picture, tile)[y], pixels).size();
        return "PutBitmapRowColCompressed " + text(y) + (tile % 2 == 0 ? " 0 " : " 64 ") + text(pixels) +
               ", runs " + std::to_string(changes + 1);
    };
    Trace wanted = {"InitBitmap 100 16", "AllocateBitmap 513",       "IntAccessBitmap",
                    "Alloc 16 1",        "Palette -256 0 7 -1",      "Alloc 250000 2",
                    "Seek 0 0",          "Alloc 250000 4",           "Alloc 250000 4",
                    "Alloc 200000 1",    "Read " + text(g.counts[0])};
    for (uint32_t y = 0; y < 16; ++y)
        wanted.push_back(put(0, y));
    wanted.push_back("Seek " + text(g.offsets[1]) + " 0");
    for (uint32_t y = 0; y < 16; ++y) {
        wanted.insert(wanted.end(), {"Read 8", "CompressRow 36"});
        wanted.push_back(put(1, y));
    }
    wanted.insert(wanted.end(), {"GetBitmapRowCompressed 0 16", "Rows 0 16 23"});
    wanted.push_back("Seek " + text(g.offsets[2]) + " 0");
    for (uint32_t y = 0; y < 4; ++y)
        wanted.push_back(put(2, y));
    wanted.push_back("Seek " + text(g.offsets[3]) + " 0");
    wanted.push_back("Read " + text(g.counts[3]));
    for (uint32_t y = 0; y < 4; ++y)
        wanted.push_back(put(3, y));
    wanted.insert(wanted.end(),
                  {"GetBitmapRowCompressed 0 4", "Rows 16 4 27", "Free 1000000", "Free 1000000",
                   "Free 200000", "Free 500000", "Free 16", "IntReleaseBitmap 1 1", "FreeBitmap"});
    EXPECT_EQ(KernelInUse().trace, wanted);
    Picture seen = picture;
    for (size_t y = 16; y < 20; ++y)
        std::fill_n(seen[y].begin(), 8, uint8_t{0});
    EXPECT_EQ(LinesOf(load.rows), LinesOf(seen, 100));
}

TEST_F(TiledLoader, StripsInOneColumn) {
    const Picture picture = PictureOf(100, 230);
    struct {
        unsigned tileHeight;
        bool batches;
        int fileHeight;
        Trace deliveries;
    } const cases[] = {
        {120, false, 230, {"Rows 0 120 23", "Rows 120 110 27"}},
        {120, true, 230, {"Rows 0 100 23", "Rows 100 20 19", "Rows 120 100 19", "Rows 220 10 27"}},
        {120, false, 231, {"Rows 0 120 23", "Rows 120 110 19", "Rows 230 0 27"}},
        {300, false, 230, {"Rows 0 230 31"}},
        {300, false, 1000, {"Rows 0 230 23", "Rows 230 0 27"}},
    };
    for (const auto& c : cases) {
        ResetTestKernel();
        TiledLoad load(picture, 100, 104, c.tileHeight);
        load.dispatch->Flags = c.batches ? LOADDISPATCH_BATCHES : 0;
        load.fileInfo->Height = c.fileHeight;
        EXPECT_EQ(load.Load(), SUCCESS);
        EXPECT_EQ(CallsNamed("Rows"), c.deliveries);
        EXPECT_TRUE(LinesOf(load.rows) == LinesOf(picture, 100));
        EXPECT_EQ(load.dispatch->Status, 0);
    }
}

TEST_F(TiledLoader, LastListedStripSuppliesWhatIsMissing) {
    const Picture picture = PictureOf(100, 30);
    TiledLoad load(picture, 100, 100, 8);
    load.Put(1, CodedPicture(Picture(picture.begin() + 8, picture.end()), 100, 68));
    load.grid.info.TileCount = 2;
    EXPECT_EQ(load.Load(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"), (Trace{"Rows 0 8 23", "Rows 8 22 27"}));
    EXPECT_TRUE(LinesOf(load.rows) == LinesOf(picture, 100));
    EXPECT_EQ(CallsNamed("Seek").size(), 2u);

    ResetTestKernel();
    TiledLoad whole(picture, 100, 100, 64); // one strip without a length
    whole.grid.counts[0] = 0;
    EXPECT_EQ(whole.Load(), SUCCESS);
    EXPECT_EQ(CallsNamed("Read 200000").size(), 1u);
    EXPECT_TRUE(LinesOf(whole.rows) == LinesOf(picture, 100));
}

TEST_F(TiledLoader, WhiteForWhatIsNotThere) {
    const Picture picture = PictureOf(100, 20);
    for (const uint32_t listed : {0u, 2u}) {
        ResetTestKernel();
        TiledLoad load(picture, 100, 64, 16);
        load.grid.info.TileCount = listed;
        load.grid.uncompressed.assign(listed, 0); // asked for listed tiles alone
        EXPECT_EQ(load.Load(), SUCCESS);
        ASSERT_EQ(load.rows.size(), 20u);
        for (size_t y = 0; y < 20; ++y)
            EXPECT_EQ(ChangesOf(load.rows[y]), y < 16 && listed == 2 ? ChangesOf(picture[y], 100) : Line());
        EXPECT_EQ(CallsNamed("Seek").size(), listed);
        EXPECT_EQ(load.dispatch->Status, 0);
    }
    // A tile that ends in an unknown extension behind three rows; the next one is whole.
    ResetTestKernel();
    TiledLoad damaged(picture, 100, 64, 16);
    damaged.Put(0,
                Packed(Repeated(Horizontal(3, 4) + kV0, 1) + Repeated(Repeated(kV0, 3), 2) + "0000001000"));
    EXPECT_EQ(damaged.Load(), SUCCESS);
    EXPECT_EQ(damaged.dispatch->Status, ERROR_FAX_DATA_CORRUPT);
    EXPECT_EQ(CallsNamed("PutBitmapRowColCompressed").size(), 40u);
    for (size_t y = 0; y < 16; ++y) {
        Line left = ChangesOf(damaged.rows[y]);
        std::erase_if(left, [](uint32_t x) { return x >= 64; });
        EXPECT_EQ(left, y < 3 ? Line({3, 7}) : Line()) << y;
    }
}

TEST_F(TiledLoader, DamageIsNotMissingData) {
    for (const bool corrupt : {true, false}) {
        ResetTestKernel();
        TiledLoad load(PictureOf(100, 20), 100, 64, 16);
        const Bits left = Horizontal(3, 1) + kV0 + kV0 + kVL3; // of the change before
        load.Put(0, Packed(corrupt ? left + Repeated("1", 64) : "1"));
        EXPECT_EQ(load.Load(), SUCCESS);
        EXPECT_EQ(load.dispatch->Status, corrupt ? ERROR_FAX_DATA_CORRUPT : ERROR_FILE_READ);
    }
}

TEST_F(TiledLoader, ChunksFitTheRunBuffer) {
    // 143 rows of 1737 words; one word less a row, and 144 would fit.
    const Picture picture = PictureOf(1734, 300, ALTERNATING);
    TiledLoad load(picture, 1734, 256, 300);
    EXPECT_EQ(load.Load(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"), (Trace{"Rows 0 143 23", "Rows 143 143 19", "Rows 286 14 27"}));
    EXPECT_TRUE(LinesOf(load.rows) == LinesOf(picture, 1734));
}

TEST_F(TiledLoader, LoaderWithoutRowsAndRefusals) {
    TiledLoad load(PictureOf(100, 20), 100, 64, 16);
    load.stopAt = 1;
    load.stopWith = -9;
    for (const int height : {0, -4}) {
        load.bitmap.Height = height;
        load.deliveries = 0;
        ResetTestKernel();
        EXPECT_EQ(load.Load(), -9);
        EXPECT_EQ(CallsNamed("Rows"), Trace{"Rows 0 0 31"});
    }
    load.bitmap.Width = 0;
    load.bitmap.Height = 20;
    load.deliveries = 0;
    ResetTestKernel();
    EXPECT_EQ(load.Load(), -9);
    EXPECT_EQ(CallsNamed("Rows"), Trace{"Rows 0 0 31"});
    load.bitmap.Width = 100;
    load.bitmap.Height = 0;
    load.fileInfo->Height = 0;
    ResetTestKernel();
    EXPECT_EQ(load.Load(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"), Trace());

    ResetTestKernel();
    load.grid.info.TileWidth = MAX_IMAGE_WIDTH + 1;
    EXPECT_EQ(load.Load(), ERROR_INV_PARAMETER);
    load.grid.info.TileWidth = 0;
    EXPECT_EQ(load.Load(), ERROR_INV_PARAMETER);
    load.grid.info.TileWidth = 64;
    load.grid.info.TileHeight = 0;
    EXPECT_EQ(load.Load(), ERROR_INV_PARAMETER);
    load.callback = nullptr;
    EXPECT_EQ(load.Load(), ERROR_NULL_PTR);
    for (int missing = 0; missing < 5; ++missing)
        EXPECT_EQ(K_LoadTiledFax(missing == 0 ? nullptr : load.dispatch.get(), load.file.Handle(),
                                 missing == 1 ? nullptr : &load.Info(),
                                 missing == 2 ? nullptr : &load.grid.info,
                                 missing == 3 ? nullptr : load.fileInfo.get(),
                                 missing == 4 ? nullptr : &load.bitmap, CountNoRows, 1, nullptr, nullptr),
                  ERROR_NULL_PTR);
    EXPECT_TRUE(KernelInUse().trace.empty());
    load.callback = load.dispatch->RowCallback;
    load.grid.info.TileHeight = 16;
    load.grid.info.TileOffsets = nullptr;
    EXPECT_EQ(load.Load(), ERROR_NULL_PTR);
    EXPECT_EQ(CallsNamed("Alloc").size(), 0u);
}

// The size of the image is taken before the first row: chunks fit the run buffer to the end.
TEST_F(TiledLoader, BitmapsThatChangeDuringTheLoad) {
    TiledLoad load(PictureOf(1728, 400), 1728, 864, 200);
    KernelInUse().inside = [&](const std::string& entry) {
        if (entry.rfind("Rows", 0) == 0) {
            load.bitmap.Width = 100;
            load.bitmap.Height = 100;
        }
    };
    EXPECT_EQ(load.Load(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"),
              (Trace{"Rows 0 144 23", "Rows 144 56 19", "Rows 200 144 19", "Rows 344 56 27"}));
    EXPECT_EQ(LinesOf(load.rows), LinesOf(load.picture, 1728));
}

// A row of a width next to 2^32 takes more words than 32 bits count.
TEST_F(TiledLoader, RunBufferForTheWidestBitmaps) {
    TiledLoad load(PictureOf(100, 1), 100, 1, 1);
    load.bitmap.Width = 0xFFFF'FFFD;
    KernelInUse().inside = [&](const std::string& entry) {
        if (entry == "Alloc 4294967296 2")
            KernelInUse().faultAt = KernelInUse().calls + 1; // no kernel has that much
    };
    EXPECT_EQ(load.Load(), ERROR_NO_MEMORY);
    EXPECT_EQ(KernelInUse().faulted, "Alloc 4294967296 2");
}

TEST(RunLengthWidths, AreCutFromTheRight) {
    _FAXTILEINFO tile = {};
    tile.TileWidth = 18;
    const auto info = std::make_unique<_FILEINFOA>();
    const auto shorten = [&](uint32_t width, std::vector<unsigned short> words, unsigned rows) {
        info->Width = width;
        ShortenRunLengthWidths(words.data(), &tile, info.get(), rows);
        return RowsFromWords(words.data(), 2);
    };
    const std::vector<unsigned short> words = {3, 0, 10, 5, 3, 4, 0, 10, 5, 0, 3};
    EXPECT_EQ(shorten(14, words, 2), RowsFromText("10 4 0|10 4 0 0"));
    EXPECT_EQ(shorten(14, words, 1), RowsFromText("10 4 0|10 5 0 3"));
    EXPECT_EQ(shorten(16, words, 2), RowsFromText("10 5 1|10 5 0 1"));
    EXPECT_EQ(shorten(4, words, 2), RowsFromText("4 0 0|4 0 0 0"));
    for (const uint32_t width : {18u, 40u})
        EXPECT_EQ(shorten(width, words, 2), RowsFromText("10 5 3|10 5 0 3"));
    EXPECT_EQ(shorten(14, words, 0), RowsFromText("10 5 3|10 5 0 3"));
    ShortenRunLengthWidths(nullptr, &tile, info.get(), 1);
}

} // namespace
