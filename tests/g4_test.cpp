// Two-dimensional lines: modes, b1 searches, EOFB, uncompressed mode, widening, damage and limits.
#include <gtest/gtest.h>
#include <numeric>

#include "tests/codec_run.h"

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
};

std::ostream& operator<<(std::ostream& out, const LineCase& c) {
    return out << c.name;
}

class G4Lines : public testing::TestWithParam<LineCase> {};

TEST_P(G4Lines, Decode) {
    resetTestKernel();
    const LineCase& c = GetParam();
    // Ones behind the stream: white lines for whoever reads too far, never the end of the input.
    CodecRun run(packed(c.bits + repeated("1", 64)), {.format = c.format, .width = c.width});
    EXPECT_EQ(run.decodeG4(c.lines), rowsFromText(c.rows));
    EXPECT_EQ(run.dispatch->Status, c.status);
    EXPECT_EQ(run.record.DecodeStatus, c.decodeStatus);
    EXPECT_EQ(run.record.Width, c.widthAfter != 0 ? c.widthAfter : c.width);
}

const Bits LINE_2_5 = horizontal(2, 3) + V0; // width 10: 2 3 5
const Bits DENSE = repeated(horizontal(1, 1), 3) + V0;

INSTANTIATE_TEST_SUITE_P(
    Modes, G4Lines,
    testing::Values(
        LineCase{"white", 10, "1", 1, "10"}, LineCase{"begins black", 10, horizontal(0, 3) + V0, 1, "0 3 7"},
        LineCase{"V0 on changes", 10, LINE_2_5 + "111", 2, "2 3 5|2 3 5"},
        LineCase{"VR1 VL1", 10, LINE_2_5 + VR1 + VL1 + V0, 2, "2 3 5|3 1 6"},
        LineCase{"VR2 VL2", 40, horizontal(10, 10) + V0 + VR2 + VL2 + V0, 2, "10 10 20|12 6 22"},
        LineCase{"VR3 VL3", 40, horizontal(10, 10) + V0 + VR3 + VL3 + V0, 2, "10 10 20|13 4 23"},
        LineCase{"pass", 10, LINE_2_5 + PASS + V0, 2, "2 3 5|10"},
        LineCase{"pass to the edge", 10, horizontal(0, 10) + PASS, 2, "0 10|10"},
        LineCase{"horizontal to the edge", 10, horizontal(4, 6) + V0 + V0, 2, "4 6|4 6"},
        LineCase{"black pair", 10, LINE_2_5 + V0 + horizontalBlack(2, 3) + V0, 2, "2 3 5|2 2 3 3"},
        LineCase{"VR1 ends at the edge", 10, horizontal(8, 1) + V0 + V0 + VR1, 2, "8 1 1|8 2"},
        LineCase{"VL1 from the right edge", 10, VL1 + V0, 1, "9 1"},
        LineCase{"b1 skips changes left of a1", 10, DENSE + VR3 + V0 + V0, 2, "1 1 1 1 1 1 4|4 2 4"},
        LineCase{"VL looks back: left of a1", 10, DENSE + V0 + VL1 + V0 + V0 + V0 + V0 + V0, 2,
                 "1 1 1 1 1 1 4|1 0 2 1 1 1 4"},
        LineCase{"VL looks back: right of a1", 10,
                 horizontal(1, 4) + horizontal(2, 3) + horizontal(1, 1) + VL3 + V0 + V0 + V0, 2,
                 "1 4 2 3|1 1 2 1 2 3"},
        LineCase{"VL gives a1 equal to a0", 10, horizontal(4, 1) + V0 + V0 + VL1 + V0, 2, "4 1 5|4 0 6"},
        LineCase{"b1 equal to a2 is passed over", 10, LINE_2_5 + horizontal(1, 1) + V0, 2, "2 3 5|1 1 8"},
        LineCase{"EOFB between lines", 10, alignedToByte(LINE_2_5 + EOFB) + V0 + V0, 3, "2 3 5|10|10"},
        LineCase{"EOFB inside a line", 10, alignedToByte(horizontal(2, 3) + EOFB) + V0, 2, "2 3 5|10"},
        LineCase{"EOFB after a pass", 10, alignedToByte(LINE_2_5 + PASS + EOFB) + V0, 2, "2 3 5|10"},
        LineCase{"long make-up chain", 8000, horizontal(2624, 5200) + V0, 1, "2624 5200 176"}));

INSTANTIATE_TEST_SUITE_P(
    Widening, G4Lines,
    testing::Values(
        LineCase{"by a pair", 1725, horizontal(100, 1628) + V0 + V0, 2, "100 1628|100 1628",
                 ERROR_FAX_WIDTH_CHANGED, 0, 1728},
        LineCase{"changes keep their columns", 5, horizontal(1, 1) + VR3 + V0 + V0 + V0, 2, "1 1 6|1 1 6",
                 ERROR_FAX_WIDTH_CHANGED, 0, 8},
        LineCase{"both ends past the edge", 5, horizontal(7, 1) + V0, 2, "7 1|7 1", ERROR_FAX_WIDTH_CHANGED,
                 0, 8},
        LineCase{"only once", 5, VR3 + VR3, 2, "8|8", ERROR_FAX_DATA_CORRUPT, 0, 8},
        LineCase{"two pixels of three", 1725, horizontal(100, 1627), 1, "100 1625", ERROR_FAX_DATA_CORRUPT},
        LineCase{"a multiple of 8", 16, VR1, 1, "16", ERROR_FAX_DATA_CORRUPT},
        LineCase{"first run past the edge", 10, horizontal(12, 1) + PASS, 2, "10|10", ERROR_FAX_DATA_CORRUPT},
        LineCase{"to the widest", 249999, V0 + VR1, 2, "65534 0 65534 0 65534 0 53397", 0, 0, 249999}));

INSTANTIATE_TEST_SUITE_P(
    Damage, G4Lines,
    testing::Values(
        LineCase{"a1 left of a0", 10, horizontal(2, 2) + V0 + V0 + VL3 + V0 + V0, 3, "2 2 6|2 8|2 8",
                 ERROR_FAX_DATA_CORRUPT, DECODE_STATUS_BAD_CODE},
        LineCase{"seven zeros", 10, LINE_2_5 + "00000001" + V0 + V0, 3, "2 3 5|10|10",
                 ERROR_FAX_DATA_CORRUPT},
        LineCase{"seven zeros in a line", 10, horizontal(2, 3) + "00000000" + V0 + V0 + V0, 2, "2 3 5|2 3 5",
                 ERROR_FAX_DATA_CORRUPT},
        LineCase{"half an EOFB", 10, V0 + horizontal(2, 3) + EOL + "0000" + "00000011", 3, "10", 0,
                 DECODE_STATUS_BAD_CODE},
        LineCase{"no white code", 10, HORIZONTAL + "000000001" + V0, 1, "10"},
        LineCase{"no white code, second pair", 10, horizontal(2, 3) + HORIZONTAL + EOL + V0 + V0 + V0, 2,
                 "2 3 5|2 3 5"},
        LineCase{"no black code", 10, HORIZONTAL + runBits(false, 4) + EOL + V0 + V0, 2, "4 6|4 6"},
        LineCase{"make-up before the missing code", 100,
                 HORIZONTAL + Bits("11011") + EOL + horizontal(40, 20) + V0, 1, "40 20 40"},
        LineCase{"no black code, tag", 10, HORIZONTAL + runBits(false, 4) + EOL + "0" + V0 + V0, 2, "4 6|4 6",
                 0, 0, 0, FORMAT_FAX_G3_2D},
        LineCase{"no black code, nothing skipped", 10, HORIZONTAL + runBits(false, 4) + "00000001" + V0 + V0,
                 2, "4 6|4 6", ERROR_FAX_DATA_CORRUPT, 0, 0, FORMAT_FAX_G3_1D_NOEOL}));

INSTANTIATE_TEST_SUITE_P(
    Uncompressed, G4Lines,
    testing::Values(
        LineCase{"pixels", 10, UNCOMPRESSED + "0110" + "00000010" + V0, 1, "1 2 7"},
        LineCase{"to the edge", 10, UNCOMPRESSED + "11011000001" + repeated(V0, 5), 2, "0 2 1 2 5|0 2 1 2 5"},
        LineCase{"five whites past the edge", 8, UNCOMPRESSED + "1111000001" + V0 + V0, 2, "0 4 4|0 4 4"},
        LineCase{"goes on from black", 10, LINE_2_5 + V0 + UNCOMPRESSED + "101" + "00000010" + V0, 2,
                 "2 3 5|2 1 1 1 5"},
        LineCase{"no pixels, exit to black", 10, UNCOMPRESSED + "00000011" + V0, 1, "0 10"},
        LineCase{"b1 is sought from the start", 10,
                 DENSE + UNCOMPRESSED + "00" + "00000011" + V0 + V0 + V0 + V0, 2, "1 1 1 1 1 1 4|2 2 1 1 4"},
        LineCase{"other extension", 10, LINE_2_5 + horizontal(1, 1) + "0000001110", 2, "2 3 5",
                 ERROR_FAX_DATA_CORRUPT}));

TEST(G4Uncompressed, EveryExitCode) {
    for (unsigned whites = 0; whites <= 4; ++whites)
        for (const bool black : {false, true}) {
            const Bits exit = Bits(whites, '0') + "0000001" + (black ? "1" : "0");
            CodecRun run(packed(UNCOMPRESSED + "11" + exit + V0 + repeated("1", 64)), {});
            const Row expected = black && whites == 0 ? Row{0, 10}
                                 : black              ? Row{0, 2, whites, 8 - whites}
                                                      : Row{0, 2, 8};
            EXPECT_EQ(run.decode(1), Rows{expected}) << whites << black;
        }
}

// An early return keeps the bit it stopped at: the next call starts a new line there.
TEST(G4Damage, EarlyReturnsResume) {
    CodecRun extension(packed(V0 + "0000001000" + repeated("1", 64)), {});
    EXPECT_EQ(extension.decode(5), rowsFromText("10"));
    EXPECT_EQ(extension.bitPosition(), 1u);
    EXPECT_EQ(extension.decode(5), Rows());
    EXPECT_EQ(extension.bitPosition(), 1u);

    CodecRun half(packed(V0 + EOL + "000011" + repeated("1", 64)), {});
    EXPECT_EQ(half.decode(5), rowsFromText("10"));
    EXPECT_EQ(half.bitPosition(), 17u);
    EXPECT_EQ(half.decode(3), rowsFromText("10|10|10"));
    EXPECT_EQ(half.bitPosition(), 17u);
    EXPECT_EQ(half.dispatch->Status, 0);
}

TEST(G4Damage, EndOfInputDeliversTheLineInProgress) {
    CodecRun run(packed(LINE_2_5 + V0 + V0 + V0 + horizontal(4, 1)), {});
    const Rows rows = run.decode(100);
    EXPECT_EQ(Rows(rows.begin(), rows.begin() + 3), rowsFromText("2 3 5|2 3 5|4 1 5"));
    EXPECT_EQ(run.record.DecodeStatus, DECODE_STATUS_NO_DATA);
    const size_t calls = testKernel().calls;
    EXPECT_EQ(run.decode(100), Rows(100, Row{10}));
    EXPECT_EQ(testKernel().calls, calls);

    CodecRun whole(packed(LINE_2_5 + EOFB), {});
    EXPECT_EQ(whole.decode(1), rowsFromText("2 3 5"));
    EXPECT_EQ(whole.dispatch->Status, 0);
}

TEST(G4Rows, LongRunsAreCut) {
    const struct {
        unsigned width;
        const char* white;
    } cases[] = {{0, "0"},
                 {1, "1"},
                 {65533, "65533"},
                 {65534, "65534"},
                 {65535, "65534 0 1"},
                 {70000, "65534 0 4466"},
                 {131068, "65534 0 65534"},
                 {250000, "65534 0 65534 0 65534 0 53398"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.width);
        const Rows white = rowsFromText(c.white);
        CodecRun run(packed(V0 + repeated("1", 64)), {.width = c.width});
        EXPECT_EQ(run.decode(1), white);
        CodecRun stopped(Bytes(), {.width = c.width});
        EXPECT_EQ(stopped.decode(1), white);
        if (c.width == 0)
            continue;
        // The same as one black run behind an empty white one.
        Row black = white.front();
        black.insert(black.begin(), 0);
        CodecRun inverse(packed(horizontal(0, c.width) + repeated("1", 64)), {.width = c.width});
        EXPECT_EQ(inverse.decode(1), Rows{black});
    }
}

TEST(G4Limits, BudgetEndsACallAtALineBoundary) {
    // 100 runs a line, 102 words a row: a call goes on while width + 3 words are left.
    const Bits line = horizontal(0, 1) + repeated(horizontal(1, 1), 48) + horizontal(1, 1631);
    CodecRun run(packed(repeated(line, 3000) + repeated("1", 64)), {.width = 1728});
    const size_t rows = (249998 - 1731) / 102 + 1;
    EXPECT_EQ(run.decode(3000).size(), rows);
    EXPECT_EQ(run.decode(3000 - static_cast<unsigned>(rows)).size(), 3000 - rows);

    CodecRun white(Bytes(), {.width = 70000});
    EXPECT_EQ(white.decode(1000000).size(), 249998u / 5);
}

// Zero-length runs may not grow a line past its list or the row area; the next line is whole again.
TEST(G4Limits, EmptyRunsEndAtTheLimit) {
    for (const unsigned width : {10u, 70001u, 250000u}) {
        SCOPED_TRACE(width);
        const Bits hostile[] = {repeated(horizontal(0, 0), 130000),
                                repeated(UNCOMPRESSED + "00000011" + UNCOMPRESSED + "00000010", 130000)};
        for (const Bits& bits : hostile) {
            CodecRun run(packed(bits + repeated("1", 64)), {.width = width});
            const Rows rows = run.decode(1);
            ASSERT_EQ(rows.size(), 1u);
            EXPECT_EQ(std::accumulate(rows[0].begin(), rows[0].end(), 0u), width);
            EXPECT_LE(wordsOf(rows), 249998u);
            EXPECT_GE(wordsOf(rows), 249990u);
            EXPECT_EQ(run.dispatch->Status, ERROR_FAX_DATA_CORRUPT);
            EXPECT_EQ(run.decode(1).size(), 1u);
        }
    }
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

} // namespace
