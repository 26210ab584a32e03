#include "tests/tiff_strip.h"

#include <algorithm>
#include <tiffio.h>

namespace {

thread_local unsigned complaints = 0;

void CountComplaint(const char*, const char*, va_list) {
    ++complaints;
}

MemoryFile& Memory(thandle_t handle) {
    return *static_cast<MemoryFile*>(handle);
}

tmsize_t Transfer(thandle_t handle, void* data, tmsize_t size, bool write) {
    MemoryFile& file = Memory(handle);
    auto* const bytes = static_cast<uint8_t*>(data);
    size_t n = static_cast<size_t>(size);
    if (write)
        file.bytes.resize(std::max(file.bytes.size(), file.position + n));
    n = std::min(n, file.bytes.size() - std::min(file.position, file.bytes.size()));
    const auto at = file.bytes.begin() + static_cast<ptrdiff_t>(file.position);
    if (write)
        std::copy_n(bytes, n, at);
    else if (n != 0)
        std::copy_n(at, n, bytes);
    file.position += n;
    return static_cast<tmsize_t>(n);
}

TIFF* OpenTiff(MemoryFile& file, const char* mode) {
    file.position = 0;
    return TIFFClientOpen(
        "memory", mode, &file,
        [](thandle_t handle, void* data, tmsize_t size) { return Transfer(handle, data, size, false); },
        [](thandle_t handle, void* data, tmsize_t size) { return Transfer(handle, data, size, true); },
        [](thandle_t handle, toff_t offset, int origin) -> toff_t {
            MemoryFile& f = Memory(handle);
            const size_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? f.position : f.bytes.size();
            return f.position = from + offset;
        },
        [](thandle_t) { return 0; },
        [](thandle_t handle) { return static_cast<toff_t>(Memory(handle).bytes.size()); },
        [](thandle_t, void**, toff_t*) { return 0; }, [](thandle_t, void*, toff_t) {});
}

// A new file for a picture of this size.
TIFF* CreateTiff(MemoryFile& file, unsigned width, size_t rows, TiffCoding coding, bool reversed,
                 size_t stripRows) {
    const bool group3 = coding.format == 66 || coding.format == 67;
    const uint32_t options = coding.options | (coding.format == 67 ? GROUP3OPT_2DENCODING : 0);
    TIFF* tiff = OpenTiff(file, "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(rows));
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(stripRows));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_FILLORDER, reversed ? FILLORDER_LSB2MSB : FILLORDER_MSB2LSB);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION,
                 group3                 ? COMPRESSION_CCITTFAX3
                 : coding.format == 162 ? COMPRESSION_CCITTRLE
                                        : COMPRESSION_CCITTFAX4);
    if (group3)
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, options);
    return tiff;
}

} // namespace

std::vector<Bytes> CodedByLibtiff(const Picture& picture, unsigned width, TiffCoding coding, bool reversed,
                                  size_t stripRows) {
    MemoryFile file({});
    TIFF* tiff = CreateTiff(file, width, picture.size(), coding, reversed, stripRows);
    for (uint32_t row = 0; row < picture.size(); ++row) {
        Bytes copy = picture[row];
        EXPECT_EQ(TIFFWriteScanline(tiff, copy.data(), row, 0), 1);
    }
    TIFFClose(tiff);
    tiff = OpenTiff(file, "r");
    std::vector<Bytes> strips(TIFFNumberOfStrips(tiff));
    for (uint32_t i = 0; i < strips.size(); ++i) {
        // Where data ends just as the buffer is refilled, its last bytes are taken for the end: four zeros
        // for them.
        strips[i].resize(static_cast<size_t>(TIFFRawStripSize(tiff, i)) + 4);
        TIFFReadRawStrip(tiff, i, strips[i].data(), static_cast<tmsize_t>(strips[i].size()));
    }
    TIFFClose(tiff);
    return strips;
}

std::optional<Picture> DecodedByLibtiff(const Bytes& stream, unsigned format, unsigned width, size_t rows,
                                        bool reversed) {
    TIFFSetErrorHandler(CountComplaint);
    TIFFSetWarningHandler(CountComplaint);
    complaints = 0;
    MemoryFile file({});
    TIFF* tiff = CreateTiff(file, width, rows, {format, GROUP3OPT_FILLBITS}, reversed, rows);
    Bytes copy = stream;
    if (format == 162)
        copy.resize(copy.size() + 2); // it loses the byte boundary where it reads ahead of the data's end
    TIFFWriteRawStrip(tiff, 0, copy.data(), static_cast<tmsize_t>(copy.size()));
    TIFFClose(tiff);

    tiff = OpenTiff(file, "r");
    const size_t rowBytes = (width + 7) / 8;
    Bytes pixels(rowBytes * rows);
    const tmsize_t size = static_cast<tmsize_t>(pixels.size());
    const bool whole = TIFFReadEncodedStrip(tiff, 0, pixels.data(), size) == size;
    TIFFClose(tiff);
    if (!whole || complaints != 0)
        return std::nullopt;
    Picture picture;
    for (auto at = pixels.begin(); at != pixels.end(); at += static_cast<ptrdiff_t>(rowBytes))
        picture.emplace_back(at, at + static_cast<ptrdiff_t>(rowBytes));
    return picture;
}
