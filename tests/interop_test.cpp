// Streams coded by libtiff: every line must come back as the pixels that libtiff was given.
#include <algorithm>
#include <gtest/gtest.h>
#include <tiffio.h>

#include "tests/load_run.h"

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

using Picture = std::vector<Bytes>; // packed rows, 1 is black

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
        strips[i].resize(static_cast<size_t>(TIFFRawStripSize(tiff, i)));
        TIFFReadRawStrip(tiff, i, strips[i].data(), static_cast<tmsize_t>(strips[i].size()));
    }
    TIFFClose(tiff);
    return strips;
}

Bytes packedRow(const Row& row, size_t width) {
    Bytes bytes((width + 7) / 8);
    size_t x = 0;
    for (size_t i = 0; i < row.size(); ++i)
        for (unsigned n = 0; n < row[i] && x < width; ++n, ++x)
            if (i % 2 != 0)
                bytes[x / 8] |= static_cast<uint8_t>(0x80u >> x % 8);
    return bytes;
}

// Pixels of several kinds by kind: noise, long runs that recur from row to row, a dither.
Picture randomPicture(std::mt19937& random, unsigned kind, size_t width, size_t rows) {
    Picture picture(rows, Bytes((width + 7) / 8));
    const size_t grain = 1 + random() % 60;
    for (size_t y = 0; y < rows; ++y) {
        bool black = false;
        for (size_t x = 0; x < width; ++x) {
            if (kind == 0)
                black = random() % 2 != 0;
            else if (kind == 1)
                black = random() % grain == 0 ? !black : black;
            else if (kind == 2)
                black = y % 7 != 0 ? (picture[y - 1][x / 8] >> (7 - x % 8) & 1) != (random() % 200 == 0)
                                   : (x / grain) % 3 == 0;
            else
                black = kind == 3 ? ((x * 5 + y * 3) % 8 < x * 8 / width) : kind == 4;
            if (black)
                picture[y][x / 8] |= static_cast<uint8_t>(0x80u >> x % 8);
        }
    }
    return picture;
}

void expectRoundTrip(const Picture& picture, uint32_t width, const Coding& coding, bool reversed,
                     uint32_t stripRows) {
    size_t first = 0;
    for (const Bytes& strip : coded(picture, width, coding, reversed, stripRows)) {
        const size_t rows = std::min<size_t>(stripRows, picture.size() - first);
        LoadRun load(strip, coding.format, static_cast<int>(width), static_cast<int>(rows));
        load.info().Flags = reversed ? LOADINFO_REVERSED_BITS : 0;
        load.dispatch->Flags = width % 2 != 0 ? LOADDISPATCH_BATCHES : 0;
        EXPECT_EQ(load.run(), SUCCESS);
        EXPECT_EQ(load.dispatch->Status, 0);
        ASSERT_EQ(load.rows.size(), rows);
        for (size_t y = 0; y < rows; ++y)
            ASSERT_EQ(packedRow(load.rows[y], width), picture[first + y]) << "row " << first + y;
        first += rows;
    }
    EXPECT_EQ(first, picture.size());
}

class Interoperability : public testing::TestWithParam<Coding> {};

TEST_P(Interoperability, EveryNarrowWidth) {
    std::mt19937 random(7);
    for (uint32_t width = 1; width <= 70; ++width)
        for (unsigned kind = 0; kind < 6; ++kind) {
            resetTestKernel();
            SCOPED_TRACE("width " + std::to_string(width) + " kind " + std::to_string(kind));
            expectRoundTrip(randomPicture(random, kind, width, 23), width, GetParam(),
                            (width + kind) % 2 != 0, 10);
        }
}

TEST_P(Interoperability, PageWidths) {
    std::mt19937 random(9);
    for (const uint32_t width : {1728u, 2480u, 4960u, 20001u, 65535u})
        for (unsigned kind = 0; kind < 6; ++kind) {
            resetTestKernel();
            SCOPED_TRACE("width " + std::to_string(width) + " kind " + std::to_string(kind));
            const size_t rows = kind == 1 ? 300 : 60;
            expectRoundTrip(randomPicture(random, kind, width, rows), width, GetParam(), kind % 2 != 0, 210);
        }
}

INSTANTIATE_TEST_SUITE_P(Codings, Interoperability, testing::ValuesIn(codings));

} // namespace
