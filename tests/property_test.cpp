// What holds for every picture and every stream, tried on generated ones: coding and decoding give the pixels
// back, and it does not matter by which entry, in which portions or in which bit order they are asked for.
#include "API/Filters/Fax/Fax.h"
#include "tests/encode_run.h"
#include "tests/tiff_strip.h"
#include "tests/tile_grid.h"

namespace {

constexpr size_t kMostRowWords = 249998; // what a decoder call may write

uint8_t ReversedByte(uint8_t byte) {
    unsigned reversed = 0;
    for (unsigned bits = byte, i = 0; i < 8; ++i, bits >>= 1)
        reversed = reversed << 1 | (bits & 1);
    return static_cast<uint8_t>(reversed);
}

Bytes ReversedBits(Bytes bytes) {
    std::transform(bytes.begin(), bytes.end(), bytes.begin(), ReversedByte);
    return bytes;
}

std::vector<Line> Mirrored(std::vector<Line> lines, unsigned width) {
    for (Line& line : lines) {
        Line turned(line.size() % 2, 0);
        for (auto change = line.rbegin(); change != line.rend(); ++change)
            if (*change != 0)
                turned.push_back(width - *change);
        line = turned;
    }
    return lines;
}

// One picture in one format.
struct Subject {
    Picture picture;
    unsigned format, width, flags;
    std::vector<Line> lines = {};
    Bytes stream = {};

    int SignedFormat() const { return static_cast<int>(format); }
    bool Reversed() const { return (flags & FAX_REVERSE_BITS) != 0; }
};

// Decodes line by line; each must come back and stand in the decoder's reference line.
void ExpectLinesBack(const Subject& s) {
    CodecRun decoder(s.stream, {.format = s.format, .width = s.width, .flags = s.Reversed()});
    for (const Line& line : s.lines) {
        const Rows rows = decoder.Decode(1);
        ASSERT_EQ(rows.size(), 1u);
        ASSERT_EQ(ChangesOf(rows[0]), line);
        for (size_t i = 0; i < line.size() + 3; ++i)
            ASSERT_EQ(decoder.record.ReferenceLine[i], i < line.size() ? s.width - line[i] : 0u);
    }
    EXPECT_EQ(decoder.dispatch->Status, 0);
    EXPECT_EQ(decoder.record.DecodeStatus, DECODE_STATUS_OK);
}

// The raw loader in both bit orders, plain and mirrored, in batches and at once.
void ExpectLoadedBack(const Subject& s) {
    const unsigned first = s.width % 8;
    for (const unsigned variant : {first, 7 - first}) {
        const bool turned = (variant & 1) != 0;
        const bool mirror = (variant & 2) != 0;
        LoadRun load(turned ? ReversedBits(s.stream) : s.stream, s.SignedFormat(), static_cast<int>(s.width),
                     static_cast<int>(s.lines.size()));
        load.Info().Flags =
            (turned != s.Reversed() ? LOADINFO_REVERSED_BITS : 0) | (mirror ? LOADINFO_MIRROR : 0);
        load.dispatch->Flags = variant & 4 ? LOADDISPATCH_BATCHES : 0;
        EXPECT_EQ(load.Run(), SUCCESS);
        EXPECT_EQ(load.dispatch->Status, 0);
        const std::vector<Line> seen = LinesOf(load.rows);
        EXPECT_TRUE((mirror ? Mirrored(seen, s.width) : seen) == s.lines) << "variant " << variant;
    }
}

// The buffer entries, both ways.
void ExpectBlockBack(const Subject& s) {
    Bytes source = Joined(s.picture);
    Bytes block(s.width * s.picture.size() + 1000);
    unsigned long long size = block.size();
    _BITMAPINFOHEADER info = {};
    info.Width = static_cast<int>(s.width);
    info.Height = -static_cast<int>(s.picture.size()); // top-down rows
    info.BitsPerPixel = 1;
    EXPECT_EQ(fltSaveBuffer(source.data(), &info, block.data(), &size, 1, s.flags, s.SignedFormat(), 2, 0),
              SUCCESS);
    block.resize(size);
    // A block is coded with the smallest K.
    const Bytes wanted = s.format == 67 ? CodedPicture(s.picture, s.width, 67, s.flags) : s.stream;
    EXPECT_TRUE(block == wanted);
    for (const bool mirror : {false, true}) {
        // Flags that mean nothing are set.
        const unsigned meant = LOADINFO_REVERSED_BITS | LOADINFO_MIRROR;
        const unsigned flags =
            ~meant | (s.Reversed() ? LOADINFO_REVERSED_BITS : 0) | (mirror ? LOADINFO_MIRROR : 0);
        Bytes rows(source.size(), 0xEE);
        EXPECT_EQ(fltLoadBuffer(block.data(), size, rows.data(), s.SignedFormat(), info.Width, -info.Height,
                                3, 4, flags),
                  SUCCESS);
        Picture seen;
        for (size_t y = 0; y < s.picture.size(); ++y)
            seen.emplace_back(rows.begin() + static_cast<ptrdiff_t>(y * s.picture[0].size()),
                              rows.begin() + static_cast<ptrdiff_t>((y + 1) * s.picture[0].size()));
        const std::vector<Line> lines = LinesOf(seen, s.width);
        EXPECT_TRUE((mirror ? Mirrored(lines, s.width) : lines) == s.lines) << "mirror " << mirror;
    }
}

// Tiles of the picture, coded each by itself, make up the whole.
void ExpectTilesBack(const Subject& s) {
    const unsigned tileWidth = s.width % 3 == 0 ? s.width : (s.width / 3 + 7) / 8 * 8;
    TiledLoad load(s.picture, s.width, tileWidth, static_cast<unsigned>(s.picture.size() / 2 + 1));
    EXPECT_EQ(load.Load(), SUCCESS);
    EXPECT_TRUE(LinesOf(load.rows) == s.lines);
}

void ExpectPixelsBack(Subject s, int resolution) {
    SCOPED_TRACE(testing::Message() << "width " << s.width << " flags " << s.flags);
    ResetTestKernel();
    s.stream = EncoderRun(s.format, s.width, s.flags, resolution).Save(s.picture);
    s.lines = LinesOf(s.picture, s.width);
    size_t longest = 0;
    for (const Line& line : s.lines)
        longest = std::max(longest, line.size());
    const bool fits = 2 + longest + 1 + 2 * (s.width / 65534) <= kMostRowWords;
    if (fits) {
        ExpectLinesBack(s);
        ExpectLoadedBack(s);
    }
    if (s.width <= MAX_BUFFER_WIDTH)
        ExpectBlockBack(s);
    if (fits && s.format == 68 && s.width > 8)
        ExpectTilesBack(s);
    // libtiff has no format 117, and for a one-dimensional line no room for more runs than this.
    if (s.format != 117 && s.width <= 65535 && longest < (s.width + 31) / 32 * 32) {
        const std::optional<Picture> seen =
            DecodedByLibtiff(s.stream, s.format, s.width, s.picture.size(), s.Reversed());
        ASSERT_TRUE(seen.has_value()) << "libtiff complains";
        EXPECT_EQ(LinesOf(*seen, s.width), s.lines) << "libtiff";
    }
    EXPECT_TRUE(NothingHeld());
}

class Pixels : public testing::TestWithParam<unsigned> {};

TEST_P(Pixels, ComeBackFromEveryKindOfPicture) {
    std::vector<unsigned> widths = {31,   32,   33,   63,    64,    65,    1728,   9999,
                                    2559, 2560, 2561, 65533, 65534, 65535, 131068, 249999};
    for (unsigned width = 1; width <= 300; width += width < 18 ? 1 : 13)
        widths.push_back(width);
    std::mt19937 random(GetParam());
    for (const unsigned width : widths)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind)
            ExpectPixelsBack({MakePicture(random, kind, width, width < 3000 ? 30 : 7), GetParam(), width,
                              static_cast<unsigned>(random() % 8)},
                             static_cast<int>(random() % 1300));
}

INSTANTIATE_TEST_SUITE_P(Formats, Pixels, testing::Values(66u, 67u, 68u, 117u, 162u));

// Lines of a stream, asked for in portions of 1 to most, at the most limit of them. Ends where damage stops
// the decoder: what it does after that depends on how lines are asked for.
Rows DecodedIn(CodecRun& codec, const Bytes& stream, const CodecSetup& setup, std::mt19937& random,
               size_t limit, unsigned most) {
    Rows all;
    codec.Restart(stream, setup);
    while (all.size() < limit && codec.record.DecodeStatus != DECODE_STATUS_BAD_CODE) {
        const size_t wanted = std::min<size_t>(limit - all.size(), 1 + random() % most);
        const Rows rows = codec.Decode(static_cast<unsigned>(wanted));
        if (rows.empty())
            break;
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

class Streams : public testing::TestWithParam<unsigned> {};

// Random codes, mostly damaged ones.
TEST_P(Streams, DecodeAlikeInWhateverPortions) {
    ResetTestKernel();
    CodecSetup setup = {.format = GetParam()};
    CodecRun codec({}, setup);
    for (unsigned seed = 0; seed < 1000 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed * 7 + GetParam());
        const unsigned width = random() % 3 != 0 ? static_cast<unsigned>(random() % 100) : 1725;
        const Bytes stream = Packed(RandomCodes(random, GetParam(), width, 200 + random() % 20000));
        setup = {.format = GetParam(), .width = width};
        const Rows wanted = DecodedIn(codec, stream, setup, random, 60, 1);
        const auto expectAlike = [&](const Bytes& bytes, unsigned most) {
            EXPECT_TRUE(DecodedIn(codec, bytes, setup, random, wanted.size(), most) == wanted);
        };
        setup.smallBuffer = 1;
        expectAlike(stream, 9);
        setup.flags = FAX_REVERSE_BITS;
        expectAlike(ReversedBits(stream), 60);
        setup.smallBuffer = 0;
        setup.byteLimit = static_cast<unsigned>(stream.size());
        expectAlike(ReversedBits(stream), 200);
        KernelInUse().trace.clear();
    }
}

// Without 117: an EOL among its two-dimensional lines counts from the next call on.
INSTANTIATE_TEST_SUITE_P(Formats, Streams, testing::Values(66u, 67u, 68u, 162u));

} // namespace
