// Streams coded by libtiff: every line must come back as the pixels that libtiff was given.
#include <algorithm>
#include <gtest/gtest.h>
#include <tiffio.h>

#include "tests/load_run.h"
#include "tests/pictures.h"

namespace {

// libtiff's file is a MemoryFile that grows.
MemoryFile& memory(thandle_t handle) {
    return *static_cast<MemoryFile*>(handle);
}

tmsize_t readFile(thandle_t handle, void* data, tmsize_t size) {
    MemoryFile& file = memory(handle);
    const size_t n =
        std::min(static_cast<size_t>(size), file.bytes.size() - std::min(file.position, file.bytes.size()));
    std::copy_n(file.bytes.begin() + static_cast<ptrdiff_t>(file.position), n, static_cast<uint8_t*>(data));
    file.position += n;
    return static_cast<tmsize_t>(n);
}

tmsize_t writeFile(thandle_t handle, void* data, tmsize_t size) {
    MemoryFile& file = memory(handle);
    const size_t n = static_cast<size_t>(size);
    file.bytes.resize(std::max(file.bytes.size(), file.position + n));
    std::copy_n(static_cast<const uint8_t*>(data), n,
                file.bytes.begin() + static_cast<ptrdiff_t>(file.position));
    file.position += n;
    return size;
}

toff_t seekFile(thandle_t handle, toff_t offset, int origin) {
    MemoryFile& file = memory(handle);
    const size_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.position : file.bytes.size();
    return file.position = from + offset;
}

TIFF* openTiff(MemoryFile& file, const char* mode) {
    return TIFFClientOpen(
        "memory", mode, &file, readFile, writeFile, seekFile, [](thandle_t) { return 0; },
        [](thandle_t handle) { return static_cast<toff_t>(memory(handle).bytes.size()); },
        [](thandle_t, void**, toff_t*) { return 0; }, [](thandle_t, void*, toff_t) {});
}

struct Coding {
    const char* name;
    uint16_t compression;
    uint32_t options; // TIFFTAG_GROUP3OPTIONS
    int format;
};

std::ostream& operator<<(std::ostream& out, const Coding& coding) {
    return out << coding.name;
}

const Coding codings[] = {
    {"G4", COMPRESSION_CCITTFAX4, 0, 68},
    {"G3", COMPRESSION_CCITTFAX3, 0, 66},
    {"G3 filled", COMPRESSION_CCITTFAX3, GROUP3OPT_FILLBITS, 66},
    {"G3 2D", COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING, 67},
    {"G3 2D filled", COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING | GROUP3OPT_FILLBITS, 67},
    {"rows", COMPRESSION_CCITTRLE, 0, 162}};

// The strips as they stand in the file.
std::vector<Bytes> coded(const Picture& picture, uint32_t width, const Coding& coding, bool reversed,
                         uint32_t stripRows) {
    MemoryFile file({});
    TIFF* tiff = openTiff(file, "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.size()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, coding.compression);
    TIFFSetField(tiff, TIFFTAG_FILLORDER, reversed ? FILLORDER_LSB2MSB : FILLORDER_MSB2LSB);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, stripRows);
    if (coding.compression == COMPRESSION_CCITTFAX3)
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, coding.options);
    for (uint32_t row = 0; row < picture.size(); ++row) {
        Bytes copy = picture[row];
        EXPECT_EQ(TIFFWriteScanline(tiff, copy.data(), row, 0), 1);
    }
    TIFFClose(tiff);
    file.position = 0;
    tiff = openTiff(file, "r");
    std::vector<Bytes> strips(TIFFNumberOfStrips(tiff));
    for (uint32_t i = 0; i < strips.size(); ++i) {
        // Where data ends just as the buffer is refilled, its last bytes are taken for the end: zeros for
        // them.
        strips[i].resize(static_cast<size_t>(TIFFRawStripSize(tiff, i)) + 4);
        TIFFReadRawStrip(tiff, i, strips[i].data(), static_cast<tmsize_t>(strips[i].size()));
    }
    TIFFClose(tiff);
    return strips;
}

void expectRoundTrip(const Picture& picture, uint32_t width, const Coding& coding, bool reversed,
                     uint32_t stripRows) {
    Rows delivered;
    for (const Bytes& strip : coded(picture, width, coding, reversed, stripRows)) {
        const size_t rows = std::min<size_t>(stripRows, picture.size() - delivered.size());
        LoadRun load(strip, coding.format, static_cast<int>(width), static_cast<int>(rows));
        load.info().Flags = reversed ? LOADINFO_REVERSED_BITS : 0;
        load.dispatch->Flags = width % 2 != 0 ? LOADDISPATCH_BATCHES : 0;
        EXPECT_EQ(load.run(), SUCCESS);
        EXPECT_EQ(load.dispatch->Status, 0);
        delivered.insert(delivered.end(), load.rows.begin(), load.rows.end());
    }
    ASSERT_TRUE(linesOf(delivered) == linesOf(picture, width));
}

class Interoperability : public testing::TestWithParam<Coding> {};

TEST_P(Interoperability, EveryNarrowWidth) {
    std::mt19937 random(7);
    for (uint32_t width = 1; width <= 70; ++width)
        for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
            resetTestKernel();
            SCOPED_TRACE("width " + std::to_string(width) + " kind " + std::to_string(kind));
            expectRoundTrip(makePicture(random, kind, width, 23), width, GetParam(),
                            (width + static_cast<uint32_t>(kind)) % 2 != 0, 10);
        }
}

TEST_P(Interoperability, PageWidths) {
    std::mt19937 random(9);
    for (const uint32_t width : {1728u, 2480u, 4960u, 20001u, 65535u})
        for (int kind = 0; kind < PICTURE_KINDS; ++kind) {
            resetTestKernel();
            SCOPED_TRACE("width " + std::to_string(width) + " kind " + std::to_string(kind));
            const size_t rows = kind == PAGE ? 300 : 60;
            expectRoundTrip(makePicture(random, kind, width, rows), width, GetParam(), kind % 2 != 0, 210);
        }
}

INSTANTIATE_TEST_SUITE_P(Codings, Interoperability, testing::ValuesIn(codings));

} // namespace
