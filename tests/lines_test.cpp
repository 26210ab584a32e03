// Coded lines: two-dimensional ones, one-dimensional ones in the four formats, the hand-over between them,
// damage, limits, and the probe.
#include <ctime>
#include <numeric>

#include "tests/codec_run.h"
#include "tests/encode_run.h"

namespace {

struct LineCase {
    const char* name;
    unsigned width;
    Bits bits;
    unsigned lines;
    const char* rows;
    int status = 0;
    unsigned decodeStatus = 0;
    unsigned widthAfter = 0; // 0: as before
    unsigned format = FORMAT_FAX_G4;
    size_t bitsRead = 0; // 0: not looked at
    bool throughG3 = false;
};

// A case for the G3 decoder.
LineCase G3(const char* name, unsigned format, unsigned width, const Bits& bits, unsigned lines,
            const char* rows, unsigned widthAfter = 0, size_t bitsRead = 0) {
    return {name, width, bits, lines, rows, 0, 0, widthAfter, format, bitsRead, true};
}

void ExpectLines(std::initializer_list<LineCase> cases) {
    ResetTestKernel();
    // Ones behind the stream: white lines for whoever reads too far, never the end of the input. With many of
    // them the fast decoders read it.
    for (const size_t ones : {64u, 512u})
        for (const LineCase& c : cases) {
            SCOPED_TRACE(testing::Message() << c.name << ", ones " << ones);
            CodecRun run(Packed(c.bits + Repeated("1", ones)), {.format = c.format, .width = c.width});
            EXPECT_EQ(c.throughG3 ? run.Decode(c.lines) : run.DecodeG4(c.lines), RowsFromText(c.rows));
            EXPECT_EQ(run.dispatch->Status, c.status);
            EXPECT_EQ(run.record.DecodeStatus, c.decodeStatus);
            EXPECT_EQ(run.record.Width, c.widthAfter != 0 ? c.widthAfter : c.width);
            EXPECT_TRUE(c.bitsRead == 0 || c.bitsRead == run.BitPosition()) << run.BitPosition();
        }
}

const Bits kLine25 = Horizontal(2, 3) + kV0; // width 10: 2 3 5
const Bits kDense = Repeated(Horizontal(1, 1), 3) + kV0;

TEST(G4Lines, Modes) {
    ExpectLines({{"white", 10, "1", 1, "10"},
                 {"padding for a black run", 10, kHorizontal + RunBits(false, 2) + Repeated("0", 12), 1,
                  "2 8", 0, 0, 0, FORMAT_FAX_G3_1D_NOEOL},
                 {"exit code at width 0", 0, kUncompressed + "00000010", 1, "0"},
                 {"begins black", 10, Horizontal(0, 3) + kV0, 1, "0 3 7"},
                 {"VR1 VL1", 10, kLine25 + kVR1 + kVL1 + kV0, 2, "2 3 5|3 1 6"},
                 {"VR3 VL3", 40, Horizontal(10, 10) + kV0 + kVR3 + kVL3 + kV0, 2, "10 10 20|13 4 23"},
                 {"pass", 10, kLine25 + kPass + kV0, 2, "2 3 5|10"},
                 {"pass to the edge", 10, Horizontal(0, 10) + kPass, 2, "0 10|10"},
                 {"black pair", 10, kLine25 + kV0 + HorizontalBlack(2, 3) + kV0, 2, "2 3 5|2 2 3 3"},
                 {"VR1 ends at the edge", 10, Horizontal(8, 1) + kV0 + kV0 + kVR1, 2, "8 1 1|8 2"},
                 {"VL1 from the right edge", 10, kVL1 + kV0, 1, "9 1"},
                 {"b1 skips changes left of a1", 10, kDense + kVR3 + kV0 + kV0, 2, "1 1 1 1 1 1 4|4 2 4"},
                 {"VL looks back: left of a1", 10, kDense + kV0 + kVL1 + kV0 + kV0 + kV0 + kV0 + kV0, 2,
                  "1 1 1 1 1 1 4|1 0 2 1 1 1 4"},
                 {"VL looks back: right of a1", 10,
                  Horizontal(1, 4) + Horizontal(2, 3) + Horizontal(1, 1) + kVL3 + kV0 + kV0 + kV0, 2,
                  "1 4 2 3|1 1 2 1 2 3"},
                 {"VL gives a1 equal to a0", 10, Horizontal(4, 1) + kV0 + kV0 + kVL1 + kV0, 2, "4 1 5|4 0 6"},
                 {"b1 equal to a2 is passed over", 10, kLine25 + Horizontal(1, 1) + kV0, 2, "2 3 5|1 1 8"},
                 {"EOFB between lines", 10, AlignedToByte(kLine25 + kEofb) + kV0 + kV0, 3, "2 3 5|10|10"},
                 {"EOFB after a pass", 10, AlignedToByte(kLine25 + kPass + kEofb) + kV0, 2, "2 3 5|10"},
                 {"long make-up chain", 8000, Horizontal(2624, 5200) + kV0, 1, "2624 5200 176"}});
}

TEST(G4Lines, Widening) {
    ExpectLines(
        {{"by a pair", 1725, Horizontal(100, 1628) + kV0 + kV0, 2, "100 1628|100 1628",
          ERROR_FAX_WIDTH_CHANGED, 0, 1728},
         {"changes keep their columns", 5, Horizontal(1, 1) + kVR3 + kV0 + kV0 + kV0, 2, "1 1 6|1 1 6",
          ERROR_FAX_WIDTH_CHANGED, 0, 8},
         {"both ends past the edge", 5, Horizontal(7, 1) + kV0, 2, "7 1|7 1", ERROR_FAX_WIDTH_CHANGED, 0, 8},
         {"only once", 5, kVR3 + kVR3, 2, "8|8", ERROR_FAX_DATA_CORRUPT, 0, 8},
         {"two pixels of three", 1725, Horizontal(100, 1627), 1, "100 1625", ERROR_FAX_DATA_CORRUPT},
         {"a multiple of 8", 16, kVR1, 1, "16", ERROR_FAX_DATA_CORRUPT},
         {"a whole byte past it", 16, Horizontal(10, 14), 1, "10 6", ERROR_FAX_DATA_CORRUPT},
         {"first run past the edge", 10, Horizontal(12, 1) + kPass, 2, "10|10", ERROR_FAX_DATA_CORRUPT},
         {"to the widest", 249999, kV0 + kVR1, 2, "65534 0 65534 0 65534 0 53397", 0, 0, 249999}});
}

TEST(G4Lines, Damage) {
    ExpectLines(
        {{"a1 left of a0", 10, Horizontal(2, 2) + kV0 + kV0 + kVL3 + kV0 + kV0, 3, "2 2 6|2 8|2 8",
          ERROR_FAX_DATA_CORRUPT, DECODE_STATUS_BAD_CODE},
         {"seven zeros", 10, kLine25 + "00000001" + kV0 + kV0, 3, "2 3 5|10|10", ERROR_FAX_DATA_CORRUPT},
         {"half an EOFB", 10, kV0 + Horizontal(2, 3) + kEol + "0000" + "00000011", 3, "10", 0,
          DECODE_STATUS_BAD_CODE},
         {"no white code", 10, kHorizontal + "000000001" + kV0, 1, "10"},
         {"no black code", 10, kHorizontal + RunBits(false, 4) + kEol + kV0 + kV0, 2, "4 6|4 6"},
         {"make-up before the missing code", 100,
          kHorizontal + Bits("11011") + kEol + Horizontal(40, 20) + kV0, 1, "40 20 40"},
         {"no black code, tag", 10, kHorizontal + RunBits(false, 4) + kEol + "0" + kV0 + kV0, 2, "4 6|4 6", 0,
          0, 0, FORMAT_FAX_G3_2D},
         {"a run back to the left", 100,
          Horizontal(4, 4) + kHorizontal + RunBits(false, 0u - 3) + RunBits(true, 4) +
              Repeated(Horizontal(1, 1), 4) + kV0,
          1, "4 4 92"},
         {"a run back to the left, of many", 100,
          Horizontal(4, 4) + kHorizontal + RunBits(false, 0u - 3) + RunBits(true, 4) +
              Repeated(Horizontal(1, 1), 12) + kV0,
          1, "4 4 92"},
         {"no black code, nothing skipped", 10, kHorizontal + RunBits(false, 4) + "00000001" + kV0 + kV0, 2,
          "4 6|4 6", ERROR_FAX_DATA_CORRUPT, 0, 0, FORMAT_FAX_G3_1D_NOEOL}});
}

TEST(G4Lines, Uncompressed) {
    ExpectLines(
        {{"pixels", 10, kUncompressed + "0110" + "00000010" + kV0, 1, "1 2 7"},
         {"to the edge", 10, kUncompressed + "11011000001" + Repeated(kV0, 5), 2, "0 2 1 2 5|0 2 1 2 5"},
         {"five whites past the edge", 8, kUncompressed + "1111000001" + kV0 + kV0, 2, "0 4 4|0 4 4"},
         {"goes on from black", 10, kLine25 + kV0 + kUncompressed + "101" + "00000010" + kV0, 2,
          "2 3 5|2 1 1 1 5"},
         {"exit to white", 10, kUncompressed + "1100000010" + kV0, 1, "0 2 8"},
         {"exit behind four whites", 10, kUncompressed + "11" + "0000" + "00000011" + kV0, 1, "0 2 4 4"},
         {"no pixels, exit to black", 10, kUncompressed + "00000011" + kV0, 1, "0 10"},
         {"b1 is sought from the start", 10,
          kDense + kUncompressed + "00" + "00000011" + kV0 + kV0 + kV0 + kV0, 2, "1 1 1 1 1 1 4|2 2 1 1 4"},
         {"other extension", 10, kLine25 + Horizontal(1, 1) + "0000001110", 2, "2 3 5",
          ERROR_FAX_DATA_CORRUPT}});
}

TEST(G4Limits, BudgetEndsACallAtALineBoundary) {
    // 100 runs a line, 102 words a row: a call goes on while width + 3 words are left, in one case exactly.
    for (const unsigned width : {1727u, 1728u}) {
        const Bits line = Horizontal(0, 1) + Repeated(Horizontal(1, 1), 48) + Horizontal(1, width - 98);
        CodecRun run(Packed(Repeated(line, 3000) + Repeated("1", 64)), {.width = width});
        const size_t rows = (249998 - (width + 3)) / 102 + 1;
        EXPECT_EQ(run.Decode(3000).size(), rows);
        EXPECT_EQ(run.Decode(3000 - static_cast<unsigned>(rows)).size(), 3000 - rows);
    }

    CodecRun blank(Packed(Repeated(kV0, 90000)), {.width = 1728});
    EXPECT_EQ(blank.Decode(90000).size(), (249998u - 1731) / 3 + 1);
    CodecRun white(Bytes(), {.width = 70000});
    EXPECT_EQ(white.Decode(1000000).size(), 249998u / 5);
}

// Zero-length runs may not grow a line past its list or the row area; the next line is whole again.
TEST(G4Limits, EmptyRunsEndAtTheLimit) {
    const std::pair<unsigned, Bits> hostile[] = {
        {68, Repeated(Horizontal(0, 0), 130000)},
        {68, Repeated(kUncompressed + "00000011" + kUncompressed + "00000010", 130000)},
        {66, Repeated(Line1D({0, 0}), 260000)}};
    for (const unsigned width : {10u, 70001u, 250000u})
        for (const auto& [format, bits] : hostile) {
            SCOPED_TRACE(testing::Message() << format << " width " << width);
            CodecRun run(Packed(bits + Repeated("1", 64)), {.format = format, .width = width});
            const Rows rows = run.Decode(1);
            ASSERT_EQ(rows.size(), 1u);
            EXPECT_EQ(std::accumulate(rows[0].begin(), rows[0].end(), 0u), width);
            EXPECT_GE(WordsOf(rows), 249990u);
            EXPECT_EQ(run.dispatch->Status, ERROR_FAX_DATA_CORRUPT);
            EXPECT_EQ(run.Decode(1).size(), 1u);
            if (format == 66) {
                run.Restart(Packed(Line1D({1, 0}) + bits + kEol + kEol), {.format = 66, .width = 0});
                EXPECT_GE(run.Probe(), 1);
            }
        }
}

// A call's first line has room for every pixel as a change, as far as a list holds them.
TEST(G4Limits, EveryPixelOfTheWidestLinesIsAChange) {
    for (const unsigned format : {66u, 67u, 68u, 117u, 162u})
        for (const unsigned width : {249995u, 249996u, 249997u}) {
            SCOPED_TRACE(testing::Message() << format << " width " << width);
            const Picture picture(2, Bytes((width + 7) / 8, 0xAA));
            CodecRun run(CodedPicture(picture, width, format), {.format = format, .width = width});
            for (const Bytes& row : picture) {
                const Rows rows = run.Decode(1);
                ASSERT_EQ(rows.size(), 1u);
                EXPECT_EQ(rows[0].size(), ChangesOf(row, width).size() + 1);
            }
            EXPECT_EQ(run.dispatch->Status, 0);
        }
}

// Each exit from uncompressed mode looks for b1 anew: from where the last search ended, or this would take
// minutes.
TEST(G4Limits, ExitsFromUncompressedModeAreLinear) {
    constexpr unsigned kWidth = 249997;
    const Bits pixels = Repeated(Horizontal(1, 1), kWidth / 2) + Horizontal(1, 0);
    const Bits exits = Repeated(kUncompressed + "00000010", 400000);
    CodecRun run(Packed(pixels + Repeated(kV0, kWidth / 2) + exits + kV0), {.width = kWidth});
    EXPECT_EQ(run.Decode(1).size(), 1u);
    const std::clock_t start = std::clock();
    EXPECT_EQ(run.Decode(1).size(), 1u);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
}

TEST(G4Limits, NoLinesAskedNothingDone) {
    CodecRun run(Packed(kV0 + kVL1 + kV0), {});
    const CCITTG34 before = run.record;
    run.area[0] = 4711;
    EXPECT_EQ(DecodeG4(&run.record, run.area.data(), 0), 0u);
    EXPECT_EQ(DecodeG3(&run.record, run.area.data(), 0), 0u);
    EXPECT_EQ(std::memcmp(&before, &run.record, sizeof before), 0);
    EXPECT_EQ(run.area[0], 4711);
}

const Bits kWhite1728 = RunBits(false, 1728);
const Bits kBlack0 = RunBits(true, 0);

TEST(G3Lines, OneDimensional) {
    ExpectLines(
        {G3("white line", 66, 1728, kEol + kWhite1728 + kEol, 1, "1728", 0, 29),
         G3("black 0 behind it", 66, 1728, kEol + kWhite1728 + kBlack0 + kEol, 1, "1728", 0, 39),
         G3("white lines, black 0 behind the last", 66, 1728, Repeated(kEol + kWhite1728, 3) + kBlack0 + kEol,
            3, "1728|1728|1728", 0, 97),
         G3("no EOL between lines", 66, 10, Line1D({2, 3, 5}) + Line1D({0, 10}), 2, "2 3 5|0 10"),
         G3("fill before EOLs", 66, 10,
            Bits(37, '0') + kEol + Line1D({4, 6}) + Bits(5, '0') + kEol + kEol + Line1D({10}), 2, "4 6|10"),
         G3("fill longer than a window", 66, 10, Line1D({4, 6}) + Bits(60, '0') + kEol + Line1D({3, 7}), 2,
            "4 6|3 7"),
         G3("EOL at a black position", 66, 1728, Line1D({100}) + kEol + kWhite1728, 2, "100 1628|1728"),
         G3("EOL at a white position", 66, 1728, Line1D({100, 50}) + kEol + kWhite1728, 2,
            "100 50 1578|1728"),
         G3("make-up before an EOL stays counted", 66, 100, Bits("11011") + kEol + Line1D({6, 30}), 1,
            "70 30"),
         G3("within the byte", 66, 1725, kWhite1728 + Line1D({100, 1628}), 2, "1728|100 1628", 1728),
         G3("entries keep their distances", 66, 1725, Line1D({100, 1628}) + kWhite1728, 2, "103 1625|1728",
            1728),
         G3("black past the byte", 66, 1721, Line1D({100, 1629}), 1, "100 1621"),
         G3("one past the byte", 66, 1726, Line1D({1729}), 1, "1726"),
         G3("rows on byte boundaries", 162, 10, AlignedToByte(Line1D({2, 3, 5})) + Line1D({10}), 2,
            "2 3 5|10", 0, 24),
         G3("black 0 is not read", 162, 10,
            AlignedToByte(Line1D({10}) + kBlack0).substr(0, 8) + Line1D({4, 6}), 2, "10|4 6"),
         G3("no black code drops the byte", 162, 30, AlignedToByte(Line1D({4})) + Line1D({22, 8}), 2,
            "4 26|22 8"),
         G3("EOL skipped at a white position", 162, 10,
            kEol + AlignedToByte("0000" + Line1D({10})).substr(4) + Line1D({10}), 2, "10|10")});
}

TEST(G3Lines, TwoDimensional) {
    ExpectLines(
        {G3("67 returns after a 2D line", 67, 10,
            kEol + "1" + Line1D({2, 3, 5}) + kEol + "0" + kVR1 + kV0 + kV0 + kEol + "1" + Line1D({10}), 4,
            "2 3 5|3 2 5"),
         G3("67 blank lines, one asked for", 67, 10, kEol + "1" + Line1D({10}) + kEol + "0" + kV0 + kEol, 1,
            "10"),
         G3("67 without an EOL stays 1D", 67, 10, Line1D({2, 3, 5}) + Line1D({10}), 2, "2 3 5|10"),
         G3("67 tag read with the line's last EOL", 67, 10, Line1D({2}) + kEol + "0" + kV0 + kV0, 2,
            "2 8|2 8"),
         G3("117 hands over for good", 117, 10,
            kEol + "1" + Line1D({2, 3, 5}) + kEol + "0" + kV0 + kV0 + kV0 + kVR1 + kV0 + kV0 + kV0 + kV0 +
                kV0,
            4, "2 3 5|2 3 5|3 2 5|3 2 5")});
}

// A stretch of blank lines ends where another line comes, or where no more lines are asked for.
TEST(G3Lines, StretchesOfBlankLines) {
    ResetTestKernel();
    const struct {
        unsigned format;
        unsigned width;
        Bits blank;
        Bits other; // 100 pixels of white, the rest black
    } cases[] = {
        {66, 1728, kEol + Line1D({1728}), kEol + Line1D({100, 1628})},
        {66, 4960, kEol + Line1D({4960}), kEol + Line1D({100, 4860})},
        {67, 2480, kEol + "1" + Line1D({2480}), kEol + "1" + Line1D({100, 2380})},
        {162, 1728, AlignedToByte(Line1D({1728})), AlignedToByte(Line1D({100, 1628}))},
    };
    for (const auto& c : cases)
        for (const unsigned count : {7u, 8u, 9u, 10u, 40u, 701u})
            for (const unsigned asked : {count - 1, count, count + 1, count + 3}) {
                SCOPED_TRACE(testing::Message() << c.format << ": " << asked << " of " << count);
                const Bits stream = Repeated(c.blank, count) + c.other + Repeated(c.blank, 2);
                CodecRun run(Packed(stream + Repeated("1", 512)),
                             {.format = c.format, .width = c.width, .smallBuffer = count % 2});
                Rows rows(count + 3, Row{static_cast<unsigned short>(c.width)});
                rows[count] = {100, static_cast<unsigned short>(c.width - 100)};
                rows.resize(asked);
                EXPECT_EQ(run.Decode(asked), rows);
                const bool pastOther = asked > count;
                EXPECT_EQ(run.BitPosition(),
                          (asked - pastOther) * c.blank.size() + pastOther * c.other.size());
            }
}

// The line at which repeated bytes would be looked for is the last of the data.
TEST(G3Lines, EightBlankLinesAndNoMore) {
    ResetTestKernel();
    CodecRun run(Packed(Repeated(kEol + kWhite1728, 8)), {.format = 66, .width = 1728});
    EXPECT_EQ(run.Decode(8), Rows(8, Row{1728}));
    EXPECT_EQ(run.BitPosition(), 8 * 29u);
    run.Restart(Packed(Repeated(kEol + kWhite1728, 8)), {.format = 66, .width = 1728});
    EXPECT_EQ(run.Decode(20), Rows(9, Row{1728}));
    EXPECT_EQ(run.record.DecodeStatus, DECODE_STATUS_NO_DATA);
}

// Pairs of a blank one-dimensional and a blank two-dimensional line, and second lines alone, over many fills
// of the small buffer.
TEST(G3Lines, PairsOfBlankLines) {
    ResetTestKernel();
    static constexpr unsigned short kWidths[] = {8, 1728, 2480, 2560, 4960, 5119, 5120, 9472, 20000};
    for (const unsigned short width : kWidths)
        for (const Bits& fill : {Bits(), Bits("000"), Bits("0000000")}) {
            SCOPED_TRACE(testing::Message() << width << " with " << fill);
            const Bits first = kEol + "1" + Line1D({width});
            const Bits second = kEol + "0" + kV0;
            const Bits three = fill + first + second + second;
            // Behind them two pairs that differ from such a one in the last bit, and in the tag.
            CodecRun run(Packed(Repeated(three, 1000) + first + kEol + "0" + kVL1 + kV0 + first + first +
                                Repeated("1", 512)),
                         {.format = 67, .width = width, .smallBuffer = 1});
            EXPECT_EQ(run.Decode(1), Rows(1, Row{width}));
            for (unsigned call = 0; call < 2000; ++call)
                ASSERT_EQ(run.Decode(9), Rows(call == 0 || call % 2 == 1 ? 1 : 2, Row{width}))
                    << "call " << call;
            EXPECT_EQ(run.BitPosition(), 1000 * three.size());
            EXPECT_EQ(run.Decode(9), (Rows{{width}, {static_cast<unsigned short>(width - 1), 1}}));
            EXPECT_EQ(run.Decode(2), Rows(2, Row{width}));
        }
}

// A call that ends with a two-dimensional line leaves no trace of the tags it met.
TEST(G3Lines, TheTagAfterATwoDimensionalLine) {
    ResetTestKernel();
    const Bits oneDimensional = kEol + "1";
    for (const Bits& line : {oneDimensional + Line1D({2, 3, 5}), oneDimensional + Line1D({10})}) {
        CodecRun run(Packed(line + oneDimensional + Line1D({10}) + kEol + "0" + kV0 + Repeated("1", 512)),
                     {.format = 67, .width = 10});
        EXPECT_EQ(run.Decode(1).size(), 1u);
        EXPECT_NE(run.record.NextLineTag, INT32_MIN);
        EXPECT_EQ(run.Decode(9), RowsFromText("10|10"));
        EXPECT_EQ(run.record.NextLineTag, INT32_MIN);
    }
}

TEST(G3Decoder, BudgetEndsACallAtALineBoundary) {
    std::vector<unsigned> runs(100, 1);
    runs.back() = 1629;
    for (const unsigned format : {66u, 117u}) {
        // 117: one line before the hand-over takes its share of the call.
        const Bits stream = format == 66 ? Repeated(Line1D(runs), 3000)
                                         : kEol + "1" + Line1D(runs) + kEol + "0" + Repeated("1", 300000);
        CodecRun run(Packed(stream), {.format = format, .width = 1728});
        const size_t spare = format == 66 ? 1730 : 1731;
        EXPECT_EQ(run.Decode(3000), Rows((249998 - spare) / 102 + 1, Row(runs.begin(), runs.end())));
    }
}

const Bits kPage = Repeated(kEol + Line1D({100, 100, 1528}), 200);

TEST(G3Probe, CountsLines) {
    const struct {
        const char* name;
        unsigned format;
        Bits bits;
        int lines;
        unsigned width;
    } cases[] = {
        {"RTC", 66, kPage + Repeated(kEol, 6), 201, 1728},
        {"no RTC", 66, kPage, 200, 1728},
        {"longest line", 66, kPage + kEol + Line1D({2000, 48}) + kPage, 401, 2048},
        {"too long", 66, kPage + kEol + Line1D({60000, 60000, 60000, 30000}) + kPage, 0, 210000},
        {"200000 is not too long", 66, kEol + Line1D({60000, 60000, 60000, 20000}) + kEol, 2, 200000},
        {"a line of 65535", 66, kEol + Line1D({65535}) + Line1D({5, 6}) + kEol, 3, 11},
        {"empty", 66, "", 0, 0},
        {"fill only", 66, Bits(4000, '0'), 1, 0},
        {"tag", 67, Repeated(kEol + "1" + Line1D({100, 100, 1528}) + kEol + "0" + kV0, 50), 101, 1728},
        // Two-dimensional before any width is known: whatever the count, it comes to an end.
        {"2D without a width", 67, "0000000000000010001000111000000000001000111000000000001000111000", 3, 0}};
    for (const auto& c : cases) {
        CodecRun run(Packed(c.bits), {.format = c.format, .width = 0});
        EXPECT_EQ(run.Probe(), c.lines) << c.name;
        EXPECT_EQ(run.record.Width, c.width) << c.name;
    }
}

} // namespace
