// The fax codec and its stream functions, as container filters use them.
//
// A CCITTG34 record holds one decode or encode operation. Its owner fills it with zero bytes, sets it
// up for one direction, calls the line coder of its format, and tears it down on every way out.
// Sources: ITU-T T.4 (Group 3), ITU-T T.6 (Group 4).
#pragma once

#include "host/records.h"
#include "host/status.h"

#define FAXX_API extern "C" __attribute__((visibility("default")))
#define FAXX_CXX_API __attribute__((visibility("default")))

// Format numbers. 66, 67, 117 and 162 are G3; every other number is coded and decoded as G4.
inline constexpr int FORMAT_FAX_G3_1D = 66;        // one-dimensional lines (T.4 § 4.1) with EOLs
inline constexpr int FORMAT_FAX_G3_2D = 67;        // T.4 § 4.2: EOL and tag bit before every line
inline constexpr int FORMAT_FAX_G4 = 68;           // T.6
inline constexpr int FORMAT_FAX_G3_2D_ALL2D = 117; // G3 2D, every line after the second without EOL
inline constexpr int FORMAT_FAX_G4_HEADER = 121;   // a 512-byte header, then G4 (or G3 1D); read only
inline constexpr int FORMAT_FAX_G3_1D_NOEOL = 162; // one-dimensional rows, each on a byte boundary

// CCITTG34::Flags of an encoder; a decoder knows only FAX_REVERSE_BITS.
inline constexpr unsigned FAX_REVERSE_BITS = 1; // the first bit of a byte is its least significant
inline constexpr unsigned FAX_BYTE_TRAILER = 2; // the stream may end with an odd byte
inline constexpr unsigned FAX_ALIGN_EOL = 4;    // each trailer EOL ends on a byte boundary

// CCITTG34::DecodeStatus. Once not OK, the line decoders deliver white rows until the next set-up.
inline constexpr unsigned DECODE_STATUS_OK = 0;
inline constexpr unsigned DECODE_STATUS_BAD_CODE = 1;
inline constexpr unsigned DECODE_STATUS_NO_DATA = 2;

// CCITTG34::WriteStatus. Once a write has come back short; coding goes on.
inline constexpr unsigned WRITE_STATUS_SHORT = 3;

inline constexpr unsigned MAX_CODEC_WIDTH = 250000; // accepted by the decoder set-up
inline constexpr unsigned MAX_IMAGE_WIDTH = 249999; // accepted by loaders and savers
inline constexpr unsigned MAX_BUFFER_WIDTH = 65535; // accepted by the buffer entries

// One decode or encode operation. Natural alignment, 96 bytes.
//
// Change lists: a line as the list of its changing elements, left to right, each stored as its distance
// from the right edge (Width minus the column), closed by three 0 entries. Even-indexed entries are
// changes to black. An empty list is an all-white line.
struct CCITTG34 {
    uint32_t Format;
    int32_t NextLineTag; // decoders: negative = the next line is one-dimensional; encoders: line count
    uint32_t Flags;
    uint32_t Width;          // pixels per line; the line decoders may raise it
    uint32_t* ReferenceLine; // change list of the line above
    uint32_t* CodingLine;    // change list of the line being coded; the two swap after every line
    tagHANDLE* Handle;
    uint8_t* Buffer;
    uint32_t BitAccumulator; // decoders: bit 31 is the next unread bit; encoders: pending bits
    int32_t BitCount;        // decoders: valid bits below the top 16; encoders: bits free in the word
    union {
        __extension__ struct { // decoders
            uint32_t BytesInBuffer;
            uint32_t ReadPosition; // index of the next byte pair to enter the accumulator
            uint32_t DecodeStatus;
            uint32_t BufferCapacity;
            uint32_t BytesRead; // from Handle since the set-up
            uint32_t ByteLimit; // 0 = read until the handle yields nothing
            uint32_t RefillThreshold;
            _LOADDISPATCH* LoadDispatch; // receives data errors in its Status; may be null
        };
        __extension__ struct { // encoders
            uint32_t BufferCount;
            uint32_t TotalBytes;  // handed to K_RedirectedWrite
            uint32_t WriteStatus; // WRITE_STATUS_SHORT once a write came back short
            _SAVEDISPATCH* SaveDispatch;
            uint32_t KFactor;        // T.4 § 4.2.1, format 67 only
            uint32_t FlushThreshold; // Buffer is written out before a line when it holds more
        };
    };
};

static_assert(sizeof(CCITTG34) == 96);
static_assert(offsetof(CCITTG34, ReferenceLine) == 16 && offsetof(CCITTG34, BitAccumulator) == 48);
static_assert(offsetof(CCITTG34, BytesInBuffer) == 56 && offsetof(CCITTG34, LoadDispatch) == 88);
static_assert(offsetof(CCITTG34, BufferCount) == 56 && offsetof(CCITTG34, SaveDispatch) == 72);
static_assert(offsetof(CCITTG34, KFactor) == 80 && offsetof(CCITTG34, FlushThreshold) == 84);

// Whole streams.

// Loads the stream at loadInfo->Offset of handle, batch by batch, through rowCallback. With a null
// dispatch describes instead: probes the first 2000 offsets for a G3 stream and fills loadInfo.
// Returns SUCCESS also for damaged data, which dispatch->Status then reports.
FAXX_API int K_LoadRawFax(_LOADDISPATCH* dispatch, tagHANDLE* handle, _LOADINFO* loadInfo,
                          _FILEINFOA* fileInfo, _BITMAPHANDLE* bitmap, RowCallbackFn* rowCallback,
                          int bitsPerPixel, void* userData);

// Saves bitmap as a stream at handle's current position: rows come from the dispatch's callbacks, pass
// through rowCallback (may be null) after the polarity step, and are coded. fileSize (may be null) receives
// the stream's bytes. Returns SUCCESS, a callback's status, ERROR_NO_MEMORY, the status of a failed write, or
// ERROR_NULL_PTR for a missing argument, a bitmap wider than MAX_IMAGE_WIDTH or not of 1 bit per pixel.
FAXX_API int K_SaveRawFax(_SAVEDISPATCH* dispatch, tagHANDLE* handle, _BITMAPHANDLE* bitmap, int bitsPerPixel,
                          unsigned format, unsigned callbackParam, void* userData1, void* userData2,
                          unsigned* fileSize, unsigned flags, SaveRowCallbackFn* rowCallback, void* userData);

// Gives the bitmap its black-and-white palette, inverted where loadInfo says so.
FAXX_API int SetBitmapPalette(_LOADDISPATCH* dispatch, _LOADINFO* loadInfo, _BITMAPHANDLE* bitmap);

// Tiles: an image as a grid of separately compressed streams; a column of strips is the one-tile-wide case.

// Loads the tiles of tileInfo into bitmap through rowCallback. uncompressedTiles (may be null) marks tiles
// that are stored as packed rows. SUCCESS also for damaged data, which dispatch->Status then reports.
FAXX_API int K_LoadTiledFax(_LOADDISPATCH* dispatch, tagHANDLE* handle, _LOADINFO* loadInfo,
                            _FAXTILEINFO* tileInfo, _FILEINFOA* fileInfo, _BITMAPHANDLE* bitmap,
                            RowCallbackFn* rowCallback, int bitsPerPixel, void* userData,
                            unsigned char* uncompressedTiles);
// Cuts run-length rows of TileWidth pixels to the width of fileInfo, in place; cut runs stay, empty.
FAXX_API void ShortenRunLengthWidths(unsigned short* rows, _FAXTILEINFO* tileInfo, _FILEINFOA* fileInfo,
                                     unsigned rowCount);

// Saves bitmap as tiles from handle's current position on, gap bytes left free before each, and fills the
// offsets and byte counts of tile where it has arrays for them. With uncompressed (a byte per tile), a tile
// that compression would make larger is stored as packed rows and marked. lastSize (may be null) receives the
// compressed length of the last tile coded.
FAXX_API int K_SaveTiledFax(_SAVEDISPATCH* dispatch, tagHANDLE* handle, _BITMAPHANDLE* bitmap,
                            _FAXTILEINFO* tile, unsigned char* uncompressed, unsigned gap, int bitsPerPixel,
                            unsigned format, unsigned callbackParam, void* userData1, void* userData2,
                            unsigned* lastSize, unsigned flags);
// Saves one tile: TileHeight image rows from firstRow on, byteCount bytes from byteOffset on of each.
FAXX_API int SaveFaxTile(_SAVEDISPATCH* dispatch, tagHANDLE* handle, CCITTG34* codec, int format,
                         _FAXTILEINFO* tile, unsigned flags, unsigned firstRow, unsigned byteOffset,
                         unsigned byteCount, int invert, unsigned* tileSize, _BITMAPHANDLE* saveBitmap,
                         _SAVEFILESTRUCT* saveFile, unsigned char* rowBuffer, int compress);

// Decoders. Rows come out as run-length rows (host/kernel.h).

// Prepares record for a stream whose first byte handle stands at. width at most MAX_CODEC_WIDTH.
// smallBuffer: read 2048 bytes at a time instead of 200000. byteLimit: bytes read at most, 0 = all.
// Returns SUCCESS (also for an empty stream), ERROR_WIDTH_LIMIT or ERROR_NO_MEMORY; what was allocated
// is the caller's to free with QuitDecodeG34(record, 1) in every case.
FAXX_API int InitDecodeG34(_LOADDISPATCH* dispatch, CCITTG34* record, unsigned format, unsigned width,
                           unsigned flags, tagHANDLE* handle, unsigned smallBuffer, unsigned byteLimit);
// freeAll 0 keeps the buffers for another set-up of the same record.
FAXX_API void QuitDecodeG34(CCITTG34* record, int freeAll);

// Decode up to lines lines (T.6 § 2, T.4 § 4) and return how many rows were written; fewer when the row
// area's budget of 249,998 words is used up, when the input ends, or on damage.
FAXX_API unsigned DecodeG4(CCITTG34* record, unsigned short* rows, unsigned lines);
FAXX_API unsigned DecodeG3(CCITTG34* record, unsigned short* rows, unsigned lines);
// Reads a G3 stream of unknown width to its end: returns its number of lines and leaves the longest
// one in record->Width. 0 when a line passes 200,000 pixels. rows is scratch for one row.
FAXX_API int InfoDecodeG3(CCITTG34* record, unsigned short* rows);

// Encoders. Rows are packed, 1 = black, the bits of the last byte beyond Width ignored.

// Prepares record for a stream written to handle from its current position. width at most MAX_IMAGE_WIDTH;
// flags: FAX_REVERSE_BITS, FAX_BYTE_TRAILER, FAX_ALIGN_EOL. dispatch may be null; its bitmap's YResolution
// chooses the K of format 67. Returns 0 when ready, 1 when out of memory; QuitEncodeG34 is due either way.
FAXX_API int InitEncodeG34(_SAVEDISPATCH* dispatch, CCITTG34* record, unsigned format, unsigned width,
                           unsigned flags, tagHANDLE* handle);
// Writes the trailer (EOFB, or the EOLs of an RTC) and the last bytes, and frees the buffers. TotalBytes and
// WriteStatus stay readable.
FAXX_API void QuitEncodeG34(CCITTG34* record);

// Code one row. A short write shows in record->WriteStatus.
FAXX_API void EncodeG4(CCITTG34* record, unsigned char* row);
FAXX_API void EncodeG3(CCITTG34* record, unsigned char* row);

// The kernel's memory redirection, under the names by which container filters know it. C++ linkage.

// Makes a handle whose reads (REDIRECT_READ) come from the buffer, or whose writes (REDIRECT_WRITE) go to it.
// SUCCESS, or the kernel's status.
FAXX_CXX_API int StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode,
                                       unsigned char* buffer, unsigned long long size);
// The same with a buffer of the kernel's own.
FAXX_CXX_API int StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode);
// Ends the redirection; reports where written data is and how long, where the pointers are not null.
FAXX_CXX_API int StopRedirectToBuffer(void* redirect, unsigned char** buffer, unsigned long long* size);
