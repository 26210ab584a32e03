// Coded pictures: the reference encoder's bytes, our decoder's lines, libtiff's pixels.
#include "tests/codec_run.h"
#include "tests/encode_run.h"
#include "tests/tiff_strip.h"

namespace {

constexpr size_t MOST_ROW_WORDS = 249998; // what a decoder call may write

// Decodes line by line; each must come back and stand in the decoder's reference line.
void expectDecoded(const Bytes& stream, const CodecSetup& setup, const std::vector<Line>& lines) {
    CodecRun decoder(stream, setup);
    for (const Line& line : lines) {
        const Rows rows = decoder.decode(1);
        ASSERT_EQ(rows.size(), 1u);
        ASSERT_EQ(changesOf(rows[0]), line);
        for (size_t i = 0; i < line.size() + 3; ++i)
            ASSERT_EQ(decoder.record.ReferenceLine[i], i < line.size() ? setup.width - line[i] : 0u);
    }
    EXPECT_EQ(decoder.dispatch->Status, 0);
    EXPECT_EQ(decoder.record.DecodeStatus, DECODE_STATUS_OK);
}

void expectRoundTrip(const Picture& picture, unsigned format, unsigned width, unsigned flags,
                     int resolution) {
    SCOPED_TRACE(testing::Message() << "width " << width << " flags " << flags);
    resetTestKernel();
    const Bytes stream = EncoderRun(format, width, flags, resolution).save(picture);
    const bool reversed = (flags & FAX_REVERSE_BITS) != 0;
    const std::vector<Line> lines = linesOf(picture, width);
    size_t longest = 0;
    for (const Line& line : lines)
        longest = std::max(longest, line.size());
    if (2 + longest + 1 + 2 * (width / 65534) <= MOST_ROW_WORDS)
        expectDecoded(stream, {.format = format, .width = width, .flags = reversed}, lines);
    // libtiff has no format 117, and for a one-dimensional line no room for more runs than this.
    if (format != 117 && width <= 65535 && longest < (width + 31) / 32 * 32) {
        const std::optional<Picture> seen = decodedByLibtiff(stream, format, width, picture.size(), reversed);
        ASSERT_TRUE(seen.has_value()) << "libtiff complains";
        EXPECT_EQ(linesOf(*seen, width), lines) << "libtiff";
    }
    EXPECT_TRUE(nothingHeld());
}

class RoundTrip : public testing::TestWithParam<unsigned> {};

TEST_P(RoundTrip, EveryKindOfPicture) {
    std::vector<unsigned> widths = {1728, 2559, 2560, 2561, 65533, 65534, 65535, 131068, 249999};
    for (unsigned width = 1; width <= 300; width += width < 70 ? 1 : 11)
        widths.push_back(width);
    std::mt19937 random(GetParam());
    for (const unsigned width : widths)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind)
            expectRoundTrip(makePicture(random, kind, width, width < 3000 ? 40 : 7), GetParam(), width,
                            static_cast<unsigned>(random() % 8), static_cast<int>(random() % 1300));
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, testing::Values(66u, 67u, 68u, 117u, 162u));

} // namespace
