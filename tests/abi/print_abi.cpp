// Prints what programs that were built against the headers rely on: the layout of the records, the types of
// the functions, the numbers. tests/abi/kffax.abi holds what it printed when that was last changed on
// purpose.
#include "API/Filters/Fax/Fax.h"
#include "host/kernel.h"

#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <typeinfo>

namespace {

template <typename Type>
void PrintType() {
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(Type).name(), nullptr, nullptr, nullptr), std::free);
    std::printf(" %s\n", name.get());
}

} // namespace

#define PARENTHESES ()
#define EXPAND(...) EXPAND2(EXPAND2(EXPAND2(EXPAND2(__VA_ARGS__))))
#define EXPAND2(...) EXPAND3(EXPAND3(EXPAND3(EXPAND3(__VA_ARGS__))))
#define EXPAND3(...) EXPAND4(EXPAND4(EXPAND4(EXPAND4(__VA_ARGS__))))
#define EXPAND4(...) __VA_ARGS__
#define EACH_STEP(print, scope, name, ...)                                                                   \
    print(scope, name) __VA_OPT__(EACH_AGAIN PARENTHESES(print, scope, __VA_ARGS__))
#define EACH_AGAIN() EACH_STEP
#define EACH(print, scope, ...) EXPAND(EACH_STEP(print, scope, __VA_ARGS__))

#define FIELD(record, field)                                                                                 \
    std::printf("  %4zu %4zu " #field, offsetof(record, field), sizeof(record::field));                      \
    PrintType<decltype(record::field)>();
#define RECORD(record, ...)                                                                                  \
    std::printf("record " #record " %zu aligned %zu\n", sizeof(record), alignof(record));                    \
    EACH(FIELD, record, __VA_ARGS__)
#define FUNCTION(scope, function)                                                                            \
    std::printf("function " #function);                                                                      \
    PrintType<decltype(function)>();
#define NUMBER(scope, constant)                                                                              \
    std::printf("number " #constant " %lld", static_cast<long long>(constant));                              \
    PrintType<decltype(constant)>();
#define CALLBACK(scope, type)                                                                                \
    std::printf("callback " #type);                                                                          \
    PrintType<type>();
#define CALLBACKS(...) EACH(CALLBACK, , __VA_ARGS__)
#define FUNCTIONS(...) EACH(FUNCTION, , __VA_ARGS__)
#define NUMBERS(...) EACH(NUMBER, , __VA_ARGS__)

int main() {
    // Bytes that the filter has no name for belong to the kernel; they are fields too, so that a new field
    // within them shows.
    RECORD(_LOADINFO, Unused0, Format, Width, Height, BitsPerPixel, XResolution, YResolution, Offset, Flags)
    RECORD(_FILEINFOA, Unused0, Format, Unused8, Width, Height, BitsPerPixel, Unused532, ImageSize, Name,
           Unused566, Orientation, Reserved572, Unused576, XResolution, YResolution, Flags)
    RECORD(_BITMAPHANDLE, Unused0, Width, Height, BitsPerPixel, BytesPerLine, Unused36, Flags, Unused49,
           PaletteParam, Palette, Orientation, Unused68, XResolution, YResolution, Unused108)
    RECORD(_PALETTEENTRY, Red, Green, Blue, Reserved)
    RECORD(_LOADDISPATCH, FileName, Bitmap, Flags, RowCallback, UserData, Unused36, FileInfo, Unused80,
           LoadInfoValid, LoadInfo, Unused740, Status)
    RECORD(_INFODISPATCH, FileName, Unused8, FileInfo, Unused28, LoadDispatch)
    RECORD(_SAVEOPTIONS, Unused0, OutputBits, Unused16, FaxBits)
    RECORD(_SAVEFILESTRUCT, Unused0, NoInvert)
    RECORD(_SAVEDISPATCH, FileName, Bitmap, BitsPerPixel, Format, CallbackParam, UserData1, UserData2,
           Unused44, Options, Unused698, StartCallback, EndCallback, GetRowCallback)
    RECORD(_FAXTILEINFO, TileWidth, TileHeight, TileOffsets, TileByteCounts, TileCount)
    RECORD(_BITMAPINFOHEADER, Unused0, Width, Height, Unused12, BitsPerPixel)
    RECORD(CCITTG34, Format, NextLineTag, Flags, Width, ReferenceLine, CodingLine, Handle, Buffer,
           BitAccumulator, BitCount, BytesInBuffer, ReadPosition, DecodeStatus, BufferCapacity, BytesRead,
           ByteLimit, RefillThreshold, LoadDispatch, BufferCount, TotalBytes, WriteStatus, SaveDispatch,
           KFactor, FlushThreshold)

    FUNCTIONS(fltInfo, fltInfoFAX, fltLoad, fltLoadFAX, fltSave, fltSaveFAX, fltLoadBuffer, fltLoadBufferFAX,
              fltSaveBuffer, fltSaveBufferFAX, K_LoadRawFax, K_SaveRawFax, K_LoadTiledFax, K_SaveTiledFax,
              SaveFaxTile, SetBitmapPalette, ShortenRunLengthWidths, InitDecodeG34, QuitDecodeG34, DecodeG4,
              DecodeG3, InfoDecodeG3, InitEncodeG34, QuitEncodeG34, EncodeG4, EncodeG3, StopRedirectToBuffer)
    FUNCTIONS(K_RedirectedOpen, K_RedirectedRead, K_RedirectedWrite, K_RedirectedSeek, K_RedirectedClose,
              K_LocalAlloc, K_LocalFree, K_MemorySet, K_MemoryCopy, K_OsGetLastError, K_InitBitmap,
              K_AllocateBitmap, K_IntAccessBitmap, K_IntReleaseBitmap, K_FreeBitmap, K_SetBitmapNewPalette,
              K_GetBitmapRowCompressed, K_PutBitmapRowColCompressed, K_ExpandRows, K_CompressRow,
              K_MirrorCompressedBuffer, K_StartRedirectToBuffer, K_StopRedirectToBuffer)
    CALLBACKS(RowCallbackFn, StartCallbackFn, GetRowCallbackFn, EndCallbackFn, SaveRowCallbackFn)

    NUMBERS(FORMAT_FAX_G3_1D, FORMAT_FAX_G3_2D, FORMAT_FAX_G4, FORMAT_FAX_G3_2D_ALL2D, FORMAT_FAX_G4_HEADER,
            FORMAT_FAX_G3_1D_NOEOL, FAX_REVERSE_BITS, FAX_BYTE_TRAILER, FAX_ALIGN_EOL, DECODE_STATUS_OK,
            DECODE_STATUS_BAD_CODE, DECODE_STATUS_NO_DATA, MAX_CODEC_WIDTH, MAX_IMAGE_WIDTH, MAX_BUFFER_WIDTH)
    NUMBERS(LOADINFO_ORIENTATION_1, LOADINFO_ORIENTATION_2, LOADINFO_ORIENTATION_3, LOADINFO_ORIENTATION_5,
            LOADINFO_ORIENTATION_6, LOADINFO_ORIENTATION_7, LOADINFO_ORIENTATION_8, LOADINFO_INVERTED,
            LOADINFO_REVERSED_BITS, LOADINFO_MIRROR, FILEINFO_DESCRIBED, FILEINFO_PROBE_RAW,
            LOADDISPATCH_BATCHES, BITMAP_ALLOCATED, ORIENTATION_BOTTOM_UP, BITMAP_RECORD_SIZE,
            BITMAP_MEMORY_KIND, SAVEOPTION_REVERSE_BITS, SaveOptionNoInvert, SAVEOPTION_FAX_ALIGN_EOL,
            ROWS_ALWAYS, ROWS_FIRST_BATCH, ROWS_LAST_BATCH, REDIRECT_READ, REDIRECT_WRITE)
    NUMBERS(SUCCESS, FAILURE, ERROR_NO_MEMORY, ERROR_FILE_WRITE, ERROR_FILE_READ, ERROR_FILE_FORMAT,
            ERROR_FILE_OPEN, ERROR_WIDTH_LIMIT, ERROR_INV_PARAMETER, ERROR_NULL_PTR, ERROR_FILE_CREATE,
            ERROR_FORMAT_NOT_WRITABLE, ERROR_BITS_PER_PIXEL, ERROR_FAX_DATA_CORRUPT, ERROR_EXCEPTION,
            ERROR_BUFFER_TOO_SMALL, ERROR_NO_CALLBACK, ERROR_FAX_WIDTH_CHANGED)
}
