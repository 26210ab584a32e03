// K_LoadRawFax: the calls it makes and the batches it delivers, and the search for a stream.
#include <algorithm>
#include <gtest/gtest.h>

#include "tests/load_run.h"

namespace {

class RawLoader : public KernelTest {};

const Bits kG4Page = Repeated(Horizontal(2, 3) + kV0, 250);

TEST_F(RawLoader, CallsInTheirOrder) {
    LoadRun load(Packed(kG4Page), FORMAT_FAX_G4, 10, 250);
    load.Info().Offset = 3;
    load.file.bytes.insert(load.file.bytes.begin(), 3, 0xEE);
    EXPECT_EQ(load.Run(), SUCCESS);
    EXPECT_EQ(KernelInUse().trace,
              (Trace{"Palette -256 0 7 -1", "Alloc 251000 2", "Alloc 250000 2", "Seek 3 0", "Alloc 250000 4",
                     "Alloc 250000 4", "Alloc 200000 1", "Read 200000", "Rows 0 250 31", "Free 502000",
                     "Free 500000", "Free 1000000", "Free 1000000", "Free 200000"}));
    EXPECT_EQ(load.rows, Rows(250, Row{2, 3, 5}));
    EXPECT_EQ(load.dispatch->Status, 0);
}

TEST_F(RawLoader, BatchesOfAHundred) {
    LoadRun load(Packed(kG4Page), FORMAT_FAX_G4, 10, 250);
    load.dispatch->Flags = LOADDISPATCH_BATCHES;
    EXPECT_EQ(load.Run(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"), (Trace{"Rows 0 100 23", "Rows 100 100 19", "Rows 200 50 27"}));
    EXPECT_EQ(CallsNamed("Read"), Trace{"Read 2048"});
    EXPECT_EQ(load.rows.size(), 250u);
}

TEST_F(RawLoader, NoLinesEndTheLoadAsDamaged) {
    LoadRun load(Packed(Repeated(kV0, 120) + "0000001000" + Repeated(kV0, 500)), FORMAT_FAX_G4, 10, 250);
    load.dispatch->Flags = LOADDISPATCH_BATCHES;
    EXPECT_EQ(load.Run(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"), (Trace{"Rows 0 100 23", "Rows 100 20 19", "Rows 120 0 27"}));
    EXPECT_EQ(load.dispatch->Status, ERROR_FAX_DATA_CORRUPT);

    LoadRun nothing(Packed("0000001000"), FORMAT_FAX_G4, 10, 5);
    KernelInUse().trace.clear();
    EXPECT_EQ(nothing.Run(), SUCCESS);
    EXPECT_EQ(CallsNamed("Rows"), (Trace{"Rows 0 0 31"}));
}

TEST_F(RawLoader, MirroredRowsComeFromTheMirrorBuffer) {
    LoadRun load(Packed(kG4Page), FORMAT_FAX_G4, 10, 250);
    load.Info().Flags = LOADINFO_MIRROR | LOADINFO_ORIENTATION_1;
    EXPECT_EQ(load.Run(), SUCCESS);
    EXPECT_EQ(load.rows, Rows(250, Row{5, 3, 2}));
    EXPECT_EQ(KernelInUse().trace[2], "Alloc 334000 2");
    EXPECT_EQ(KernelInUse().trace[8], "Mirror 250");
    EXPECT_EQ(KernelInUse().trace[9], "Rows 0 250 31");
    // Every row begins with an empty white run once mirrored, one word more than before.
    LoadRun growing(Packed(Repeated(Horizontal(4, 6), 30000)), FORMAT_FAX_G4, 10, 30000);
    growing.Info().Flags = LOADINFO_MIRROR;
    EXPECT_EQ(growing.Run(), SUCCESS);
    EXPECT_EQ(growing.rows.size(), 30000u);
}

TEST_F(RawLoader, GivesTheBitmapItsMarks) {
    const struct {
        uint32_t flags;
        int orientation;
    } cases[] = {{0, 4},     {0x1, 1},   {0x10, 6},  {0x80, 3},  {0x20, 8},  {0x100, 5},
                 {0x200, 2}, {0x400, 7}, {0x411, 1}, {0x7b0, 6}, {0x7a0, 3}, {0x720, 8}};
    for (const auto& c : cases) {
        LoadRun load(Packed(kG4Page), FORMAT_FAX_G4, 10, 0);
        load.Info().Flags = c.flags;
        load.Info().XResolution = 204;
        EXPECT_EQ(load.Run(), SUCCESS);
        EXPECT_EQ(load.bitmap.Orientation, c.orientation) << c.flags;
        EXPECT_EQ(load.bitmap.XResolution, 0); // one of the two alone is not taken
        load.Info().YResolution = 98;
        load.Info().Flags |= LOADINFO_INVERTED;
        KernelInUse().trace.clear();
        EXPECT_EQ(load.Run(), SUCCESS);
        EXPECT_EQ(KernelInUse().trace[0], "Palette 0 -256 7 0");
        EXPECT_EQ(load.bitmap.XResolution * 1000 + load.bitmap.YResolution, 204098);
        EXPECT_EQ(CallsNamed("Rows"), Trace());
    }
}

TEST_F(RawLoader, RefusesBadArguments) {
    EXPECT_EQ(K_LoadRawFax(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 1, nullptr), ERROR_NULL_PTR);
    LoadRun load(Packed(kG4Page), FORMAT_FAX_G4, 250000, 1);
    EXPECT_EQ(load.Run(), ERROR_INV_PARAMETER);
    load.Info().Width = 10;
    load.bitmap.BitsPerPixel = 8;
    EXPECT_EQ(load.Run(), ERROR_NULL_PTR);
    EXPECT_TRUE(KernelInUse().trace.empty());
    EXPECT_EQ(K_LoadRawFax(load.dispatch.get(), load.file.Handle(), &load.Info(), load.fileInfo.get(),
                           nullptr, nullptr, 8, nullptr),
              ERROR_NO_CALLBACK); // no bitmap, no depth to refuse
    ResetTestKernel();
    load.bitmap.BitsPerPixel = 1;
    load.callback = nullptr;
    EXPECT_EQ(load.Run(), ERROR_NO_CALLBACK);
    EXPECT_EQ(KernelInUse().trace, (Trace{"Palette -256 0 7 -1", "Alloc 251000 2", "Alloc 250000 2",
                                          "Free 502000", "Free 500000"}));
}

TEST_F(RawLoader, OddSizes) {
    const struct {
        int width, height, status;
        size_t rows;
    } cases[] = {{0, 3, SUCCESS, 3},   {-1, 3, ERROR_WIDTH_LIMIT, 0}, {10, 0, SUCCESS, 0},
                 {10, -1, SUCCESS, 0}, {-1, 0, ERROR_WIDTH_LIMIT, 0}, {249999, 3, SUCCESS, 3}};
    for (const auto& c : cases) {
        LoadRun load(Packed(Repeated(kV0, 50)), FORMAT_FAX_G4, c.width, c.height);
        EXPECT_EQ(load.Run(), c.status) << c.width;
        EXPECT_EQ(load.rows.size(), c.rows);
    }
}

// Describe mode.

struct Description {
    int status;
    _LOADINFO info;
};

Description Describe(const Bytes& bytes, int width = -1) {
    MemoryFile file(bytes);
    Description d = {0, {}};
    d.info.Width = width;
    d.info.Format = d.info.Height = -1;
    d.status = K_LoadRawFax(nullptr, file.Handle(), &d.info, nullptr, nullptr, nullptr, 1, nullptr);
    return d;
}

const Bits kG3Page = Repeated(kEol + Line1D({100, 100, 1528}), 120);

TEST_F(RawLoader, FindsAStreamAtItsEndOfLine) {
    for (const unsigned leading : {0u, 3u, 700u, 1999u})
        for (const bool reversed : {false, true})
            for (const unsigned fill : {0u, 4u}) {
                Bytes bytes = Packed(Bits(fill, '0') + kG3Page, reversed);
                bytes.insert(bytes.begin(), leading, 0xFF);
                const Description d = Describe(bytes);
                EXPECT_EQ(d.status, SUCCESS);
                EXPECT_EQ((std::vector<int64_t>{d.info.Format, d.info.Width, d.info.Height, d.info.Offset,
                                                d.info.Flags, d.info.BitsPerPixel, d.info.XResolution,
                                                d.info.YResolution}),
                          (std::vector<int64_t>{66, 1728, 120, leading, reversed ? 9 : 1, 1, 300, 300}));
            }
}

TEST_F(RawLoader, TriesTwoDimensionalNext) {
    // Read without tag bits the first line is 3200 times 64 pixels long; the tag makes it short runs.
    const Bits rest = kEol + "1" + Line1D({100, 100, 20000}) + kEol + "0" + kV0;
    const Description d = Describe(Packed(kEol + Repeated("11011", 3200) + Repeated(rest, 60)));
    EXPECT_EQ(d.status, SUCCESS);
    EXPECT_EQ(d.info.Format, 67);
    EXPECT_EQ(d.info.Width, 20200);
    EXPECT_EQ(d.info.Height, 122); // with the empty line that the end cuts off
}

TEST_F(RawLoader, FindsNothing) {
    const struct {
        Bytes bytes;
        int width, status;
        long long offset;
    } cases[] = {{{}, -1, FAILURE, 0},
                 {{0}, -1, FAILURE, 0},
                 {{0}, 5, SUCCESS, 0},
                 {{1, 2, 3}, -1, FAILURE, 2},
                 {Bytes(2000, 0xFF), -1, FAILURE, 1999},
                 {Bytes(2001, 0xFF), -1, FAILURE, 2000},
                 {Bytes(5000, 0xFF), 1728, SUCCESS, 2000}};
    for (const auto& c : cases) {
        const Description d = Describe(c.bytes, c.width);
        EXPECT_EQ(d.status, c.status);
        EXPECT_EQ(+d.info.Offset, c.offset);
        EXPECT_EQ(d.info.Width, c.width);
        EXPECT_EQ(d.info.Format, -1);
    }
}

TEST_F(RawLoader, AHundredLinesConvince) {
    for (const unsigned lines : {99u, 100u}) {
        const Description d = Describe(Packed(Repeated(kEol + Line1D({100, 100, 1528}), lines)));
        EXPECT_EQ(d.status, lines == 100 ? SUCCESS : FAILURE);
        EXPECT_EQ(d.info.Width, lines == 100 ? 1728 : 0);
    }
}

TEST_F(RawLoader, SearchesWithOneSetOfBuffers) {
    Describe({0x00, 0x10, 0xFF});
    EXPECT_EQ(KernelInUse().trace,
              (Trace{"Alloc 251000 2", "Alloc 250000 2", "Seek 0 0",       "Read 2",      "Seek 0 0",
                     "Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1", "Read 200000", "Read 200000",
                     "Seek 0 0",       "Read 200000",    "Read 200000",    "Seek 1 0",    "Read 2",
                     "Seek 2 0",       "Read 2",         "Free 502000",    "Free 500000", "Free 1000000",
                     "Free 1000000",   "Free 200000"}));
}

// Trials begin at every other byte and all come to nothing: the bits behind them decide how.
Bytes Hostile(const Bits& head, const Bits& body, size_t size, const Bits& tail = "") {
    const Bits heads = Repeated(head, 2000 * 8 / head.size()) + kEol;
    return Packed(heads + Repeated(body, (size * 8 - heads.size()) / body.size()) + tail);
}
const Bits kEolEveryOtherByte = kEol + "0000";
const Bits kEmptyRuns = RunBits(false, 0) + RunBits(true, 0);
const Bits kTooWide = kEol + Repeated(RunBits(false, 64) + RunBits(true, 0), 3500);

// What the search is defined to do, every trial run to its end.
Description DescribeTrialByTrial(const Bytes& bytes) {
    MemoryFile file(bytes);
    Description d = {FAILURE, {}};
    CCITTG34 codec = {};
    std::vector<unsigned short> rows(251000);
    for (d.info.Offset = 0; d.info.Offset < 2000 && d.status == FAILURE; ++d.info.Offset) {
        uint8_t two[2];
        K_RedirectedSeek(file.Handle(), d.info.Offset, 0);
        K_RedirectedRead(file.Handle(), two, 2);
        if (two[0] != 0 || (two[1] & 0xF0) != 0x10)
            continue;
        for (const int format : {66, 67}) {
            K_RedirectedSeek(file.Handle(), d.info.Offset, 0);
            InitDecodeG34(nullptr, &codec, static_cast<unsigned>(format), 0, 0, file.Handle(), 0, 0);
            d.info.Height = InfoDecodeG3(&codec, rows.data());
            if (d.info.Height >= 100 && codec.Width >= 1 && codec.Width <= 200000)
                d.status = SUCCESS;
        }
    }
    QuitDecodeG34(&codec, 1);
    return d;
}

// The buffer holds the files whole, so every read is made although hardly a trial is run to its end.
TEST_F(RawLoader, TrialsThatAreCutShortEndAsTheyWould) {
    const Bits lines = Repeated(RunBits(false, 7) + RunBits(true, 9), 20) + kEol;
    const Bits twoDimensional = Repeated(RunBits(false, 1) + RunBits(true, 1), 40) + kEol; // with tags
    const Bytes cases[] = {Hostile(kEolEveryOtherByte, kEmptyRuns, 20000),
                           Hostile(kEolEveryOtherByte, lines, 20000, kTooWide),
                           Hostile(kEolEveryOtherByte, twoDimensional, 20000, kTooWide),
                           Hostile(kEol + "110110000000", lines, 20000, kTooWide),
                           // The last trial is one-dimensional, with tags, and cut short.
                           Packed(Repeated(kEol + "1000", 120) + kEol + "1" + Repeated(kEmptyRuns, 66000))};
    for (const Bytes& bytes : cases) {
        SCOPED_TRACE(&bytes - cases);
        ResetTestKernel();
        const Description wanted = DescribeTrialByTrial(bytes);
        const auto readsAndSeeks = [] {
            Trace calls = KernelInUse().trace;
            std::erase_if(calls, [](const std::string& call) { return call[0] != 'R' && call[0] != 'S'; });
            return calls;
        };
        const Trace trials = readsAndSeeks();
        ResetTestKernel();
        const Description d = Describe(bytes);
        EXPECT_EQ(d.status, FAILURE);
        EXPECT_EQ(wanted.status, FAILURE);
        EXPECT_EQ(d.info.Height, wanted.info.Height);
        EXPECT_EQ(+d.info.Offset, +wanted.info.Offset);
        EXPECT_TRUE(readsAndSeeks() == trials);
    }
}

// A trial over the whole file reads it in parts of 150,002 bytes behind the first.
TEST_F(RawLoader, TrialsOverALongFileAreFew) {
    const Bytes bytes = Hostile(kEolEveryOtherByte, kEmptyRuns, 2000000);
    EXPECT_EQ(Describe(bytes).status, FAILURE);
    EXPECT_EQ(CallsNamed("Seek").size(), 2000u + 2 * 1000);
    EXPECT_LT(CallsNamed("Read 150002").size(), 2 * 32000000u / 150002);
}

} // namespace
