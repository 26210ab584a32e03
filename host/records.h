// The kernel's records, as far as the fax filter touches them.
//
// These are binary interfaces: byte-packed, owned by the kernel, larger than what is declared here.
// The filter writes single fields of them and never takes sizeof of one, copies one whole or creates
// one, except the bitmap record, whose full size is known, and a description record of its own.
#pragma once

#include <cstddef>
#include <cstdint>

struct tagHANDLE; // a redirected file, opaque to filters
struct _BITMAPHANDLE;
struct _FILEINFOA;
struct _SAVEFILESTRUCT;

#pragma pack(push, 1)

// A stream's description: what a loader needs to know to decode it.
struct _LOADINFO {
    uint8_t Unused0[4];
    int32_t Format; // format number
    int32_t Width;  // pixels per line
    int32_t Height; // lines
    int32_t BitsPerPixel;
    int32_t XResolution; // dots per inch, 0 = not given
    int32_t YResolution; // dots per inch, 0 = not given
    int64_t Offset;      // of the compressed data, bytes from the start of the handle
    uint32_t Flags;      // LOADINFO_ bits
};

// A file's description, filled by fltInfo and read by the loaders.
struct _FILEINFOA {
    uint8_t Unused0[4];
    int32_t Format;
    uint8_t Unused8[512];
    uint32_t Width; // pixels
    int32_t Height; // lines
    int32_t BitsPerPixel;
    uint8_t Unused532[8];
    uint64_t ImageSize; // bytes of the uncompressed image
    char Name[18];      // format name, NUL-terminated
    uint8_t Unused566[2];
    int32_t Orientation; // 1..8
    uint32_t Reserved572;
    uint8_t Unused576[8];
    int32_t XResolution; // dots per inch
    int32_t YResolution; // dots per inch
    uint32_t Flags;      // FILEINFO_ bits
};

// The kernel's bitmap. This record is declared whole: a filter may own one.
struct _BITMAPHANDLE {
    uint8_t Unused0[20];
    uint32_t Width; // pixels
    int32_t Height; // rows
    int32_t BitsPerPixel;
    uint32_t BytesPerLine; // of one packed row
    uint8_t Unused36[12];
    uint8_t Flags; // BITMAP_ALLOCATED
    uint8_t Unused49[3];
    uint32_t PaletteParam; // passed back to K_SetBitmapNewPalette
    void* Palette;         // null: none yet
    int32_t Orientation;   // 1..8; 4 = rows stored bottom to top
    uint8_t Unused68[32];
    int32_t XResolution; // dots per inch
    int32_t YResolution; // dots per inch
    uint8_t Unused108[176];
};

struct _PALETTEENTRY {
    uint8_t Red, Green, Blue;
    uint8_t Reserved; // 0
};

// clang-format takes the first asterisk of a function type's parameters for a multiplication.
// clang-format off

// Receives decoded rows: a batch of rowCount run-length rows, the first of them line firstLine of the
// image. flags is a sum of ROWS_ values. Returns SUCCESS to go on; anything else ends the load with
// that value.
extern "C" using RowCallbackFn = int(_FILEINFOA* fileInfo, _BITMAPHANDLE* bitmap, unsigned short* rows,
                                     unsigned flags, int firstLine, int rowCount, void* userData);

struct _LOADDISPATCH {
    const char* FileName;
    _BITMAPHANDLE* Bitmap; // target
    uint32_t Flags;        // LOADDISPATCH_ bits
    RowCallbackFn* RowCallback;
    void* UserData; // for RowCallback
    uint8_t Unused36[36];
    _FILEINFOA* FileInfo;
    uint8_t Unused80[616];
    int32_t LoadInfoValid; // non-zero: LoadInfo may be filled by probing
    _LOADINFO LoadInfo;
    uint8_t Unused740[1092];
    int32_t Status; // data errors of a load that went on; never cleared by the filter
};

struct _INFODISPATCH {
    const char* FileName;
    uint8_t Unused8[12];
    _FILEINFOA* FileInfo; // to fill
    uint8_t Unused28[16];
    _LOADDISPATCH* LoadDispatch; // of the load that will follow, or null
};

// Begins a save: supplies the bitmap to read rows from (possibly a converted copy), a buffer of at
// least one packed row unless rowBuffer is null, and the save-file record. Above 0 = go on.
extern "C" using StartCallbackFn = int(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, int one,
                                       unsigned* callbackParam, unsigned char** rowBuffer, int alsoOne,
                                       void* userData1, void* userData2, _SAVEFILESTRUCT** saveFile);
// Fetches one packed row. SUCCESS when it is in rowBuffer; anything else stops the save.
extern "C" using GetRowCallbackFn = int(_BITMAPHANDLE* bitmap, _BITMAPHANDLE* saveBitmap,
                                        unsigned char* rowBuffer, unsigned row, int rowCount,
                                        unsigned callbackParam, void* userData1, void* userData2,
                                        _SAVEFILESTRUCT* saveFile);
// Releases what the start callback supplied. The result is ignored.
extern "C" using EndCallbackFn = int(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap,
                                     unsigned* callbackParam, unsigned char** rowBuffer,
                                     _SAVEFILESTRUCT** saveFile);
// A container filter's look at each row between the polarity step and the coder.
extern "C" using SaveRowCallbackFn = int(_BITMAPHANDLE* saveBitmap, unsigned char* row, void* userData);

// clang-format on

struct _SAVEOPTIONS {
    uint8_t Unused0[12];
    uint32_t OutputBits; // SAVEOPTION_ bits of the word at 12
    uint8_t Unused16[1335];
    uint32_t FaxBits; // SAVEOPTION_FAX_ bits
};

struct _SAVEFILESTRUCT {
    uint8_t Unused0[10];
    uint8_t NoInvert; // 0: rows are inverted before they are coded
};

struct _SAVEDISPATCH {
    const char* FileName;
    _BITMAPHANDLE* Bitmap; // source
    int32_t BitsPerPixel;
    int32_t Format;
    uint32_t CallbackParam;
    void* UserData1;
    void* UserData2;
    uint8_t Unused44[646];
    _SAVEOPTIONS* Options;
    uint8_t Unused698[238];
    StartCallbackFn* StartCallback;
    EndCallbackFn* EndCallback;
    GetRowCallbackFn* GetRowCallback;
};

// A grid of tiles, numbered row of tiles by row of tiles, left to right.
struct _FAXTILEINFO {
    uint32_t TileWidth;       // pixels
    uint32_t TileHeight;      // rows
    uint32_t* TileOffsets;    // one entry per tile; loading: relative to _LOADINFO.Offset
    uint32_t* TileByteCounts; // one entry per tile
    uint32_t TileCount;       // entries in the two arrays
};

// The published device-independent-bitmap header, as far as the buffer saver reads it.
struct _BITMAPINFOHEADER {
    uint8_t Unused0[4];
    int32_t Width;  // pixels
    int32_t Height; // rows; only the magnitude counts
    uint8_t Unused12[2];
    uint16_t BitsPerPixel;
};

#pragma pack(pop)

// _LOADINFO.Flags. Where several orientation bits are set, the first one
// of this list counts; where none is, the orientation is 4.
inline constexpr uint32_t LOADINFO_ORIENTATION_1 = 0x1;
inline constexpr uint32_t LOADINFO_ORIENTATION_6 = 0x10;
inline constexpr uint32_t LOADINFO_ORIENTATION_3 = 0x80;
inline constexpr uint32_t LOADINFO_ORIENTATION_8 = 0x20;
inline constexpr uint32_t LOADINFO_ORIENTATION_5 = 0x100;
inline constexpr uint32_t LOADINFO_ORIENTATION_2 = 0x200;
inline constexpr uint32_t LOADINFO_ORIENTATION_7 = 0x400;
inline constexpr uint32_t LOADINFO_INVERTED = 0x4;      // palette entry 0 is black
inline constexpr uint32_t LOADINFO_REVERSED_BITS = 0x8; // first bit of a byte is its least significant
inline constexpr uint32_t LOADINFO_MIRROR = 0x40;       // mirror each line left to right

inline constexpr uint32_t FILEINFO_DESCRIBED = 0x40;
inline constexpr uint32_t FILEINFO_PROBE_RAW = 0x10000; // the caller permits probing for a raw stream

inline constexpr uint32_t LOADDISPATCH_BATCHES = 0x20000000; // 100 lines a batch, small input buffer

inline constexpr uint8_t BITMAP_ALLOCATED = 0x1;
inline constexpr int32_t ORIENTATION_BOTTOM_UP = 4;
inline constexpr unsigned BITMAP_RECORD_SIZE = 284;
inline constexpr int BITMAP_MEMORY_KIND = 513; // what K_AllocateBitmap is asked for

inline constexpr uint32_t SAVEOPTION_REVERSE_BITS = 0x1;
inline constexpr uint32_t SaveOptionNoInvert = 0x10000000;
inline constexpr uint32_t SAVEOPTION_FAX_ALIGN_EOL = 0x800;

// Flag word of the row callback.
inline constexpr unsigned ROWS_ALWAYS = 1 + 2 + 16;
inline constexpr unsigned ROWS_FIRST_BATCH = 4;
inline constexpr unsigned ROWS_LAST_BATCH = 8;

// Modes of the memory redirection.
inline constexpr unsigned REDIRECT_READ = 4;
inline constexpr unsigned REDIRECT_WRITE = 8;

static_assert(offsetof(_LOADINFO, Format) == 4 && offsetof(_LOADINFO, Width) == 8);
static_assert(offsetof(_LOADINFO, Height) == 12 && offsetof(_LOADINFO, BitsPerPixel) == 16);
static_assert(offsetof(_LOADINFO, XResolution) == 20 && offsetof(_LOADINFO, YResolution) == 24);
static_assert(offsetof(_LOADINFO, Offset) == 28 && offsetof(_LOADINFO, Flags) == 36);

static_assert(offsetof(_FILEINFOA, Format) == 4 && offsetof(_FILEINFOA, Width) == 520);
static_assert(offsetof(_FILEINFOA, Height) == 524 && offsetof(_FILEINFOA, BitsPerPixel) == 528);
static_assert(offsetof(_FILEINFOA, ImageSize) == 540 && offsetof(_FILEINFOA, Name) == 548);
static_assert(offsetof(_FILEINFOA, Orientation) == 568 && offsetof(_FILEINFOA, Reserved572) == 572);
static_assert(offsetof(_FILEINFOA, XResolution) == 584 && offsetof(_FILEINFOA, YResolution) == 588);
static_assert(offsetof(_FILEINFOA, Flags) == 592);

static_assert(offsetof(_BITMAPHANDLE, Width) == 20 && offsetof(_BITMAPHANDLE, Height) == 24);
static_assert(offsetof(_BITMAPHANDLE, BitsPerPixel) == 28 && offsetof(_BITMAPHANDLE, BytesPerLine) == 32);
static_assert(offsetof(_BITMAPHANDLE, Flags) == 48 && offsetof(_BITMAPHANDLE, PaletteParam) == 52);
static_assert(offsetof(_BITMAPHANDLE, Palette) == 56 && offsetof(_BITMAPHANDLE, Orientation) == 64);
static_assert(offsetof(_BITMAPHANDLE, XResolution) == 100 && offsetof(_BITMAPHANDLE, YResolution) == 104);
static_assert(sizeof(_BITMAPHANDLE) == BITMAP_RECORD_SIZE);

static_assert(offsetof(_LOADDISPATCH, FileName) == 0 && offsetof(_LOADDISPATCH, Bitmap) == 8);
static_assert(offsetof(_LOADDISPATCH, Flags) == 16 && offsetof(_LOADDISPATCH, RowCallback) == 20);
static_assert(offsetof(_LOADDISPATCH, UserData) == 28 && offsetof(_LOADDISPATCH, FileInfo) == 72);
static_assert(offsetof(_LOADDISPATCH, LoadInfoValid) == 696 && offsetof(_LOADDISPATCH, LoadInfo) == 700);
static_assert(offsetof(_LOADDISPATCH, Status) == 1832);

static_assert(offsetof(_INFODISPATCH, FileName) == 0 && offsetof(_INFODISPATCH, FileInfo) == 20);
static_assert(offsetof(_INFODISPATCH, LoadDispatch) == 44);

static_assert(offsetof(_SAVEOPTIONS, OutputBits) == 12 && offsetof(_SAVEOPTIONS, FaxBits) == 1351);
static_assert(offsetof(_SAVEFILESTRUCT, NoInvert) == 10);

static_assert(offsetof(_SAVEDISPATCH, FileName) == 0 && offsetof(_SAVEDISPATCH, Bitmap) == 8);
static_assert(offsetof(_SAVEDISPATCH, BitsPerPixel) == 16 && offsetof(_SAVEDISPATCH, Format) == 20);
static_assert(offsetof(_SAVEDISPATCH, CallbackParam) == 24 && offsetof(_SAVEDISPATCH, UserData1) == 28);
static_assert(offsetof(_SAVEDISPATCH, UserData2) == 36 && offsetof(_SAVEDISPATCH, Options) == 690);
static_assert(offsetof(_SAVEDISPATCH, StartCallback) == 936 && offsetof(_SAVEDISPATCH, EndCallback) == 944);
static_assert(offsetof(_SAVEDISPATCH, GetRowCallback) == 952);

static_assert(offsetof(_FAXTILEINFO, TileWidth) == 0 && offsetof(_FAXTILEINFO, TileHeight) == 4);
static_assert(offsetof(_FAXTILEINFO, TileOffsets) == 8 && offsetof(_FAXTILEINFO, TileByteCounts) == 16);
static_assert(offsetof(_FAXTILEINFO, TileCount) == 24);

static_assert(offsetof(_BITMAPINFOHEADER, Width) == 4 && offsetof(_BITMAPINFOHEADER, Height) == 8);
static_assert(offsetof(_BITMAPINFOHEADER, BitsPerPixel) == 14);
