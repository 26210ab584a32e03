#include "bench/libtiff_peer.h"

#include <tiffio.h>

#include <cstring>
#include <stdexcept>

namespace bench {

const char* CodingName(Coding coding) {
    switch (coding) {
    case Coding::G4:
        return "G4";
    case Coding::G3OneDimensional:
        return "G3-1D";
    case Coding::G3TwoDimensional:
        break;
    }
    return "G3-2D";
}

namespace {

struct MemoryFile {
    std::vector<uint8_t> bytes;
    size_t position = 0;
};

MemoryFile* FileOf(thandle_t handle) {
    return static_cast<MemoryFile*>(handle);
}

tmsize_t ReadFile(thandle_t handle, void* data, tmsize_t size) {
    MemoryFile* file = FileOf(handle);
    if (file->position >= file->bytes.size())
        return 0;
    const size_t count = std::min(static_cast<size_t>(size), file->bytes.size() - file->position);
    std::memcpy(data, file->bytes.data() + file->position, count);
    file->position += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t WriteFile(thandle_t handle, void* data, tmsize_t size) {
    MemoryFile* file = FileOf(handle);
    const size_t end = file->position + static_cast<size_t>(size);
    if (end > file->bytes.size())
        file->bytes.resize(end);
    std::memcpy(file->bytes.data() + file->position, data, static_cast<size_t>(size));
    file->position = end;
    return size;
}

toff_t SeekFile(thandle_t handle, toff_t offset, int origin) {
    MemoryFile* file = FileOf(handle);
    const size_t base = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file->position : file->bytes.size();
    file->position = base + static_cast<size_t>(offset);
    return file->position;
}

int CloseFile(thandle_t) {
    return 0;
}

toff_t FileSize(thandle_t handle) {
    return FileOf(handle)->bytes.size();
}

int MapFile(thandle_t handle, void** base, toff_t* size) {
    *base = FileOf(handle)->bytes.data();
    *size = FileOf(handle)->bytes.size();
    return 1;
}

void UnmapFile(thandle_t, void*, toff_t) {}

TIFF* Open(MemoryFile* file, const char* mode) {
    file->position = 0;
    TIFF* tiff = TIFFClientOpen("memory", mode, file, ReadFile, WriteFile, SeekFile, CloseFile, FileSize,
                                MapFile, UnmapFile);
    if (!tiff)
        throw std::runtime_error("libtiff cannot open its own file");
    return tiff;
}

} // namespace

struct TiffPeer::State {
    MemoryFile file;
    TIFF* reader = nullptr;
};

TiffPeer::TiffPeer() : state_(new State) {}

TiffPeer::~TiffPeer() {
    if (state_->reader)
        TIFFClose(state_->reader);
}

void TiffPeer::Encode(Page& page, Coding coding) {
    state_->file.bytes.clear();
    TIFF* tiff = Open(&state_->file, "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, page.height);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (coding == Coding::G4) {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    } else {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS,
                     coding == Coding::G3TwoDimensional ? GROUP3OPT_2DENCODING : 0);
    }
    const tmsize_t size = static_cast<tmsize_t>(page.rows.size());
    const bool written = TIFFWriteEncodedStrip(tiff, 0, page.rows.data(), size) == size;
    TIFFClose(tiff);
    if (!written)
        throw std::runtime_error("libtiff cannot code the page");
}

std::vector<uint8_t> TiffPeer::Strip() const {
    TIFF* tiff = Open(&state_->file, "r");
    std::vector<uint8_t> strip(TIFFGetStrileByteCount(tiff, 0));
    const tmsize_t read = TIFFReadRawStrip(tiff, 0, strip.data(), static_cast<tmsize_t>(strip.size()));
    TIFFClose(tiff);
    if (read != static_cast<tmsize_t>(strip.size()))
        throw std::runtime_error("libtiff cannot read its strip");
    return strip;
}

void TiffPeer::OpenForDecoding() {
    state_->reader = Open(&state_->file, "r");
}

bool TiffPeer::DecodeInto(std::vector<uint8_t>& rows) {
    const tmsize_t size = static_cast<tmsize_t>(rows.size());
    return TIFFReadEncodedStrip(state_->reader, 0, rows.data(), size) == size;
}

} // namespace bench
