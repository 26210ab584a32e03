// The stand-in kernel: what a program of this tree may ask of it beyond the kernel's own functions
// (host/kernel.h). It loads the filter as the real kernel does, hands it dispatch records, and builds
// bitmaps from the rows that come back. Any number of calls may run at once on different records.
//
// Memory that a redirection in write mode needed beyond the caller's block is the kernel's: it stays readable
// until the same thread ends its next redirection or itself ends. The caller does not free it.
#pragma once

#include "host/records.h"
#include "host/status.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace standin {

// ---- Statuses

// What a load or save returns that its caller stopped; beside the statuses of host/status.h.
inline constexpr int kStatusStopped = -100;

// What a status means to a person, e.g. "the file cannot be opened".
const char* StatusText(int status);

// ---- Tracked memory

struct HeldBlock {
    size_t Bytes;
    int Line; // of K_LocalAlloc's caller
    std::string Path;
};
struct HeldMemory {
    size_t Bytes = 0;
    std::vector<HeldBlock> Blocks;
};
// The blocks from K_LocalAlloc, and the row memory of bitmaps, that are not freed yet.
HeldMemory HeldAllocations();

// ---- Bitmaps

struct FreeBitmap {
    void operator()(_BITMAPHANDLE* bitmap) const;
};
using BitmapPtr = std::unique_ptr<_BITMAPHANDLE, FreeBitmap>;

// A 1-bit bitmap of white rows with the normal palette; null when there is not enough memory.
BitmapPtr MakeBitmap(unsigned width, int height);
// The same record without memory for rows, for a load whose rows go elsewhere or nowhere.
BitmapPtr MakeBitmapWithoutRows(unsigned width, int height);
// One packed row of BytesPerLine bytes; null for a bitmap without row memory.
unsigned char* BitmapRow(const _BITMAPHANDLE& bitmap, size_t row);
// Whether a set bit is white: the palette's entry 0 is black.
bool IsInverted(const _BITMAPHANDLE& bitmap);
// A bitmap of some of the rows, within the memory of the one they belong to, which must outlive it.
_BITMAPHANDLE BitmapRows(const _BITMAPHANDLE& bitmap, size_t firstRow, int rows);

// ---- The filter

struct Filter {
    int (*Info)(_INFODISPATCH*) = nullptr;
    int (*Load)(_LOADDISPATCH*) = nullptr;
    int (*Save)(_SAVEDISPATCH*) = nullptr; // null: a filter that only reads
    // For containers; null: a filter that does not serve them.
    int (*LoadTiled)(_LOADDISPATCH*, tagHANDLE*, _LOADINFO*, _FAXTILEINFO*, _FILEINFOA*, _BITMAPHANDLE*,
                     RowCallbackFn*, int bitsPerPixel, void* userData,
                     unsigned char* uncompressedTiles) = nullptr;
    int (*SaveTiled)(_SAVEDISPATCH*, tagHANDLE*, _BITMAPHANDLE*, _FAXTILEINFO*, unsigned char* uncompressed,
                     unsigned gap, int bitsPerPixel, unsigned format, unsigned callbackParam, void* userData1,
                     void* userData2, unsigned* lastSize, unsigned flags) = nullptr; // kTiles flags
    // Of dlopen, for what else a program may want of the filter.
    void* Library = nullptr;
};

// Flags of SaveTiled.
inline constexpr unsigned kTilesReverseBits = 1; // the first bit of a byte is its least significant
inline constexpr unsigned kTilesByteTrailer = 2; // a tile may end with an odd byte
inline constexpr unsigned kTilesAlignEol = 4;    // each trailer EOL ends on a byte boundary

inline constexpr const char* kFilterLibrary = "libkffax.so.19";

// Loads the filter from a path, or by name from beside the kernel and the usual places. It stays loaded.
// Throws std::runtime_error when the library or an entry point is missing.
Filter LoadFilter(const std::string& library = kFilterLibrary);

// The kernel's records are larger than what is declared of them.
template <typename Record>
struct Padded {
    Record Declared{};
    unsigned char Rest[4096 - sizeof(Record)]{};
};

// ---- Describe and load

// A file as the filter describes it. Status is that of fltInfo; the rest means something for SUCCESS.
struct Description {
    int Status = FAILURE;
    Padded<_FILEINFOA> FileInfo;
    _LOADINFO LoadInfo{}; // of a stream without a header
};

Description Describe(const Filter& filter, const std::string& fileName);
// The description of a stream that cannot describe itself, such as raw G4, from what the caller knows.
Description DescribeStream(const _LOADINFO& stream);

struct LoadOptions {
    bool Batches = false; // lines in batches of 100 and a small input buffer
    bool DiscardRows =
        false;               // decode without keeping a picture: the bitmap that comes back has no row memory
    uint32_t AddedFlags = 0; // LOADINFO_ bits to set; not for files with a header, which set their own
    // Called after every batch with the lines done and in all; false stops the load.
    std::function<bool(int done, int total)> Progress;
};

struct LoadResult {
    int Status = FAILURE; // of fltLoad; kStatusStopped when Progress stopped it
    int DataStatus = 0;   // what the load said about the data: 0, or why it is damaged
    int Rows = 0;         // lines delivered
    // Null when there was no memory for it. Lines not delivered are white; after a load that discards rows
    // BitmapRow is null.
    BitmapPtr Bitmap;
    _LOADINFO LoadInfo{}; // the stream as it was decoded
};

LoadResult Load(const Filter& filter, const std::string& fileName, const Description& description,
                const LoadOptions& options = {});

// ---- Save

struct SaveOptions {
    int Format = 68;
    bool ReverseBits = false;   // the stream's first bit is a byte's least significant
    bool AlignEol = false;      // each trailer EOL ends on a byte boundary
    bool NoInvert = false;      // code the rows as they lie in memory, whatever the palette says
    bool ConvertedCopy = false; // save from a copy that has the normal palette, not from the bitmap itself
    // Called before every row with the rows fetched and in all; false stops the save.
    std::function<bool(int done, int total)> Progress;
};

// A save dispatch with everything that it points to; it stays where it was prepared.
struct SaveCall {
    Padded<_SAVEDISPATCH> Dispatch;
    Padded<_SAVEOPTIONS> Options;
    Padded<_SAVEFILESTRUCT> SaveFile;
    SaveOptions How;
    bool Tiled = false; // the tiled saver asks the save-file record alone whether to invert
    int RowsFetched = 0;
    const unsigned char* RowBuffer = nullptr; // the kernel's own; the tiled saver has one of its own
};

// Fills the call for a save of bitmap; fileName and bitmap must outlive it. For container formats, whose
// savers take a dispatch.
void PrepareSave(SaveCall& call, const char* fileName, _BITMAPHANDLE& bitmap, const SaveOptions& options);

// Whether the saves take a bitmap: SUCCESS, or why not. It needs 1 bit per pixel (ERROR_BITS_PER_PIXEL) and
// row memory (ERROR_NULL_PTR). No stream says how its picture is turned: rows from top to bottom (orientation
// 1) are saved as they are, rows from bottom to top (4) from the last one on, and anything else is refused
// (ERROR_INV_PARAMETER).
int SaveRefusal(const _BITMAPHANDLE& bitmap);

// Saves a bitmap through fltSave, which does not cut an existing longer file. Returns its status.
int SaveFile(const Filter& filter, const std::string& fileName, _BITMAPHANDLE& bitmap,
             const SaveOptions& options = {});

// ---- Strips and tiles, for container formats

// An image as separately coded blocks, numbered row by row: tiles, or strips as wide as the image. All of
// them lie in one piece of memory.
struct Blocks {
    unsigned Width = 0;            // pixels of a block
    unsigned Height = 0;           // rows of a block
    bool Tiled = false;            // the last blocks are as high as the others; a last strip has what is left
    unsigned Padding = 0;          // zero bytes to save behind the data of each block
    std::vector<uint32_t> Offsets; // into Bytes
    std::vector<uint32_t> ByteCounts; // 0: a block that is not there
    std::vector<unsigned char> Bytes;
};

// Loads an image of LoadInfo's Width, Height, Format and Flags from its blocks. The other blocks of a
// damaged one are loaded all the same, and DataStatus tells of it. uncompressed: the blocks are packed rows.
LoadResult LoadBlocks(const Filter& filter, const Description& image, Blocks& blocks, bool uncompressed,
                      const LoadOptions& options = {});

// Codes a bitmap as blocks of the size and kind that blocks says, and fills the rest of it. Only rows from
// top to bottom are taken, ERROR_INV_PARAMETER for others. Returns the filter's status; ERROR_FILE_WRITE
// beyond 4 GiB.
int SaveBlocks(const Filter& filter, _BITMAPHANDLE& bitmap, const SaveOptions& options, Blocks& blocks);

} // namespace standin
