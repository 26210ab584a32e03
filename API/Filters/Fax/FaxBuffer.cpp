// Strips in memory: a compressed block becomes packed rows, packed rows become a compressed block.
#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/decoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/line_encoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/cleanup.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/description.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/save_session.h"
#include "API/Filters/Fax/Fax.h"

namespace faxx {
namespace {

struct BufferLoad {
    unsigned char* output;
    int format;
    int width;
    int height;
    unsigned flags;
    unsigned byteLimit;
    CCITTG34 codec;
    unsigned short* runs;
    unsigned short* mirrored;
    void* redirect;
    bool redirected;
};

int DecodeBlock(BufferLoad& load, tagHANDLE* handle) {
    const int status =
        SetUpDecoder(nullptr, &load.codec, static_cast<unsigned>(load.format),
                     static_cast<unsigned>(load.width), ReversedBits(load.flags), handle, 0, load.byteLimit);
    if (status != SUCCESS)
        return status;
    LineDecoder* const decode = LineDecoderFor(static_cast<uint32_t>(load.format));
    const size_t rowBytes = (static_cast<size_t>(load.width) + 7) / 8;
    for (int done = 0; done < load.height;) {
        const unsigned got = decode(&load.codec, load.runs, static_cast<unsigned>(load.height - done));
        const unsigned short* rows = load.runs;
        if (load.flags & LOADINFO_MIRROR) {
            K_MirrorCompressedBuffer(load.runs, load.mirrored, got);
            rows = load.mirrored;
        }
        const int expanded = K_ExpandRows(rows, load.output + rowBytes * static_cast<size_t>(done),
                                          static_cast<unsigned>(load.width), got);
        if (expanded != SUCCESS)
            return expanded;
        if (got == 0)
            break;
        done += static_cast<int>(got);
    }
    return SUCCESS;
}

// A call's clean-up. What was released already is left out.
int ReleaseBlock(BufferLoad& load, Buffer<unsigned short>& runs, Buffer<unsigned short>& mirrored,
                 int result) {
    result = ReleaseLoad(runs, mirrored, &load.codec, result);
    if (std::exchange(load.redirected, false) &&
        !RunGuarded([&] { StopRedirectToBuffer(load.redirect, nullptr, nullptr); }))
        result = ERROR_EXCEPTION;
    return result;
}

} // namespace
} // namespace faxx

using namespace faxx;

int fltLoadBufferFAX(unsigned char* input, unsigned long long inputSize, unsigned char* output, int format,
                     int width, int height, unsigned long long, unsigned long long, unsigned flags) {
    if (!input || !output)
        return ERROR_NULL_PTR;
    if (width > static_cast<int>(MAX_BUFFER_WIDTH))
        return ERROR_INV_PARAMETER;
    Buffer<unsigned short> runs;
    Buffer<unsigned short> mirrored;
    if (!runs.Allocate(kRowWords))
        return ERROR_NO_MEMORY;
    if (!mirrored.Allocate(flags & LOADINFO_MIRROR ? kMirrorRowWords : kRowWords)) {
        runs.Release();
        return ERROR_NO_MEMORY;
    }
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    const int started = StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, input, inputSize);
    if (started != SUCCESS) {
        runs.Release();
        mirrored.Release();
        return started;
    }

    BufferLoad load{output,     format,    width,         height,   flags, static_cast<unsigned>(inputSize),
                    CCITTG34{}, runs.data, mirrored.data, redirect, true};
    OnUnwind release([&] { ReleaseBlock(load, runs, mirrored, ERROR_EXCEPTION); });
    int result = ERROR_EXCEPTION;
    RunGuarded([&] { result = DecodeBlock(load, handle); });
    result = ReleaseBlock(load, runs, mirrored, result);
    release.Disarm();
    return result;
}

int fltSaveBufferFAX(unsigned char* source, _BITMAPINFOHEADER* info, unsigned char* destination,
                     unsigned long long* size, unsigned long long, unsigned flags, int format,
                     unsigned long long, unsigned long long mustBeZero) {
    if (!source || !destination || !size || !info || info->BitsPerPixel != 1 || mustBeZero != 0)
        return ERROR_NULL_PTR;
    if (info->Width < 1 || info->Width > static_cast<int>(MAX_BUFFER_WIDTH))
        return ERROR_INV_PARAMETER;
    const unsigned width = static_cast<unsigned>(info->Width);
    const unsigned height =
        info->Height < 0 ? 0u - static_cast<unsigned>(info->Height) : static_cast<unsigned>(info->Height);

    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    const int started = StartRedirectToBuffer(&redirect, &handle, REDIRECT_WRITE, destination, *size);
    if (started != SUCCESS)
        return started;
    CCITTG34 codec{};
    OnUnwind abandon([&] {
        DropEncoder(&codec);
        StopRedirectToBuffer(redirect, nullptr, nullptr);
    });

    const unsigned number = static_cast<unsigned>(format);
    if (InitEncodeG34(nullptr, &codec, number, width, flags, handle) != 0) {
        QuitEncodeG34(&codec);
        abandon.Disarm();
        StopRedirectToBuffer(redirect, nullptr, nullptr);
        return ERROR_NO_MEMORY;
    }
    LineEncoder* encode = LineEncoderFor(number);
    for (unsigned row = 0; row < height; ++row, source += (width + 7) / 8) {
        encode(&codec, source);
        encode = NextLineEncoder(&codec, encode);
    }
    QuitEncodeG34(&codec);
    abandon.Disarm();
    // Overflow shows only in where the data ended up.
    unsigned char* written = nullptr;
    StopRedirectToBuffer(redirect, &written, size);
    return written == destination ? SUCCESS : ERROR_BUFFER_TOO_SMALL;
}

int fltLoadBuffer(unsigned char* input, unsigned long long inputSize, unsigned char* output, int format,
                  int width, int height, unsigned long long reserved1, unsigned long long reserved2,
                  unsigned flags) {
    return fltLoadBufferFAX(input, inputSize, output, format, width, height, reserved1, reserved2, flags);
}

int fltSaveBuffer(unsigned char* source, _BITMAPINFOHEADER* info, unsigned char* destination,
                  unsigned long long* size, unsigned long long unused1, unsigned flags, int format,
                  unsigned long long unused2, unsigned long long mustBeZero) {
    return fltSaveBufferFAX(source, info, destination, size, unused1, flags, format, unused2, mustBeZero);
}
