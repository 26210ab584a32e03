// One-dimensional lines in the four formats, the hand-over of two-dimensional ones, and the probe.
#include <gtest/gtest.h>
#include <numeric>

#include "tests/codec_run.h"

namespace {

struct LineCase {
    const char* name;
    unsigned format;
    unsigned width;
    Bits bits;
    unsigned lines;
    const char* rows;
    unsigned widthAfter = 0; // 0: as before
    size_t bitsRead = 0;     // 0: not looked at
};

std::ostream& operator<<(std::ostream& out, const LineCase& c) {
    return out << c.name;
}

class G3Lines : public testing::TestWithParam<LineCase> {};

TEST_P(G3Lines, Decode) {
    resetTestKernel();
    const LineCase& c = GetParam();
    CodecRun run(packed(c.bits + repeated("1", 64)), {.format = c.format, .width = c.width});
    EXPECT_EQ(run.decode(c.lines), rowsFromText(c.rows));
    EXPECT_EQ(run.dispatch->Status, 0);
    EXPECT_EQ(run.record.DecodeStatus, 0u);
    EXPECT_EQ(run.record.Width, c.widthAfter != 0 ? c.widthAfter : c.width);
    EXPECT_TRUE(c.bitsRead == 0 || c.bitsRead == run.bitPosition()) << run.bitPosition();
}

const Bits WHITE_1728 = runBits(false, 1728);
const Bits BLACK_0 = runBits(true, 0);

INSTANTIATE_TEST_SUITE_P(
    OneDimensional, G3Lines,
    testing::Values(
        LineCase{"white line", 66, 1728, EOL + WHITE_1728 + EOL, 1, "1728", 0, 29},
        LineCase{"black 0 behind it", 66, 1728, EOL + WHITE_1728 + BLACK_0 + EOL, 1, "1728", 0, 39},
        LineCase{"no EOL between lines", 66, 10, line1D({2, 3, 5}) + line1D({0, 10}), 2, "2 3 5|0 10"},
        LineCase{"fill before EOLs", 66, 10,
                 Bits(37, '0') + EOL + line1D({4, 6}) + Bits(5, '0') + EOL + EOL + line1D({10}), 2, "4 6|10"},
        LineCase{"EOL at a black position", 66, 1728, line1D({100}) + EOL + WHITE_1728, 2, "100 1628|1728"},
        LineCase{"EOL at a white position", 66, 1728, line1D({100, 50}) + EOL + WHITE_1728, 2,
                 "100 50 1578|1728"},
        LineCase{"make-up before an EOL stays counted", 66, 100, Bits("11011") + EOL + line1D({6, 30}), 1,
                 "70 30"},
        LineCase{"zero runs inside", 66, 10, line1D({2, 0, 3, 5}), 1, "2 0 3 5"},
        LineCase{"within the byte", 66, 1725, WHITE_1728 + line1D({100, 1628}), 2, "1728|100 1628", 1728},
        LineCase{"entries keep their distances", 66, 1725, line1D({100, 1628}) + WHITE_1728, 2,
                 "103 1625|1728", 1728},
        LineCase{"past the byte", 66, 1728, line1D({1740}), 1, "1728"},
        LineCase{"black past the byte", 66, 1721, line1D({100, 1629}), 1, "100 1621"},
        LineCase{"one past the byte", 66, 1726, line1D({1729}), 1, "1726"},
        LineCase{"rows on byte boundaries", 162, 10, alignedToByte(line1D({2, 3, 5})) + line1D({10}), 2,
                 "2 3 5|10", 0, 24},
        LineCase{"black 0 is not read", 162, 10,
                 alignedToByte(line1D({10}) + BLACK_0).substr(0, 8) + line1D({4, 6}), 2, "10|4 6"},
        LineCase{"no black code drops the byte", 162, 30, alignedToByte(line1D({4})) + line1D({22, 8}), 2,
                 "4 26|22 8"},
        LineCase{"EOL skipped at a white position", 162, 10,
                 EOL + alignedToByte("0000" + line1D({10})).substr(4) + line1D({10}), 2, "10|10"}));

INSTANTIATE_TEST_SUITE_P(TwoDimensional, G3Lines,
                         testing::Values(LineCase{"67 returns after a 2D line", 67, 10,
                                                  EOL + "1" + line1D({2, 3, 5}) + EOL + "0" + VR1 + V0 + V0 +
                                                      EOL + "1" + line1D({10}),
                                                  4, "2 3 5|3 2 5"},
                                         LineCase{"67 without an EOL stays 1D", 67, 10,
                                                  line1D({2, 3, 5}) + line1D({10}), 2, "2 3 5|10"},
                                         LineCase{"67 tag read with the line's last EOL", 67, 10,
                                                  line1D({2}) + EOL + "0" + V0 + V0, 2, "2 8|2 8"},
                                         LineCase{"117 hands over for good", 117, 10,
                                                  EOL + "1" + line1D({2, 3, 5}) + EOL + "0" + V0 + V0 + V0 +
                                                      VR1 + V0 + V0 + V0 + V0 + V0,
                                                  4, "2 3 5|2 3 5|3 2 5|3 2 5"}));

TEST(G3Decoder, KTwoComesTwoByTwo) {
    const Bits pair = EOL + "1" + line1D({2, 3, 5}) + EOL + "0" + VR1 + VL1 + V0;
    CodecRun run(packed(repeated(pair, 3)), {.format = 67});
    for (int call = 0; call < 2; ++call)
        EXPECT_EQ(run.decode(4), rowsFromText("2 3 5|3 1 6"));
}

TEST(G3Decoder, TruncatedAndStopped) {
    const Bits line = EOL + line1D({100, 100, 1528});
    CodecRun run(packed(repeated(line, 4) + EOL + line1D({100})), {.format = 66, .width = 1728});
    Rows expected(4, Row{100, 100, 1528});
    expected.push_back({100, 1628});
    EXPECT_EQ(run.decode(10), expected);
    EXPECT_EQ(run.record.DecodeStatus, DECODE_STATUS_NO_DATA);
    EXPECT_EQ(run.dispatch->Status, 0);
    EXPECT_EQ(run.decode(5), Rows(5, Row{1728}));
    EXPECT_EQ(run.dispatch->Status, ERROR_FAX_DATA_CORRUPT);
}

TEST(G3Decoder, LinesPastTheRtcAreWhite) {
    CodecRun run(packed(EOL + line1D({4, 6}) + repeated(EOL, 6)), {.format = 66});
    EXPECT_EQ(run.decode(5), rowsFromText("4 6|10"));
    EXPECT_EQ(run.record.DecodeStatus, DECODE_STATUS_NO_DATA);
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

TEST(G3Limits, EmptyRunsEndAtTheLimit) {
    for (const unsigned width : {10u, 70001u, 250000u}) {
        SCOPED_TRACE(width);
        const Bits hostile = repeated(line1D({0, 0}), 130000);
        CodecRun run(packed(hostile + hostile), {.format = 66, .width = width});
        const Rows rows = run.decode(1);
        ASSERT_EQ(rows.size(), 1u);
        EXPECT_EQ(std::accumulate(rows[0].begin(), rows[0].end(), 0u), width);
        EXPECT_GE(wordsOf(rows), 249990u);
        EXPECT_EQ(run.dispatch->Status, ERROR_FAX_DATA_CORRUPT);
        EXPECT_EQ(run.decode(1).size(), 1u);
        CodecRun probe(packed(line1D({1, 0}) + hostile + hostile + EOL + EOL), {.format = 66, .width = 0});
        EXPECT_GE(probe.probe(), 1);
    }
}

struct ProbeCase {
    const char* name;
    unsigned format;
    Bits bits;
    int lines;
    unsigned width;
};

std::ostream& operator<<(std::ostream& out, const ProbeCase& c) {
    return out << c.name;
}

class G3Probe : public testing::TestWithParam<ProbeCase> {};

TEST_P(G3Probe, CountsLines) {
    resetTestKernel();
    const ProbeCase& c = GetParam();
    CodecRun run(packed(c.bits), {.format = c.format, .width = 0});
    EXPECT_EQ(run.probe(), c.lines);
    EXPECT_EQ(run.record.Width, c.width);
}

const Bits PAGE = repeated(EOL + line1D({100, 100, 1528}), 200);

INSTANTIATE_TEST_SUITE_P(
    Streams, G3Probe,
    testing::Values(
        ProbeCase{"RTC", 66, PAGE + repeated(EOL, 6), 201, 1728}, ProbeCase{"no RTC", 66, PAGE, 200, 1728},
        ProbeCase{"longest line", 66, PAGE + EOL + line1D({2000, 48}) + PAGE, 401, 2048},
        ProbeCase{"too long", 66, PAGE + EOL + line1D({60000, 60000, 60000, 30000}) + PAGE, 0, 210000},
        ProbeCase{"200000 is not too long", 66, EOL + line1D({60000, 60000, 60000, 20000}) + EOL, 2, 200000},
        ProbeCase{"a line of 65535", 66, EOL + line1D({65535}) + line1D({5, 6}) + EOL, 3, 11},
        ProbeCase{"empty", 66, "", 0, 0}, ProbeCase{"fill only", 66, Bits(4000, '0'), 1, 0},
        ProbeCase{"tag", 67, repeated(EOL + "1" + line1D({100, 100, 1528}) + EOL + "0" + V0, 50), 101, 1728},
        // Two-dimensional before any width is known: whatever the count, it comes to an end.
        ProbeCase{"2D without a width", 67,
                  "0000000000000010001000111000000000001000111000000000001000111000", 3, 0}));

} // namespace
