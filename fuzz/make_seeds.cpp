// Writes the fuzz targets' first inputs: good streams of every format, from our encoders and from libtiff's,
// each behind the parameters that describe it.
//
// usage: make_seeds DIRECTORY, where each target gets a directory of its own
#include "API/Filters/Fax/Fax.h"
#include "fuzz/harness.h"
#include "host/kernel.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <png.h>
#include <stdexcept>
#include <tiffio.h>

namespace fs = std::filesystem;
using fuzz::Bytes;

namespace {

constexpr unsigned kHeight = 104; // the probe wants 100 lines

struct SeedDirectory {
    fs::path Root;

    fs::path Path(const char* target, const std::string& name) const {
        const fs::path directory = Root / target;
        fs::create_directories(directory);
        return directory / name;
    }
    void Put(const char* target, const std::string& name, const Bytes& parameters, const Bytes& data) const {
        std::ofstream file(Path(target, name), std::ios::binary);
        std::copy(parameters.begin(), parameters.end(), std::ostreambuf_iterator<char>(file));
        std::copy(data.begin(), data.end(), std::ostreambuf_iterator<char>(file));
        if (!file.flush())
            throw std::runtime_error("a seed cannot be written");
    }
};

// Stripes that lean, blank rows, some isolated pixels: all modes of T.6 and long and short runs.
standin::BitmapPtr MakePage(unsigned width, unsigned height) {
    standin::BitmapPtr bitmap = standin::MakeBitmap(width, static_cast<int>(height));
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            if ((y % 13 != 0 && (x + y * 2 / 3) / 9 % 4 == 1) || (x * 31 + y * 17) % 211 == 0)
                standin::BitmapRow(*bitmap, y)[x / 8] |= static_cast<unsigned char>(0x80 >> x % 8);
    return bitmap;
}

Bytes Packed(const _BITMAPHANDLE& bitmap) {
    Bytes rows;
    for (size_t y = 0; y < static_cast<size_t>(bitmap.Height); ++y) {
        const unsigned char* const row = standin::BitmapRow(bitmap, y);
        rows.insert(rows.end(), row, row + (bitmap.Width + 7) / 8);
    }
    return rows;
}

Bytes Coded(const _BITMAPHANDLE& bitmap, int format, unsigned flags) {
    _BITMAPINFOHEADER header{};
    header.Width = static_cast<int32_t>(bitmap.Width);
    header.Height = bitmap.Height;
    header.BitsPerPixel = 1;
    Bytes rows = Packed(bitmap);
    Bytes stream(rows.size() * 9 + 4096);
    unsigned long long size = stream.size();
    if (fltSaveBuffer(rows.data(), &header, stream.data(), &size, 0, flags, format, 0, 0) != SUCCESS)
        throw std::runtime_error("a seed cannot be coded");
    stream.resize(size);
    return stream;
}

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffPtr = std::unique_ptr<TIFF, CloseTiff>;

struct TiffKind {
    const char* Name;
    int Format; // 0: not compressed
    uint16_t Compression;
    uint32_t Group3Options;
    uint16_t FillOrder;
    uint16_t Photometric;
    unsigned TileSize; // 0: strips
    uint16_t Orientation;
};
constexpr TiffKind kTiffKinds[] = {
    {"none", 0, COMPRESSION_NONE, 0, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISBLACK, 0, 1},
    {"none-tiles", 0, COMPRESSION_NONE, 0, FILLORDER_LSB2MSB, PHOTOMETRIC_MINISWHITE, 32, 4},
    {"rle", 162, COMPRESSION_CCITTRLE, 0, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, 0, 2},
    {"g3", 66, COMPRESSION_CCITTFAX3, 0, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, 0, 6},
    {"g3-reversed", 66, COMPRESSION_CCITTFAX3, GROUP3OPT_FILLBITS, FILLORDER_LSB2MSB, PHOTOMETRIC_MINISBLACK,
     0, 1},
    {"g3-2d", 67, COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, 0,
     3},
    {"g4", 68, COMPRESSION_CCITTFAX4, 0, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, 0, 8},
    {"g4-reversed", 68, COMPRESSION_CCITTFAX4, 0, FILLORDER_LSB2MSB, PHOTOMETRIC_MINISBLACK, 0, 5},
    {"g4-tiles", 68, COMPRESSION_CCITTFAX4, 0, FILLORDER_MSB2LSB, PHOTOMETRIC_MINISWHITE, 32, 7},
};

void WritePage(TIFF* tiff, const TiffKind& kind, const _BITMAPHANDLE& bitmap, unsigned rowsPerStrip) {
    const auto height = static_cast<uint32_t>(bitmap.Height);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, bitmap.Width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, kind.Compression);
    if (kind.Compression == COMPRESSION_CCITTFAX3)
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, kind.Group3Options);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kind.Photometric);
    TIFFSetField(tiff, TIFFTAG_FILLORDER, kind.FillOrder);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, kind.Orientation);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 204.0);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 98.0);
    Bytes rows = Packed(bitmap);
    const size_t rowBytes = (bitmap.Width + 7) / 8;
    if (kind.TileSize == 0) {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
        for (uint32_t y = 0; y < height; ++y)
            if (TIFFWriteScanline(tiff, rows.data() + y * rowBytes, y, 0) != 1)
                throw std::runtime_error("a seed TIFF cannot be written");
    } else {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, kind.TileSize);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, kind.TileSize);
        Bytes tile(kind.TileSize * kind.TileSize / 8);
        for (uint32_t y = 0; y < height; y += kind.TileSize)
            for (uint32_t x = 0; x < bitmap.Width; x += kind.TileSize) {
                for (uint32_t i = 0; i < kind.TileSize && y + i < height; ++i)
                    std::memcpy(tile.data() + size_t{i} * (kind.TileSize / 8),
                                rows.data() + (y + i) * rowBytes + x / 8,
                                std::min<size_t>(kind.TileSize / 8, rowBytes - x / 8));
                if (TIFFWriteTile(tiff, tile.data(), x, y, 0, 0) < 0)
                    throw std::runtime_error("a seed TIFF cannot be written");
            }
    }
    if (TIFFWriteDirectory(tiff) != 1)
        throw std::runtime_error("a seed TIFF cannot be written");
}

// libtiff's stream of a bitmap, as one strip.
Bytes CodedByLibtiff(const fs::path& scratch, const TiffKind& kind, const _BITMAPHANDLE& bitmap) {
    {
        const TiffPtr tiff(TIFFOpen(scratch.c_str(), "w"));
        WritePage(tiff.get(), kind, bitmap, static_cast<unsigned>(bitmap.Height));
    }
    const TiffPtr tiff(TIFFOpen(scratch.c_str(), "r"));
    Bytes strip(static_cast<size_t>(TIFFRawStripSize(tiff.get(), 0)));
    TIFFReadRawStrip(tiff.get(), 0, strip.data(), static_cast<tmsize_t>(strip.size()));
    return strip;
}

// The stream for every target that takes one, once as its own file and once as a described one.
void PutEverywhere(const SeedDirectory& seeds, const std::string& name, fuzz::Stream stream,
                   const Bytes& data) {
    const auto with = [&](uint8_t choice) {
        Bytes parameters;
        stream.Choice = choice;
        fuzz::PutStream(parameters, stream);
        return parameters;
    };
    seeds.Put("image", name, with(0), data);
    seeds.Put("image", name + "-described", with(1), data);
    for (const uint8_t choice : {uint8_t{0}, uint8_t{4}, uint8_t{2}})
        seeds.Put("buffer", name + "-" + std::to_string(choice), with(choice), data);
    seeds.Put("lines", name, with(0), data);
    seeds.Put("lines", name + "-probed", with(1), data);

    // One strip that is all of it, and columns of which the others are not there.
    for (const unsigned tileWidth : {stream.Width, stream.Width / 2}) {
        Bytes parameters = with(0);
        fuzz::PutWidth(parameters, tileWidth);
        fuzz::PutWord(parameters, stream.Height);
        parameters.push_back(2);
        for (const unsigned word : {0u, static_cast<unsigned>(data.size()), 0u, 0u})
            fuzz::PutWord(parameters, word);
        seeds.Put("tiles", name + (tileWidth == stream.Width ? "-strip" : "-columns"), parameters, data);
    }
}

void PutStreams(const SeedDirectory& seeds) {
    const fs::path scratch = seeds.Root / "scratch.tif";
    for (const unsigned width : {17u, 128u, 3000u, 65535u}) {
        const unsigned height = width > 128 ? 6 : kHeight;
        const standin::BitmapPtr page = MakePage(width, height);
        for (const int format : {66, 67, 68, 117, 162})
            for (const unsigned flags : {0u, FAX_REVERSE_BITS, FAX_ALIGN_EOL}) {
                fuzz::Stream stream{format, width, height, LOADINFO_ORIENTATION_1};
                if (flags == FAX_REVERSE_BITS)
                    stream.Flags = LOADINFO_ORIENTATION_6 | LOADINFO_REVERSED_BITS | LOADINFO_MIRROR;
                PutEverywhere(
                    seeds, std::to_string(format) + '-' + std::to_string(width) + '-' + std::to_string(flags),
                    stream, Coded(*page, format, flags));
            }
        for (const TiffKind& kind : kTiffKinds)
            if (kind.Format != 0 && kind.TileSize == 0 && kind.FillOrder == FILLORDER_MSB2LSB)
                PutEverywhere(seeds, std::string("libtiff-") + kind.Name + '-' + std::to_string(width),
                              {kind.Format, width, height, LOADINFO_ORIENTATION_1},
                              CodedByLibtiff(scratch, kind, *page));
    }
    fs::remove(scratch);
}

// A file with the 512-byte header, coded as G4 or as G3.
void PutHeaderFiles(const SeedDirectory& seeds) {
    const standin::BitmapPtr page = MakePage(64, 20);
    for (const int format : {66, 68}) {
        Bytes start;
        fuzz::PutStream(start, {121, 64, 20, 0, 0, 1});
        const size_t headerAt = start.size();
        for (const int byte : {0xDC, 0xDC, 0, 0, 0, 0, 20, 0, 64, 0, 0, 0, 0, 0, 0, 0, 200, 0, 200, 0})
            start.push_back(static_cast<uint8_t>(byte));
        start[headerAt + 12] = format == 66 ? 2 : 0;
        start.resize(headerAt + 512);
        seeds.Put("image", "header-" + std::to_string(format), start, Coded(*page, format, FAX_REVERSE_BITS));
    }
}

void PutPixels(const SeedDirectory& seeds) {
    for (const unsigned width : {1u, 33u, 200u, 65535u, 249999u})
        for (const int format : {66, 67, 68, 117, 162})
            for (uint8_t choice = 0; choice < 4; ++choice) {
                Bytes parameters;
                fuzz::PutStream(parameters, {format, width, 16, 0x0340, static_cast<uint8_t>(width), choice});
                seeds.Put("round_trip",
                          std::to_string(format) + '-' + std::to_string(width) + '-' + std::to_string(choice),
                          parameters, Packed(*MakePage(std::min(width, 200u), 16)));
            }
}

void PutPictureFiles(const SeedDirectory& seeds) {
    const standin::BitmapPtr page = MakePage(72, 40);
    for (const TiffKind& kind : kTiffKinds)
        for (const char* mode : {"wl", "wb8"}) {
            const std::string name = std::string(kind.Name) + '-' + mode + ".tif";
            const TiffPtr tiff(TIFFOpen(seeds.Path("picture_file", name).c_str(), mode));
            WritePage(tiff.get(), kind, *page, 16);
            if (mode[1] == 'b') // a second page
                WritePage(tiff.get(), kind, *MakePage(20, 9), 4);
        }
    const Bytes rows = Packed(*page);
    const std::string pbm = "P4\n72 40\n";
    seeds.Put("picture_file", "packed.pbm", Bytes(pbm.begin(), pbm.end()), rows);
    const std::string plain = "P1 # plain\n5 2\n0 1 1 0 1\n10010\n";
    seeds.Put("picture_file", "plain.pbm", Bytes(plain.begin(), plain.end()), {});
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = 9;
    image.height = 40;
    image.format = PNG_FORMAT_GRAY;
    if (png_image_write_to_file(&image, seeds.Path("picture_file", "grey.png").c_str(), 0, rows.data(), 9,
                                nullptr) == 0)
        throw std::runtime_error("a seed PNG cannot be written");
}

// Without a cross-reference table, which qpdf makes up for.
void PutPdfs(const SeedDirectory& seeds) {
    const fs::path scratch = seeds.Root / "scratch.tif";
    const standin::BitmapPtr page = MakePage(72, 40);
    for (const TiffKind& kind : kTiffKinds) {
        if (kind.Format == 0 || kind.TileSize != 0)
            continue;
        const Bytes strip = CodedByLibtiff(scratch, kind, *page);
        const char* const parameters = kind.Compression == COMPRESSION_CCITTFAX4  ? "/K -1"
                                       : kind.Compression == COMPRESSION_CCITTRLE ? "/EncodedByteAlign true"
                                       : (kind.Group3Options & GROUP3OPT_2DENCODING) != 0 ? "/K 4"
                                                                                          : "/EndOfLine true";
        std::string text =
            "%PDF-1.5\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
            "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n3 0 obj<</Type/Page/Parent 2 0 R"
            "/Contents 4 0 R/Resources<</XObject<</P 5 0 R>>>>/Rotate 90>>endobj\n"
            "4 0 obj<</Length 20>>stream\nq 9 0 0 9 0 0 cm/P Do\nendstream endobj\n"
            "5 0 obj<</Subtype/Image/Width 72/Height 40/Filter/CCITTFaxDecode/DecodeParms<<"
            "/Columns 72 ";
        text += std::string(parameters) + ">>/Length " + std::to_string(strip.size()) + ">>stream\n";
        const std::string end = "\nendstream endobj\ntrailer<</Root 1 0 R>>\n";
        Bytes tail = strip;
        tail.insert(tail.end(), end.begin(), end.end());
        seeds.Put("pdf", std::string(kind.Name) + ".pdf", Bytes(text.begin(), text.end()), tail);
    }
    fs::remove(scratch);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_seeds DIRECTORY\n");
        return 2;
    }
    try {
        const SeedDirectory seeds{argv[1]};
        fs::create_directories(seeds.Root);
        PutStreams(seeds);
        PutHeaderFiles(seeds);
        PutPixels(seeds);
        PutPictureFiles(seeds);
        PutPdfs(seeds);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_seeds: %s\n", error.what());
        return 1;
    }
    return 0;
}
