// Coded pictures: the reference encoder's bytes, our decoder's lines, libtiff's pixels.
#include <gtest/gtest.h>

#include "tests/codec_run.h"
#include "tests/encode_run.h"
#include "tests/tiff_strip.h"

namespace {

constexpr size_t MOST_ROW_WORDS = 249998; // what a decoder call may write

// Decodes line by line; each must come back and stand in the decoder's reference line.
void expectDecoded(const Bytes& stream, unsigned format, unsigned width, bool reversed,
                   const std::vector<Line>& lines) {
    CodecSetup setup;
    setup.format = format;
    setup.width = width;
    setup.flags = reversed ? 1 : 0;
    CodecRun decoder(stream, setup);
    for (size_t y = 0; y < lines.size(); ++y) {
        const Rows rows = decoder.decode(1);
        ASSERT_EQ(rows.size(), 1u) << "row " << y;
        ASSERT_EQ(changesOf(rows[0]), lines[y]) << "row " << y;
        for (size_t i = 0; i < lines[y].size() + 3; ++i)
            ASSERT_EQ(decoder.record.ReferenceLine[i], i < lines[y].size() ? width - lines[y][i] : 0u);
    }
    EXPECT_EQ(decoder.dispatch->Status, 0);
    EXPECT_EQ(decoder.record.DecodeStatus, DECODE_STATUS_OK);
}

void expectRoundTrip(const Picture& picture, unsigned format, unsigned width, unsigned flags,
                     int resolution) {
    const std::vector<Line> lines = linesOf(picture, width);
    Bytes stream;
    {
        resetTestKernel();
        EncoderRun encoder(format, width, flags, resolution);
        for (const Bytes& row : picture)
            encoder.encode(row);
        stream = encoder.finish();
    }
    EXPECT_TRUE(nothingHeld());
    const bool reversed = (flags & FAX_REVERSE_BITS) != 0;
    size_t longest = 0;
    for (const Line& line : lines)
        longest = std::max(longest, line.size());
    if (2 + longest + 1 + 2 * (width / 65534) <= MOST_ROW_WORDS)
        expectDecoded(stream, format, width, reversed, lines);
    // libtiff has no format 117, and for a one-dimensional line no room for more runs than this.
    if (format != 117 && width <= 65535 && longest < (width + 31) / 32 * 32) {
        const std::optional<Picture> seen = decodedByLibtiff(stream, format, width, picture.size(), reversed);
        ASSERT_TRUE(seen.has_value()) << "libtiff complains";
        EXPECT_EQ(linesOf(*seen, width), lines) << "libtiff";
    }
}

class RoundTrip : public testing::TestWithParam<unsigned> {};

TEST_P(RoundTrip, EveryNarrowWidth) {
    std::mt19937 random(GetParam());
    for (unsigned width = 1; width <= 70; ++width)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
            const unsigned flags = static_cast<unsigned>(random() % 8);
            SCOPED_TRACE(testing::Message() << "width " << width << " kind " << kind << " flags " << flags);
            expectRoundTrip(makePicture(random, kind, width, 14), GetParam(), width, flags,
                            static_cast<int>(random() % 500));
        }
}

TEST_P(RoundTrip, WideWidths) {
    std::mt19937 random(GetParam());
    for (const unsigned width : {1728u, 2559u, 2560u, 2561u, 65533u, 65534u, 65535u, 131068u, 249999u})
        for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
            const unsigned flags = static_cast<unsigned>(random() % 8);
            SCOPED_TRACE(testing::Message() << "width " << width << " kind " << kind << " flags " << flags);
            expectRoundTrip(makePicture(random, kind, width, width < 3000 ? 60 : 7), GetParam(), width, flags,
                            width % 2 != 0 ? 300 : 0);
        }
}

// Lines built from the one above by single steps: offsets around 3, vanishing and appearing runs.
TEST_P(RoundTrip, LinesAFewPixelsApart) {
    std::mt19937 random(GetParam());
    for (int picture = 0; picture < 60; ++picture) {
        const unsigned width = 1 + static_cast<unsigned>(random() % 300);
        Picture rows;
        Line line;
        for (int y = 0; y < 40; ++y) {
            Line next;
            for (const uint32_t change : line) {
                const int64_t x = int64_t{change} + static_cast<int64_t>(random() % 11) - 5;
                if (random() % 12 != 0 && x >= 0 && x < width && (next.empty() || x > next.back()))
                    next.push_back(static_cast<uint32_t>(x));
            }
            const uint32_t added = static_cast<uint32_t>(random() % width);
            if (random() % 2 == 0 && (next.empty() || added > next.back()))
                next.push_back(added);
            line = next;
            Row runs;
            uint32_t x = 0;
            for (const uint32_t change : line) {
                runs.push_back(change - x);
                x = change;
            }
            runs.push_back(width - x);
            rows.push_back(packedRow(runs));
        }
        SCOPED_TRACE(testing::Message() << "picture " << picture << " width " << width);
        expectRoundTrip(rows, GetParam(), width, 0, 1200);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, testing::Values(66u, 67u, 68u, 117u, 162u));

} // namespace
