// Streams coded by libtiff: every line must come back as the pixels that libtiff was given.
#include "tests/load_run.h"
#include "tests/tiff_strip.h"

namespace {

void ExpectRoundTrip(const Picture& picture, unsigned width, TiffCoding coding, bool reversed,
                     size_t stripRows) {
    ResetTestKernel();
    Rows delivered;
    for (const Bytes& strip : CodedByLibtiff(picture, width, coding, reversed, stripRows)) {
        const size_t rows = std::min(stripRows, picture.size() - delivered.size());
        LoadRun load(strip, static_cast<int>(coding.format), static_cast<int>(width), static_cast<int>(rows));
        load.Info().Flags = reversed ? LOADINFO_REVERSED_BITS : 0;
        load.dispatch->Flags = width % 2 != 0 ? LOADDISPATCH_BATCHES : 0;
        EXPECT_EQ(load.Run(), SUCCESS);
        EXPECT_EQ(load.dispatch->Status, 0);
        delivered.insert(delivered.end(), load.rows.begin(), load.rows.end());
    }
    ASSERT_TRUE(LinesOf(delivered) == LinesOf(picture, width)) << "width " << width;
}

class Interoperability : public testing::TestWithParam<TiffCoding> {};

TEST_P(Interoperability, EveryKindOfPicture) {
    std::vector<unsigned> widths = {1728, 2480, 4960, 20001, 65535};
    for (unsigned width = 1; width <= 70; ++width)
        widths.push_back(width);
    std::mt19937 random(7);
    for (const unsigned width : widths)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
            const size_t rows = width <= 70 ? 23 : kind == PAGE ? 300 : 60;
            ExpectRoundTrip(MakePicture(random, kind, width, rows), width, GetParam(),
                            (width + unsigned(kind)) % 2 != 0, width <= 70 ? 10 : 210);
        }
}

INSTANTIATE_TEST_SUITE_P(Codings, Interoperability,
                         testing::Values(TiffCoding{68}, TiffCoding{66}, TiffCoding{66, kTiffFillBits},
                                         TiffCoding{67}, TiffCoding{67, kTiffFillBits}, TiffCoding{162}));

} // namespace
