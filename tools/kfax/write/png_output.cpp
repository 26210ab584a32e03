// PNG: 1-bit greyscale with the resolution as pixels per metre, and 8-bit greyscale.
//
// libpng reports an error by a longjmp, which must not pass objects with destructors: the calls stand
// in a function that has none.
#include "tools/kfax/base/messages.h"
#include "tools/kfax/write/picture_output.h"

#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstring>
#include <png.h>
#include <stdexcept>
#include <string>

namespace kfax {

namespace {

// zlib's sixth level, the default, makes a page of text 8 % smaller and takes nearly twice as long.
constexpr int kCompressionLevel = 4;

struct PngError {
    char Reason[200];
};

extern "C" void KeepReason(png_structp png, png_const_charp reason) {
    auto* const error = static_cast<PngError*>(png_get_error_ptr(png));
    std::strncpy(error->Reason, reason, sizeof error->Reason - 1);
    png_longjmp(png, 1);
}

extern "C" void IgnoreWarning(png_structp /*png*/, png_const_charp /*reason*/) {}

extern "C" void WriteBytes(png_structp png, png_bytep bytes, size_t count) {
    if (std::fwrite(bytes, 1, count, static_cast<std::FILE*>(png_get_io_ptr(png))) != count)
        png_error(png, SystemReason(errno).c_str());
}

extern "C" void FlushBytes(png_structp /*png*/) {}

png_uint_32 PerMetre(int perInch) {
    return static_cast<png_uint_32>(std::lround(perInch / 0.0254));
}

// The rows of either kind of picture.
struct PngRows {
    size_t Width, Height, RowBytes;
    int BitDepth;
    const uint8_t* Bytes;
    int XResolution, YResolution;
};

bool Encode(png_structp png, png_infop info, const PngRows& rows, std::FILE* file) {
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_set_write_fn(png, file, WriteBytes, FlushBytes);
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(png, info, static_cast<png_uint_32>(rows.Width), static_cast<png_uint_32>(rows.Height),
                 rows.BitDepth, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (rows.XResolution > 0 && rows.YResolution > 0)
        png_set_pHYs(png, info, PerMetre(rows.XResolution), PerMetre(rows.YResolution), PNG_RESOLUTION_METER);
    if (rows.BitDepth == 1)
        png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE); // the others do not help
    png_set_compression_level(png, kCompressionLevel);
    png_write_info(png, info);
    if (rows.BitDepth == 1)
        png_set_invert_mono(png); // in a PNG a set bit is white
    for (size_t y = 0; y < rows.Height; ++y)
        png_write_row(png, rows.Bytes + y * rows.RowBytes);
    png_write_end(png, info);
    return true;
}

void WriteRows(const PngRows& rows, std::FILE* file) {
    PngError error{};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, KeepReason, IgnoreWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    const bool done = info && Encode(png, info, rows, file);
    png_destroy_write_struct(&png, &info);
    if (!done)
        throw std::runtime_error(error.Reason[0] != '\0' ? error.Reason : "not enough memory");
}

} // namespace

void WritePng(const Picture& picture, std::FILE* file) {
    WriteRows({picture.Width, picture.Height, picture.RowBytes, 1, picture.Pixels.data(), picture.XResolution,
               picture.YResolution},
              file);
}

void WritePng(const GreyPicture& picture, std::FILE* file) {
    WriteRows({picture.Width, picture.Height, picture.Width, 8, picture.Pixels.data(), 0, 0}, file);
}

} // namespace kfax
