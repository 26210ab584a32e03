#include "bench/libtiff_peer.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"

#include <tiffio.h>

#include <algorithm>
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

int FormatOf(Coding coding) {
    switch (coding) {
    case Coding::G4:
        return FORMAT_FAX_G4;
    case Coding::G3OneDimensional:
        return FORMAT_FAX_G3_1D;
    case Coding::G3TwoDimensional:
        break;
    }
    return FORMAT_FAX_G3_2D;
}

std::vector<Page> CutIntoBlocks(Page& page, Layout layout) {
    const unsigned width = layout.blockWidth != 0 ? layout.blockWidth : page.width;
    std::vector<Page> blocks;
    for (unsigned top = 0; top < page.height; top += layout.blockHeight)
        for (unsigned left = 0; left < page.width; left += width) {
            const unsigned rows = std::min(layout.blockHeight, page.height - top);
            Page block{width, layout.blockWidth != 0 ? layout.blockHeight : rows, {}};
            block.rows.resize(size_t{block.RowBytes()} * block.height);
            for (unsigned y = 0; y < rows; ++y)
                std::memcpy(block.Row(y), page.Row(top + y) + left / 8,
                            std::min(block.RowBytes(), page.RowBytes() - left / 8));
            blocks.push_back(std::move(block));
        }
    return blocks;
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
    bool tiled = false;
};

TiffPeer::TiffPeer() : state_(new State) {}

TiffPeer::~TiffPeer() {
    if (state_->reader)
        TIFFClose(state_->reader);
}

void TiffPeer::Encode(const Page& page, std::vector<Page>& blocks, Coding coding, Layout layout) {
    state_->file.bytes.clear();
    state_->tiled = layout.blockWidth != 0;
    TIFF* tiff = Open(&state_->file, "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (state_->tiled) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, layout.blockWidth);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, layout.blockHeight);
    } else {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, layout.blockHeight);
    }
    if (coding == Coding::G4) {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    } else {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS,
                     (coding == Coding::G3TwoDimensional ? GROUP3OPT_2DENCODING : 0) |
                         (layout.alignedEols ? GROUP3OPT_FILLBITS : 0));
    }
    bool written = true;
    for (unsigned i = 0; i < blocks.size() && written; ++i) {
        std::vector<uint8_t>& rows = blocks[i].rows;
        const tmsize_t size = static_cast<tmsize_t>(rows.size());
        written = (state_->tiled ? TIFFWriteEncodedTile(tiff, i, rows.data(), size)
                                 : TIFFWriteEncodedStrip(tiff, i, rows.data(), size)) == size;
    }
    TIFFClose(tiff);
    if (!written)
        throw std::runtime_error("libtiff cannot code the page");
}

void TiffPeer::OpenForDecoding() {
    state_->reader = Open(&state_->file, "r");
}

std::vector<uint8_t> TiffPeer::Compressed(unsigned block) const {
    TIFF* tiff = state_->reader;
    std::vector<uint8_t> bytes(TIFFGetStrileByteCount(tiff, block));
    const tmsize_t size = static_cast<tmsize_t>(bytes.size());
    const tmsize_t read = state_->tiled ? TIFFReadRawTile(tiff, block, bytes.data(), size)
                                        : TIFFReadRawStrip(tiff, block, bytes.data(), size);
    if (read != size)
        throw std::runtime_error("libtiff cannot read its block");
    return bytes;
}

void TiffPeer::Decode(unsigned block, Page& rows) {
    const tmsize_t size = static_cast<tmsize_t>(rows.rows.size());
    const tmsize_t read = state_->tiled ? TIFFReadEncodedTile(state_->reader, block, rows.rows.data(), size)
                                        : TIFFReadEncodedStrip(state_->reader, block, rows.rows.data(), size);
    if (read != size)
        throw std::runtime_error("libtiff cannot decode its block");
}

} // namespace bench
