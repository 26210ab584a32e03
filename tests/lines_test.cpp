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
LineCase g3(const char* name, unsigned format, unsigned width, const Bits& bits, unsigned lines,
            const char* rows, unsigned widthAfter = 0, size_t bitsRead = 0) {
    return {name, width, bits, lines, rows, 0, 0, widthAfter, format, bitsRead, true};
}

void expectLines(std::initializer_list<LineCase> cases) {
    resetTestKernel();
    // Ones behind the stream: white lines for whoever reads too far, never the end of the input. With many of
    // them the fast decoders read it.
    for (const size_t ones : {64u, 512u})
        for (const LineCase& c : cases) {
            SCOPED_TRACE(testing::Message() << c.name << ", ones " << ones);
            CodecRun run(packed(c.bits + repeated("1", ones)), {.format = c.format, .width = c.width});
            EXPECT_EQ(c.throughG3 ? run.decode(c.lines) : run.decodeG4(c.lines), rowsFromText(c.rows));
            EXPECT_EQ(run.dispatch->Status, c.status);
            EXPECT_EQ(run.record.DecodeStatus, c.decodeStatus);
            EXPECT_EQ(run.record.Width, c.widthAfter != 0 ? c.widthAfter : c.width);
            EXPECT_TRUE(c.bitsRead == 0 || c.bitsRead == run.bitPosition()) << run.bitPosition();
        }
}

const Bits LINE_2_5 = horizontal(2, 3) + V0; // width 10: 2 3 5
const Bits DENSE = repeated(horizontal(1, 1), 3) + V0;

TEST(G4Lines, Modes) {
    expectLines({{"white", 10, "1", 1, "10"},
                 {"padding for a black run", 10, HORIZONTAL + runBits(false, 2) + repeated("0", 12), 1, "2 8",
                  0, 0, 0, FORMAT_FAX_G3_1D_NOEOL},
                 {"exit code at width 0", 0, UNCOMPRESSED + "00000010", 1, "0"},
                 {"begins black", 10, horizontal(0, 3) + V0, 1, "0 3 7"},
                 {"VR1 VL1", 10, LINE_2_5 + VR1 + VL1 + V0, 2, "2 3 5|3 1 6"},
                 {"VR3 VL3", 40, horizontal(10, 10) + V0 + VR3 + VL3 + V0, 2, "10 10 20|13 4 23"},
                 {"pass", 10, LINE_2_5 + PASS + V0, 2, "2 3 5|10"},
                 {"pass to the edge", 10, horizontal(0, 10) + PASS, 2, "0 10|10"},
                 {"black pair", 10, LINE_2_5 + V0 + horizontalBlack(2, 3) + V0, 2, "2 3 5|2 2 3 3"},
                 {"VR1 ends at the edge", 10, horizontal(8, 1) + V0 + V0 + VR1, 2, "8 1 1|8 2"},
                 {"VL1 from the right edge", 10, VL1 + V0, 1, "9 1"},
                 {"b1 skips changes left of a1", 10, DENSE + VR3 + V0 + V0, 2, "1 1 1 1 1 1 4|4 2 4"},
                 {"VL looks back: left of a1", 10, DENSE + V0 + VL1 + V0 + V0 + V0 + V0 + V0, 2,
                  "1 1 1 1 1 1 4|1 0 2 1 1 1 4"},
                 {"VL looks back: right of a1", 10,
                  horizontal(1, 4) + horizontal(2, 3) + horizontal(1, 1) + VL3 + V0 + V0 + V0, 2,
                  "1 4 2 3|1 1 2 1 2 3"},
                 {"VL gives a1 equal to a0", 10, horizontal(4, 1) + V0 + V0 + VL1 + V0, 2, "4 1 5|4 0 6"},
                 {"b1 equal to a2 is passed over", 10, LINE_2_5 + horizontal(1, 1) + V0, 2, "2 3 5|1 1 8"},
                 {"EOFB between lines", 10, alignedToByte(LINE_2_5 + EOFB) + V0 + V0, 3, "2 3 5|10|10"},
                 {"EOFB after a pass", 10, alignedToByte(LINE_2_5 + PASS + EOFB) + V0, 2, "2 3 5|10"},
                 {"long make-up chain", 8000, horizontal(2624, 5200) + V0, 1, "2624 5200 176"}});
}

TEST(G4Lines, Widening) {
    expectLines(
        {{"by a pair", 1725, horizontal(100, 1628) + V0 + V0, 2, "100 1628|100 1628", ERROR_FAX_WIDTH_CHANGED,
          0, 1728},
         {"changes keep their columns", 5, horizontal(1, 1) + VR3 + V0 + V0 + V0, 2, "1 1 6|1 1 6",
          ERROR_FAX_WIDTH_CHANGED, 0, 8},
         {"both ends past the edge", 5, horizontal(7, 1) + V0, 2, "7 1|7 1", ERROR_FAX_WIDTH_CHANGED, 0, 8},
         {"only once", 5, VR3 + VR3, 2, "8|8", ERROR_FAX_DATA_CORRUPT, 0, 8},
         {"two pixels of three", 1725, horizontal(100, 1627), 1, "100 1625", ERROR_FAX_DATA_CORRUPT},
         {"a multiple of 8", 16, VR1, 1, "16", ERROR_FAX_DATA_CORRUPT},
         {"a whole byte past it", 16, horizontal(10, 14), 1, "10 6", ERROR_FAX_DATA_CORRUPT},
         {"first run past the edge", 10, horizontal(12, 1) + PASS, 2, "10|10", ERROR_FAX_DATA_CORRUPT},
         {"to the widest", 249999, V0 + VR1, 2, "65534 0 65534 0 65534 0 53397", 0, 0, 249999}});
}

TEST(G4Lines, Damage) {
    expectLines(
        {{"a1 left of a0", 10, horizontal(2, 2) + V0 + V0 + VL3 + V0 + V0, 3, "2 2 6|2 8|2 8",
          ERROR_FAX_DATA_CORRUPT, DECODE_STATUS_BAD_CODE},
         {"seven zeros", 10, LINE_2_5 + "00000001" + V0 + V0, 3, "2 3 5|10|10", ERROR_FAX_DATA_CORRUPT},
         {"half an EOFB", 10, V0 + horizontal(2, 3) + EOL + "0000" + "00000011", 3, "10", 0,
          DECODE_STATUS_BAD_CODE},
         {"no white code", 10, HORIZONTAL + "000000001" + V0, 1, "10"},
         {"no black code", 10, HORIZONTAL + runBits(false, 4) + EOL + V0 + V0, 2, "4 6|4 6"},
         {"make-up before the missing code", 100, HORIZONTAL + Bits("11011") + EOL + horizontal(40, 20) + V0,
          1, "40 20 40"},
         {"no black code, tag", 10, HORIZONTAL + runBits(false, 4) + EOL + "0" + V0 + V0, 2, "4 6|4 6", 0, 0,
          0, FORMAT_FAX_G3_2D},
         {"a run back to the left", 100,
          horizontal(4, 4) + HORIZONTAL + runBits(false, 0u - 3) + runBits(true, 4) +
              repeated(horizontal(1, 1), 4) + V0,
          1, "4 4 92"},
         {"a run back to the left, of many", 100,
          horizontal(4, 4) + HORIZONTAL + runBits(false, 0u - 3) + runBits(true, 4) +
              repeated(horizontal(1, 1), 12) + V0,
          1, "4 4 92"},
         {"no black code, nothing skipped", 10, HORIZONTAL + runBits(false, 4) + "00000001" + V0 + V0, 2,
          "4 6|4 6", ERROR_FAX_DATA_CORRUPT, 0, 0, FORMAT_FAX_G3_1D_NOEOL}});
}

TEST(G4Lines, Uncompressed) {
    expectLines(
        {{"pixels", 10, UNCOMPRESSED + "0110" + "00000010" + V0, 1, "1 2 7"},
         {"to the edge", 10, UNCOMPRESSED + "11011000001" + repeated(V0, 5), 2, "0 2 1 2 5|0 2 1 2 5"},
         {"five whites past the edge", 8, UNCOMPRESSED + "1111000001" + V0 + V0, 2, "0 4 4|0 4 4"},
         {"goes on from black", 10, LINE_2_5 + V0 + UNCOMPRESSED + "101" + "00000010" + V0, 2,
          "2 3 5|2 1 1 1 5"},
         {"exit to white", 10, UNCOMPRESSED + "1100000010" + V0, 1, "0 2 8"},
         {"exit behind four whites", 10, UNCOMPRESSED + "11" + "0000" + "00000011" + V0, 1, "0 2 4 4"},
         {"no pixels, exit to black", 10, UNCOMPRESSED + "00000011" + V0, 1, "0 10"},
         {"b1 is sought from the start", 10, DENSE + UNCOMPRESSED + "00" + "00000011" + V0 + V0 + V0 + V0, 2,
          "1 1 1 1 1 1 4|2 2 1 1 4"},
         {"other extension", 10, LINE_2_5 + horizontal(1, 1) + "0000001110", 2, "2 3 5",
          ERROR_FAX_DATA_CORRUPT}});
}

TEST(G4Limits, BudgetEndsACallAtALineBoundary) {
    // 100 runs a line, 102 words a row: a call goes on while width + 3 words are left, in one case exactly.
    for (const unsigned width : {1727u, 1728u}) {
        const Bits line = horizontal(0, 1) + repeated(horizontal(1, 1), 48) + horizontal(1, width - 98);
        CodecRun run(packed(repeated(line, 3000) + repeated("1", 64)), {.width = width});
        const size_t rows = (249998 - (width + 3)) / 102 + 1;
        EXPECT_EQ(run.decode(3000).size(), rows);
        EXPECT_EQ(run.decode(3000 - static_cast<unsigned>(rows)).size(), 3000 - rows);
    }

    CodecRun blank(packed(repeated(V0, 90000)), {.width = 1728});
    EXPECT_EQ(blank.decode(90000).size(), (249998u - 1731) / 3 + 1);
    CodecRun white(Bytes(), {.width = 70000});
    EXPECT_EQ(white.decode(1000000).size(), 249998u / 5);
}

// Zero-length runs may not grow a line past its list or the row area; the next line is whole again.
TEST(G4Limits, EmptyRunsEndAtTheLimit) {
    const std::pair<unsigned, Bits> hostile[] = {
        {68, repeated(horizontal(0, 0), 130000)},
        {68, repeated(UNCOMPRESSED + "00000011" + UNCOMPRESSED + "00000010", 130000)},
        {66, repeated(line1D({0, 0}), 260000)}};
    for (const unsigned width : {10u, 70001u, 250000u})
        for (const auto& [format, bits] : hostile) {
            SCOPED_TRACE(testing::Message() << format << " width " << width);
            CodecRun run(packed(bits + repeated("1", 64)), {.format = format, .width = width});
            const Rows rows = run.decode(1);
            ASSERT_EQ(rows.size(), 1u);
            EXPECT_EQ(std::accumulate(rows[0].begin(), rows[0].end(), 0u), width);
            EXPECT_GE(wordsOf(rows), 249990u);
            EXPECT_EQ(run.dispatch->Status, ERROR_FAX_DATA_CORRUPT);
            EXPECT_EQ(run.decode(1).size(), 1u);
            if (format == 66) {
                run.restart(packed(line1D({1, 0}) + bits + EOL + EOL), {.format = 66, .width = 0});
                EXPECT_GE(run.probe(), 1);
            }
        }
}

// A call's first line has room for every pixel as a change, as far as a list holds them.
TEST(G4Limits, EveryPixelOfTheWidestLinesIsAChange) {
    for (const unsigned format : {66u, 67u, 68u, 117u, 162u})
        for (const unsigned width : {249995u, 249996u, 249997u}) {
            SCOPED_TRACE(testing::Message() << format << " width " << width);
            const Picture picture(2, Bytes((width + 7) / 8, 0xAA));
            CodecRun run(codedPicture(picture, width, format), {.format = format, .width = width});
            for (const Bytes& row : picture) {
                const Rows rows = run.decode(1);
                ASSERT_EQ(rows.size(), 1u);
                EXPECT_EQ(rows[0].size(), changesOf(row, width).size() + 1);
            }
            EXPECT_EQ(run.dispatch->Status, 0);
        }
}

// Each exit from uncompressed mode looks for b1 anew: from where the last search ended, or this would take
// minutes.
TEST(G4Limits, ExitsFromUncompressedModeAreLinear) {
    constexpr unsigned kWidth = 249997;
    const Bits pixels = repeated(horizontal(1, 1), kWidth / 2) + horizontal(1, 0);
    const Bits exits = repeated(UNCOMPRESSED + "00000010", 400000);
    CodecRun run(packed(pixels + repeated(V0, kWidth / 2) + exits + V0), {.width = kWidth});
    EXPECT_EQ(run.decode(1).size(), 1u);
    const std::clock_t start = std::clock();
    EXPECT_EQ(run.decode(1).size(), 1u);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
}

TEST(G4Limits, NoLinesAskedNothingDone) {
    CodecRun run(packed(V0 + VL1 + V0), {});
    const CCITTG34 before = run.record;
    run.area[0] = 4711;
    EXPECT_EQ(DecodeG4(&run.record, run.area.data(), 0), 0u);
    EXPECT_EQ(DecodeG3(&run.record, run.area.data(), 0), 0u);
    EXPECT_EQ(std::memcmp(&before, &run.record, sizeof before), 0);
    EXPECT_EQ(run.area[0], 4711);
}

const Bits WHITE_1728 = runBits(false, 1728);
const Bits BLACK_0 = runBits(true, 0);

TEST(G3Lines, OneDimensional) {
    expectLines(
        {g3("white line", 66, 1728, EOL + WHITE_1728 + EOL, 1, "1728", 0, 29),
         g3("black 0 behind it", 66, 1728, EOL + WHITE_1728 + BLACK_0 + EOL, 1, "1728", 0, 39),
         g3("white lines, black 0 behind the last", 66, 1728, repeated(EOL + WHITE_1728, 3) + BLACK_0 + EOL,
            3, "1728|1728|1728", 0, 97),
         g3("no EOL between lines", 66, 10, line1D({2, 3, 5}) + line1D({0, 10}), 2, "2 3 5|0 10"),
         g3("fill before EOLs", 66, 10,
            Bits(37, '0') + EOL + line1D({4, 6}) + Bits(5, '0') + EOL + EOL + line1D({10}), 2, "4 6|10"),
         g3("fill longer than a window", 66, 10, line1D({4, 6}) + Bits(60, '0') + EOL + line1D({3, 7}), 2,
            "4 6|3 7"),
         g3("EOL at a black position", 66, 1728, line1D({100}) + EOL + WHITE_1728, 2, "100 1628|1728"),
         g3("EOL at a white position", 66, 1728, line1D({100, 50}) + EOL + WHITE_1728, 2, "100 50 1578|1728"),
         g3("make-up before an EOL stays counted", 66, 100, Bits("11011") + EOL + line1D({6, 30}), 1,
            "70 30"),
         g3("within the byte", 66, 1725, WHITE_1728 + line1D({100, 1628}), 2, "1728|100 1628", 1728),
         g3("entries keep their distances", 66, 1725, line1D({100, 1628}) + WHITE_1728, 2, "103 1625|1728",
            1728),
         g3("black past the byte", 66, 1721, line1D({100, 1629}), 1, "100 1621"),
         g3("one past the byte", 66, 1726, line1D({1729}), 1, "1726"),
         g3("rows on byte boundaries", 162, 10, alignedToByte(line1D({2, 3, 5})) + line1D({10}), 2,
            "2 3 5|10", 0, 24),
         g3("black 0 is not read", 162, 10,
            alignedToByte(line1D({10}) + BLACK_0).substr(0, 8) + line1D({4, 6}), 2, "10|4 6"),
         g3("no black code drops the byte", 162, 30, alignedToByte(line1D({4})) + line1D({22, 8}), 2,
            "4 26|22 8"),
         g3("EOL skipped at a white position", 162, 10,
            EOL + alignedToByte("0000" + line1D({10})).substr(4) + line1D({10}), 2, "10|10")});
}

TEST(G3Lines, TwoDimensional) {
    expectLines(
        {g3("67 returns after a 2D line", 67, 10,
            EOL + "1" + line1D({2, 3, 5}) + EOL + "0" + VR1 + V0 + V0 + EOL + "1" + line1D({10}), 4,
            "2 3 5|3 2 5"),
         g3("67 blank lines, one asked for", 67, 10, EOL + "1" + line1D({10}) + EOL + "0" + V0 + EOL, 1,
            "10"),
         g3("67 without an EOL stays 1D", 67, 10, line1D({2, 3, 5}) + line1D({10}), 2, "2 3 5|10"),
         g3("67 tag read with the line's last EOL", 67, 10, line1D({2}) + EOL + "0" + V0 + V0, 2, "2 8|2 8"),
         g3("117 hands over for good", 117, 10,
            EOL + "1" + line1D({2, 3, 5}) + EOL + "0" + V0 + V0 + V0 + VR1 + V0 + V0 + V0 + V0 + V0, 4,
            "2 3 5|2 3 5|3 2 5|3 2 5")});
}

// A stretch of blank lines ends where another line comes, or where no more lines are asked for.
TEST(G3Lines, StretchesOfBlankLines) {
    resetTestKernel();
    const struct {
        unsigned format;
        unsigned width;
        Bits blank;
        Bits other; // 100 pixels of white, the rest black
    } cases[] = {
        {66, 1728, EOL + line1D({1728}), EOL + line1D({100, 1628})},
        {66, 4960, EOL + line1D({4960}), EOL + line1D({100, 4860})},
        {67, 2480, EOL + "1" + line1D({2480}), EOL + "1" + line1D({100, 2380})},
        {162, 1728, alignedToByte(line1D({1728})), alignedToByte(line1D({100, 1628}))},
    };
    for (const auto& c : cases)
        for (const unsigned count : {7u, 8u, 9u, 10u, 40u, 701u})
            for (const unsigned asked : {count - 1, count, count + 1, count + 3}) {
                SCOPED_TRACE(testing::Message() << c.format << ": " << asked << " of " << count);
                const Bits stream = repeated(c.blank, count) + c.other + repeated(c.blank, 2);
                CodecRun run(packed(stream + repeated("1", 512)),
                             {.format = c.format, .width = c.width, .smallBuffer = count % 2});
                Rows rows(count + 3, Row{static_cast<unsigned short>(c.width)});
                rows[count] = {100, static_cast<unsigned short>(c.width - 100)};
                rows.resize(asked);
                EXPECT_EQ(run.decode(asked), rows);
                const bool pastOther = asked > count;
                EXPECT_EQ(run.bitPosition(),
                          (asked - pastOther) * c.blank.size() + pastOther * c.other.size());
            }
}

// The line at which repeated bytes would be looked for is the last of the data.
TEST(G3Lines, EightBlankLinesAndNoMore) {
    resetTestKernel();
    CodecRun run(packed(repeated(EOL + WHITE_1728, 8)), {.format = 66, .width = 1728});
    EXPECT_EQ(run.decode(8), Rows(8, Row{1728}));
    EXPECT_EQ(run.bitPosition(), 8 * 29u);
    run.restart(packed(repeated(EOL + WHITE_1728, 8)), {.format = 66, .width = 1728});
    EXPECT_EQ(run.decode(20), Rows(9, Row{1728}));
    EXPECT_EQ(run.record.DecodeStatus, DECODE_STATUS_NO_DATA);
}

// Pairs of a blank one-dimensional and a blank two-dimensional line, and second lines alone, over many fills
// of the small buffer.
TEST(G3Lines, PairsOfBlankLines) {
    resetTestKernel();
    static constexpr unsigned short kWidths[] = {8, 1728, 2480, 2560, 4960, 5119, 5120, 9472, 20000};
    for (const unsigned short width : kWidths)
        for (const Bits& fill : {Bits(), Bits("000"), Bits("0000000")}) {
            SCOPED_TRACE(testing::Message() << width << " with " << fill);
            const Bits first = EOL + "1" + line1D({width});
            const Bits second = EOL + "0" + V0;
            const Bits three = fill + first + second + second;
            // Behind them two pairs that differ from such a one in the last bit, and in the tag.
            CodecRun run(packed(repeated(three, 1000) + first + EOL + "0" + VL1 + V0 + first + first +
                                repeated("1", 512)),
                         {.format = 67, .width = width, .smallBuffer = 1});
            EXPECT_EQ(run.decode(1), Rows(1, Row{width}));
            for (unsigned call = 0; call < 2000; ++call)
                ASSERT_EQ(run.decode(9), Rows(call == 0 || call % 2 == 1 ? 1 : 2, Row{width}))
                    << "call " << call;
            EXPECT_EQ(run.bitPosition(), 1000 * three.size());
            EXPECT_EQ(run.decode(9), (Rows{{width}, {static_cast<unsigned short>(width - 1), 1}}));
            EXPECT_EQ(run.decode(2), Rows(2, Row{width}));
        }
}

// A call that ends with a two-dimensional line leaves no trace of the tags it met.
TEST(G3Lines, TheTagAfterATwoDimensionalLine) {
    resetTestKernel();
    const Bits oneDimensional = EOL + "1";
    for (const Bits& line : {oneDimensional + line1D({2, 3, 5}), oneDimensional + line1D({10})}) {
        CodecRun run(packed(line + oneDimensional + line1D({10}) + EOL + "0" + V0 + repeated("1", 512)),
                     {.format = 67, .width = 10});
        EXPECT_EQ(run.decode(1).size(), 1u);
        EXPECT_NE(run.record.NextLineTag, INT32_MIN);
        EXPECT_EQ(run.decode(9), rowsFromText("10|10"));
        EXPECT_EQ(run.record.NextLineTag, INT32_MIN);
    }
}

TEST(G3Decoder, BudgetEndsACallAtALineBoundary) {
    std::vector<unsigned> runs(100, 1);
    runs.back() = 1629;
    for (const unsigned format : {66u, 117u}) {
        // 117: one line before the hand-over takes its share of the call.
        const Bits stream = format == 66 ? repeated(line1D(runs), 3000)
                                         : EOL + "1" + line1D(runs) + EOL + "0" + repeated("1", 300000);
        CodecRun run(packed(stream), {.format = format, .width = 1728});
        const size_t spare = format == 66 ? 1730 : 1731;
        EXPECT_EQ(run.decode(3000), Rows((249998 - spare) / 102 + 1, Row(runs.begin(), runs.end())));
    }
}

const Bits PAGE = repeated(EOL + line1D({100, 100, 1528}), 200);

TEST(G3Probe, CountsLines) {
    const struct {
        const char* name;
        unsigned format;
        Bits bits;
        int lines;
        unsigned width;
    } cases[] = {
        {"RTC", 66, PAGE + repeated(EOL, 6), 201, 1728},
        {"no RTC", 66, PAGE, 200, 1728},
        {"longest line", 66, PAGE + EOL + line1D({2000, 48}) + PAGE, 401, 2048},
        {"too long", 66, PAGE + EOL + line1D({60000, 60000, 60000, 30000}) + PAGE, 0, 210000},
        {"200000 is not too long", 66, EOL + line1D({60000, 60000, 60000, 20000}) + EOL, 2, 200000},
        {"a line of 65535", 66, EOL + line1D({65535}) + line1D({5, 6}) + EOL, 3, 11},
        {"empty", 66, "", 0, 0},
        {"fill only", 66, Bits(4000, '0'), 1, 0},
        {"tag", 67, repeated(EOL + "1" + line1D({100, 100, 1528}) + EOL + "0" + V0, 50), 101, 1728},
        // Two-dimensional before any width is known: whatever the count, it comes to an end.
        {"2D without a width", 67, "0000000000000010001000111000000000001000111000000000001000111000", 3, 0}};
    for (const auto& c : cases) {
        CodecRun run(packed(c.bits), {.format = c.format, .width = 0});
        EXPECT_EQ(run.probe(), c.lines) << c.name;
        EXPECT_EQ(run.record.Width, c.width) << c.name;
    }
}

} // namespace
