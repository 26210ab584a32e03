// TIFF files between kfax and libtiff, each reading what the other wrote, and damaged ones.
#include "tests/kfax_run.h"

#include <algorithm>
#include <memory>
#include <sys/resource.h>
#include <tiffio.h>

namespace {

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, CloseTiff>;

struct Layout {
    uint32_t width, height; // of tiles; a width of 0: strips of height rows
};
constexpr uint32_t kWhole = UINT32_MAX;
constexpr Layout kLayouts[] = {{0, 1},   {0, 8},   {0, 16},  {0, 64},    {0, kWhole},
                               {16, 16}, {48, 80}, {64, 64}, {256, 256}, {512, 512}};

struct Coding {
    const char* name; // of kfax
    uint16_t compression;
    uint32_t options; // T4Options
};
constexpr Coding kCodings[] = {
    {"none", COMPRESSION_NONE, 0},
    {"g3-noeol", COMPRESSION_CCITTRLE, 0},
    {"g3", COMPRESSION_CCITTFAX3, 0},
    {"g3", COMPRESSION_CCITTFAX3, GROUP3OPT_FILLBITS},
    {"g3-2d", COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING},
    {"g3-2d", COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING | GROUP3OPT_FILLBITS},
    {"g4", COMPRESSION_CCITTFAX4, 0},
};

struct PageKind {
    Coding coding = kCodings[6];
    Layout layout = {0, kWhole};
    bool reversed = false;
    bool blackIsZero = false;
    uint16_t orientation = ORIENTATION_TOPLEFT;
};

void setTags(TIFF* tiff, const Pixels& pixels, const PageKind& kind) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, pixels.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, pixels.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, kind.coding.compression);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                 kind.blackIsZero ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_FILLORDER, kind.reversed ? FILLORDER_LSB2MSB : FILLORDER_MSB2LSB);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, kind.orientation);
    if (kind.coding.compression == COMPRESSION_CCITTFAX3)
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, kind.coding.options);
    if (kind.layout.width == 0) {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, kind.layout.height);
    } else {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, kind.layout.width);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, kind.layout.height);
    }
}

void appendPage(TIFF* tiff, const Pixels& pixels, const PageKind& kind) {
    setTags(tiff, pixels, kind);
    const size_t tileBytes = kind.layout.width / 8;
    Bytes image(pixels.rows.size());
    for (size_t i = 0; i < pixels.rows.size(); ++i)
        image[i] = static_cast<uint8_t>(kind.blackIsZero ? ~pixels.rows[i] : pixels.rows[i]);
    for (uint32_t y = 0; tileBytes == 0 && y < pixels.height; ++y)
        ASSERT_EQ(TIFFWriteScanline(tiff, image.data() + y * pixels.rowBytes(), y, 0), 1);
    for (uint32_t y = 0; tileBytes != 0 && y < pixels.height; y += kind.layout.height)
        for (uint32_t x = 0; x < pixels.width; x += kind.layout.width) {
            Bytes tile(tileBytes * kind.layout.height);
            for (size_t i = 0; i < tile.size(); ++i) {
                const size_t row = y + i / tileBytes, byte = x / 8 + i % tileBytes;
                if (row < pixels.height && byte < pixels.rowBytes())
                    tile[i] = image[row * pixels.rowBytes() + byte];
            }
            ASSERT_GT(TIFFWriteTile(tiff, tile.data(), x, y, 0, 0), 0);
        }
    ASSERT_EQ(TIFFWriteDirectory(tiff), 1);
}

void failOnMessage(const char* module, const char* format, va_list) {
    ADD_FAILURE() << "libtiff: " << module << ": " << format;
}

// The current page as libtiff decodes it.
Pixels readPage(TIFF* tiff) {
    Pixels pixels;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &pixels.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &pixels.height);
    pixels.rows.resize(pixels.rowBytes() * pixels.height);
    std::vector<uint32_t> colours(size_t{pixels.width} * pixels.height);
    EXPECT_EQ(
        TIFFReadRGBAImageOriented(tiff, pixels.width, pixels.height, colours.data(), ORIENTATION_TOPLEFT, 1),
        1);
    for (size_t i = 0; i < colours.size(); ++i)
        if (TIFFGetR(colours[i]) == 0)
            pixels.blacken(i % pixels.width, i / pixels.width);
    return pixels;
}

std::string numbered(unsigned number) {
    const std::string digits = std::to_string(1000 + number).substr(1);
    return "out-" + digits + ".pbm";
}

class KfaxTiff : public KfaxRuns {};

// All layouts, bit orders and polarities of a coding are the pages of one file.
TEST_F(KfaxTiff, ReadsWhatLibtiffWrites) {
    const Pixels picture = testPicture(301, 70);
    for (const Coding& coding : kCodings)
        for (const char* mode : {"wl", "w8b"}) {
            SCOPED_TRACE(std::string(coding.name) + " " + std::to_string(coding.options) + mode);
            unsigned pages = 0;
            Tiff tiff(TIFFOpen("pages.tif", mode));
            for (const Layout& layout : kLayouts)
                for (const unsigned variant : {0u, 1u, 2u, 3u}) {
                    appendPage(tiff.get(), picture, {coding, layout, variant % 2 != 0, variant / 2 != 0});
                    ++pages;
                }
            tiff.reset();
            const Outcome load = kfax("load pages.tif out.pbm --all-pages");
            EXPECT_EQ(load.code, 0) << load.said;
            EXPECT_EQ(load.said, "");
            for (unsigned page = 1; page <= pages; ++page)
                EXPECT_TRUE(readPbm(numbered(page)) == picture) << "page " << page;
            EXPECT_EQ(kfax("verify --quiet pages.tif").told, "");
            const auto told = jsonLines(kfax("info --json pages.tif --page 22").told);
            EXPECT_EQ(told[0]["coding"], coding.name);
            EXPECT_EQ(told[0]["layout"], "tiles of 16 x 16");
            EXPECT_EQ(told[0]["bit_order"], "reversed");
            EXPECT_EQ(told[0]["white_is_zero"], true);
            EXPECT_EQ(told[0]["pages"], pages);
        }
}

// TIFF 6.0, Orientation: where the stored row 0 and column 0 belong in the picture.
TEST_F(KfaxTiff, OrientationIsHonoured) {
    const Pixels picture = testPicture(45, 29);
    Tiff tiff(TIFFOpen("pages.tif", "w"));
    for (uint16_t orientation = 1; orientation <= 8; ++orientation) {
        const bool turned = orientation >= 5;
        Pixels stored{turned ? picture.height : picture.width, turned ? picture.width : picture.height, {}};
        stored.rows.resize(stored.rowBytes() * stored.height);
        for (uint32_t y = 0; y < picture.height; ++y)
            for (uint32_t x = 0; x < picture.width; ++x) {
                const bool right =
                    orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7;
                const bool bottom =
                    orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8;
                const uint32_t column = right ? picture.width - 1 - x : x;
                const uint32_t row = bottom ? picture.height - 1 - y : y;
                if (picture.black(x, y))
                    stored.blacken(turned ? row : column, turned ? column : row);
            }
        PageKind kind;
        kind.orientation = orientation;
        appendPage(tiff.get(), stored, kind);
    }
    tiff.reset();
    EXPECT_EQ(kfax("load pages.tif out.pbm --all-pages").code, 0);
    for (unsigned page = 1; page <= 8; ++page)
        EXPECT_TRUE(readPbm(numbered(page)) == picture) << "orientation " << page;
    EXPECT_NE(kfax("load pages.tif one.pbm").said.find("page 1 of 8"), std::string::npos);
}

TEST_F(KfaxTiff, LibtiffReadsWhatItWrites) {
    const Pixels picture = testPicture(301, 200);
    writePbm("page.pbm", picture);
    TIFFSetErrorHandler(failOnMessage);
    TIFFSetWarningHandler(failOnMessage);
    for (const Coding& coding : kCodings) {
        if (coding.compression == COMPRESSION_NONE ||
            (coding.compression == COMPRESSION_CCITTFAX3 && (coding.options & GROUP3OPT_FILLBITS) == 0))
            continue; // never written
        for (const Layout& layout : kLayouts)
            for (const std::string variant : {"", " --reverse-bits", " --no-invert --align-eol"}) {
                std::string how = std::string(" --dpi 204 --format ") + coding.name + variant;
                how += layout.width == 0
                           ? " --rows-per-strip " + std::to_string(layout.height)
                           : " --tile " + std::to_string(layout.width) + "x" + std::to_string(layout.height);
                SCOPED_TRACE(how);
                const Outcome save = kfax("save page.pbm page.tif" + how);
                EXPECT_EQ(save.code, 0);
                EXPECT_EQ(save.said, "");
                const Tiff tiff(TIFFOpen("page.tif", "r"));
                ASSERT_NE(tiff, nullptr);
                EXPECT_TRUE(readPage(tiff.get()) == picture);
                uint16_t compression = 0, fillOrder = 0, unit = 0;
                uint32_t options = 0;
                float across = 0, down = 0;
                TIFFGetField(tiff.get(), TIFFTAG_COMPRESSION, &compression);
                TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_GROUP3OPTIONS, &options);
                TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_FILLORDER, &fillOrder);
                TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_RESOLUTIONUNIT, &unit);
                TIFFGetField(tiff.get(), TIFFTAG_XRESOLUTION, &across);
                TIFFGetField(tiff.get(), TIFFTAG_YRESOLUTION, &down);
                EXPECT_EQ(compression, coding.compression);
                EXPECT_EQ(options, coding.options);
                EXPECT_EQ(fillOrder, variant == " --reverse-bits" ? FILLORDER_LSB2MSB : FILLORDER_MSB2LSB);
                EXPECT_EQ(unit, RESUNIT_INCH);
                EXPECT_EQ(across, 204);
                EXPECT_EQ(down, 204);
            }
    }
}

TEST_F(KfaxTiff, SeveralInputsBecomePages) {
    const Pixels first = testPicture(301, 200), second = testPicture(77, 5000);
    writePbm("first.pbm", first);
    writePbm("second.pbm", second);
    EXPECT_EQ(kfax("save first.pbm second.pbm two.tif").code, 0);
    EXPECT_EQ(kfax("load two.tif again.tif --code g3").said, "");
    EXPECT_EQ(kfax("save again.tif first.pbm three.tif").code, 0);
    const Tiff tiff(TIFFOpen("three.tif", "r"));
    ASSERT_NE(tiff, nullptr);
    for (const Pixels* page : {&first, &second, &first}) {
        EXPECT_TRUE(readPage(tiff.get()) == *page);
        EXPECT_EQ(TIFFReadDirectory(tiff.get()),
                  page == &first && TIFFCurrentDirectory(tiff.get()) == 2 ? 0 : 1);
    }
}

// Sets the index-th value of a tag in the only directory of a little-endian classic TIFF.
void patch(Bytes& file, uint16_t tag, size_t index, uint32_t value) {
    const auto number = [&](size_t at, size_t bytes) {
        uint32_t result = 0;
        for (size_t i = bytes; i-- > 0;)
            result = result << 8 | file.at(at + i);
        return result;
    };
    const size_t directory = number(4, 4);
    for (size_t i = 0; i < number(directory, 2); ++i) {
        const size_t entry = directory + 2 + i * 12;
        if (number(entry, 2) != tag)
            continue;
        if (value > UINT16_MAX && number(entry + 4, 4) == 1)
            file.at(entry + 2) = TIFF_LONG;
        const size_t bytes = number(entry + 2, 2) == TIFF_SHORT ? 2 : 4;
        const bool inside = number(entry + 4, 4) * bytes <= 4;
        const size_t at = (inside ? entry + 8 : number(entry + 8, 4)) + index * bytes;
        for (size_t b = 0; b < bytes; ++b)
            file.at(at + b) = static_cast<uint8_t>(value >> 8 * b);
        return;
    }
    ADD_FAILURE() << "no tag " << tag;
}

// The rows of all strips but one are the picture's.
void expectRows(Pixels loaded, Pixels picture, size_t stripRows, size_t damaged) {
    ASSERT_EQ(loaded.rowBytes(), picture.rowBytes());
    for (size_t y = 0; y < picture.height; ++y) {
        const bool same = std::equal(loaded.row(y), loaded.row(y) + loaded.rowBytes(), picture.row(y));
        ASSERT_TRUE(same || y / stripRows == damaged) << "row " << y;
    }
}

struct Lie {
    const char* what;
    uint16_t tag;
    size_t index;
    uint32_t value;
    bool tiled;
    int code;
    int damagedBlock; // the other ones are as they were; -1: any
};
constexpr Lie kLies[] = {
    {"tile width 0", TIFFTAG_TILEWIDTH, 0, 0, true, 1, -1},
    {"tile height 0", TIFFTAG_TILELENGTH, 0, 0, true, 1, -1},
    {"tile width above the limit", TIFFTAG_TILEWIDTH, 0, 250000, true, 1, -1},
    {"image wider than can be", TIFFTAG_IMAGEWIDTH, 0, 250000, false, 1, -1},
    {"image higher than memory", TIFFTAG_IMAGELENGTH, 0, 0x7FFFFFFF, false, 1, -1},
    {"no rows", TIFFTAG_IMAGELENGTH, 0, 0, false, 1, -1},
    {"not a fax compression", TIFFTAG_COMPRESSION, 0, COMPRESSION_LZW, false, 1, -1},
    {"more than a bit a pixel", TIFFTAG_BITSPERSAMPLE, 0, 8, false, 1, -1},
    {"strip beyond the end", TIFFTAG_STRIPOFFSETS, 2, 0x7FFFFFF0, false, 3, 2},
    {"strip past the end", TIFFTAG_STRIPBYTECOUNTS, 9, 0x7FFFFFF0, false, 3, 9},
    {"strip of no bytes", TIFFTAG_STRIPBYTECOUNTS, 1, 0, false, 3, 1},
    {"strip of one byte", TIFFTAG_STRIPBYTECOUNTS, 3, 1, false, 3, 3},
    {"tile beyond the end", TIFFTAG_TILEOFFSETS, 4, 0x7FFFFFF0, true, 3, -1},
    {"tile of one byte", TIFFTAG_TILEBYTECOUNTS, 4, 1, true, 3, -1},
    {"strip of bytes that no stream has", 0, 0, 0, false, 3, 0},
    {"more strips than there are", TIFFTAG_IMAGELENGTH, 0, 205, false, 3, 10},
    {"fewer strips than listed", TIFFTAG_IMAGELENGTH, 0, 160, false, 0, -1},
    {"more tiles than there are", TIFFTAG_IMAGELENGTH, 0, 300, true, 3, -1},
};

TEST_F(KfaxTiff, DirectoriesThatLie) {
    const Pixels picture = testPicture(301, 200);
    for (const bool tiled : {false, true}) {
        PageKind kind;
        kind.layout = tiled ? Layout{64, 64} : Layout{0, 20};
        const Tiff tiff(TIFFOpen(tiled ? "tiles.tif" : "strips.tif", "wl"));
        appendPage(tiff.get(), picture, kind);
    }
    for (const Lie& lie : kLies) {
        SCOPED_TRACE(lie.what);
        Bytes file = readFile(lie.tiled ? "tiles.tif" : "strips.tif");
        if (lie.tag == 0)
            std::fill_n(file.begin() + 8, 50, uint8_t{2}); // strips begin behind the file's header
        else
            patch(file, lie.tag, lie.index, lie.value);
        if (lie.value == 0x7FFFFFF0 && lie.tag == TIFFTAG_STRIPBYTECOUNTS)
            file.resize(file.size() + 1); // the last strip is not the file's last bytes
        writeFile("lie.tif", file);
        const Outcome outcome = kfax("load lie.tif out.pbm");
        EXPECT_EQ(outcome.code, lie.code) << outcome.said;
        EXPECT_EQ(kfax("info lie.tif").code, lie.code);
        EXPECT_EQ(std::filesystem::exists("out.pbm"), lie.code != 1);
        if (lie.code == 1)
            continue;
        for (size_t at = 0; at != std::string::npos && at < outcome.said.size();) {
            EXPECT_EQ(outcome.said.compare(at, 15, "kfax: lie.tif: "), 0) << outcome.said;
            at = outcome.said.find('\n', at) + 1;
        }
        const Pixels loaded = readPbm("out.pbm");
        if (lie.damagedBlock >= 0)
            expectRows(loaded, picture, 20, static_cast<size_t>(lie.damagedBlock));
        std::filesystem::remove("out.pbm");
    }
    Bytes cut = readFile("strips.tif");
    cut.resize(cut.size() / 2); // the directory is gone
    writeFile("cut.tif", cut);
    expectRefused(1, "load cut.tif out.pbm");
}

// Thousands of one-pixel pages: each is found from the one before, and not from the start of the file.
TEST_F(KfaxTiff, ManyPagesTakeAsLongAsTheyAreMany) {
    constexpr uint32_t kPages = 8000;
    Bytes file = {'I', 'I', 42, 0, 8, 0, 0, 0};
    const auto put = [&](uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            file.push_back(static_cast<uint8_t>(value >> 8 * i));
    };
    for (uint32_t page = 0; page < kPages; ++page) {
        const std::pair<uint32_t, uint32_t> tags[] = {
            {TIFFTAG_IMAGEWIDTH, 8},  {TIFFTAG_IMAGELENGTH, 1},  {TIFFTAG_COMPRESSION, COMPRESSION_NONE},
            {TIFFTAG_PHOTOMETRIC, 0}, {TIFFTAG_STRIPOFFSETS, 0}, {TIFFTAG_STRIPBYTECOUNTS, 1}};
        put(std::size(tags), 2);
        for (const auto& [tag, value] : tags) {
            put(tag, 2);
            put(4, 2); // LONG
            put(1, 4);
            put(value, 4);
        }
        put(page + 1 == kPages ? 0 : static_cast<uint32_t>(file.size()) + 4, 4);
    }
    writeFile("many.tif", file);
    struct rusage before {};
    getrusage(RUSAGE_CHILDREN, &before);
    const Outcome info = kfax("info --json many.tif");
    struct rusage after {};
    getrusage(RUSAGE_CHILDREN, &after);
    EXPECT_EQ(info.code, 0) << info.said;
    EXPECT_EQ(std::count(info.told.begin(), info.told.end(), '\n'), kPages);
    EXPECT_LT(after.ru_utime.tv_sec + after.ru_stime.tv_sec - before.ru_utime.tv_sec - before.ru_stime.tv_sec,
              10);
}

} // namespace
