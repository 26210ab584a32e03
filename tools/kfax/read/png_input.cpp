// Reading PNG: libpng turns every kind of PNG into 8-bit grey on white, and the grey into pixels.
//
// libpng reports an error by a longjmp: the functions that may be left by one own nothing, what they
// fill belongs to their caller.
#include "tools/kfax/read/picture_input.h"

#include <cmath>
#include <csetjmp>
#include <cstring>
#include <png.h>
#include <stdexcept>
#include <vector>

namespace kfax {

namespace {

struct PngInput {
    char Reason[200] = {};
    png_structp Png = nullptr;
    png_infop Info = nullptr;
    PngInput() = default;
    PngInput(const PngInput&) = delete;
    PngInput& operator=(const PngInput&) = delete;
    ~PngInput() { png_destroy_read_struct(&Png, &Info, nullptr); }
};

extern "C" void KeepInputError(png_structp png, png_const_charp reason) {
    auto* const input = static_cast<PngInput*>(png_get_error_ptr(png));
    std::strncpy(input->Reason, reason, sizeof input->Reason - 1);
    png_longjmp(png, 1);
}

extern "C" void IgnoreInputWarning(png_structp /*png*/, png_const_charp /*reason*/) {}

bool ReadHeader(PngInput& input, std::FILE* file) {
    png_struct* const png = input.Png;
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_init_io(png, file);
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_read_info(png, input.Info);
    png_set_expand(png);
    png_set_scale_16(png);
    if ((png_get_color_type(png, input.Info) & PNG_COLOR_MASK_COLOR) != 0)
        png_set_rgb_to_gray_fixed(png, PNG_ERROR_ACTION_NONE, PNG_RGB_TO_GRAY_DEFAULT,
                                  PNG_RGB_TO_GRAY_DEFAULT);
    png_color_16 white{};
    white.red = white.green = white.blue = white.gray = 255;
    png_set_background(png, &white, PNG_BACKGROUND_GAMMA_SCREEN, 0, 1.0);
    return true;
}

// rows holds one row where passes is 1, and all of them otherwise.
bool ReadRows(PngInput& input, unsigned char* rows, size_t rowBytes, size_t count) {
    if (setjmp(png_jmpbuf(input.Png)) != 0)
        return false;
    for (size_t y = 0; y < count; ++y)
        png_read_row(input.Png, rows + y * rowBytes, nullptr);
    return true;
}

bool StartRows(PngInput& input, int& passes, size_t& rowBytes) {
    if (setjmp(png_jmpbuf(input.Png)) != 0)
        return false;
    passes = png_set_interlace_handling(input.Png);
    png_read_update_info(input.Png, input.Info);
    rowBytes = png_get_rowbytes(input.Png, input.Info);
    return true;
}

void PackRow(const unsigned char* grey, size_t width, std::optional<int> threshold, unsigned char* row) {
    for (size_t x = 0; x < width; ++x) {
        if (!threshold && grey[x] != 0 && grey[x] != 255)
            throw std::runtime_error("the picture is not black and white (--threshold N makes it so)");
        if (grey[x] >= threshold.value_or(128))
            row[x / 8] |= static_cast<unsigned char>(0x80 >> (x % 8));
    }
}

int PerInch(png_uint_32 perMetre) {
    return static_cast<int>(std::lround(perMetre * 0.0254));
}

void Check(bool done, const PngInput& input) {
    if (!done)
        throw std::runtime_error(std::string("damaged PNG: ") + input.Reason + "; make it again");
}

} // namespace

standin::BitmapPtr ReadPng(std::FILE* file, std::optional<int> threshold, MemoryShare& memory) {
    PngInput input;
    input.Png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &input, KeepInputError, IgnoreInputWarning);
    input.Info = input.Png ? png_create_info_struct(input.Png) : nullptr;
    if (!input.Info)
        throw std::bad_alloc();
    Check(ReadHeader(input, file), input);
    const size_t width = png_get_image_width(input.Png, input.Info);
    const size_t height = png_get_image_height(input.Png, input.Info);
    standin::BitmapPtr bitmap = MakeReservedBitmap(width, height, memory);
    png_uint_32 across = 0;
    png_uint_32 down = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    if (png_get_pHYs(input.Png, input.Info, &across, &down, &unit) != 0 && unit == PNG_RESOLUTION_METER) {
        bitmap->XResolution = PerInch(across);
        bitmap->YResolution = PerInch(down);
    }

    int passes = 1;
    size_t rowBytes = 0;
    Check(StartRows(input, passes, rowBytes), input);
    if (passes == 1) {
        std::vector<unsigned char> row(rowBytes);
        for (size_t y = 0; y < height; ++y) {
            Check(ReadRows(input, row.data(), rowBytes, 1), input);
            PackRow(row.data(), width, threshold, standin::BitmapRow(*bitmap, y));
        }
        return bitmap;
    }
    MemoryShare whole; // an interlaced picture comes in as a byte a pixel
    whole.Add(uint64_t{rowBytes} * height);
    std::vector<unsigned char> rows(rowBytes * height);
    for (; passes > 0; --passes)
        Check(ReadRows(input, rows.data(), rowBytes, height), input);
    for (size_t y = 0; y < height; ++y)
        PackRow(rows.data() + y * rowBytes, width, threshold, standin::BitmapRow(*bitmap, y));
    return bitmap;
}

} // namespace kfax
