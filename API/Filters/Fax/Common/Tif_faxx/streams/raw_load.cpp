// Loads a stream from an open handle through the kernel's row callback, or describes what is there.
#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/decoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/cleanup.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/description.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/stream_search.h"

#include <algorithm>

namespace faxx {

int OrientationFromFlags(uint32_t flags) {
    // The first bit that is set wins.
    static constexpr struct {
        uint32_t bit;
        int orientation;
    } kOrientations[] = {
        {LOADINFO_ORIENTATION_1, 1}, {LOADINFO_ORIENTATION_6, 6}, {LOADINFO_ORIENTATION_3, 3},
        {LOADINFO_ORIENTATION_8, 8}, {LOADINFO_ORIENTATION_5, 5}, {LOADINFO_ORIENTATION_2, 2},
        {LOADINFO_ORIENTATION_7, 7},
    };
    for (const auto& entry : kOrientations)
        if (flags & entry.bit)
            return entry.orientation;
    return ORIENTATION_BOTTOM_UP;
}

namespace {

// The arguments and working buffers of one call.
struct RawLoad {
    _LOADDISPATCH* dispatch;
    tagHANDLE* handle;
    _LOADINFO* loadInfo;
    _FILEINFOA* fileInfo;
    _BITMAPHANDLE* bitmap;
    RowCallbackFn* rowCallback;
    void* userData;
    bool batches;
    bool mirror;
    CCITTG34 codec;
    unsigned short* runs;
    unsigned short* mirrored;
};

// Out of line, so that its loop has the registers to itself: two-dimensional G3 goes round for every other
// line.
[[gnu::noinline]] int LoadRows(RawLoad& load) {
    _LOADINFO* info = load.loadInfo;
    if (!load.rowCallback)
        return ERROR_NO_CALLBACK;
    K_RedirectedSeek(load.handle, info->Offset, 0);
    const int status = SetUpDecoder(load.dispatch, &load.codec, static_cast<unsigned>(info->Format),
                                    static_cast<unsigned>(info->Width), ReversedBits(info->Flags),
                                    load.handle, load.batches, 0);
    if (status != SUCCESS)
        return status;
    LineDecoder* const decode = LineDecoderFor(static_cast<uint32_t>(info->Format));
    const int batch = static_cast<int>(load.batches ? kBatchLines : kAllLines);

    unsigned flags = ROWS_ALWAYS | ROWS_FIRST_BATCH;
    // The callback may change the height while the load runs.
    for (int done = 0; done < info->Height;) {
        const int wanted = std::min(info->Height - done, batch);
        const int got = static_cast<int>(decode(&load.codec, load.runs, static_cast<unsigned>(wanted)));
        unsigned short* rows = load.runs;
        if (load.mirror) {
            K_MirrorCompressedBuffer(load.runs, load.mirrored, static_cast<unsigned>(got));
            rows = load.mirrored;
        }
        if (got == 0 || done + got == info->Height)
            flags |= ROWS_LAST_BATCH;
        const int result =
            load.rowCallback(load.fileInfo, load.bitmap, rows, flags, done, got, load.userData);
        flags = ROWS_ALWAYS;
        if (result != SUCCESS)
            return result;
        if (got == 0) {
            load.dispatch->Status = ERROR_FAX_DATA_CORRUPT;
            return SUCCESS;
        }
        done += got;
    }
    return SUCCESS;
}

int Describe(RawLoad& load) {
    TrialHistory history(load.mirrored); // describing mirrors nothing
    return FindStream(&load.codec, load.handle, load.loadInfo, load.runs, history);
}

// The bitmap takes over what the description says of the picture. ERROR_NULL_PTR for a bitmap that is not
// black and white.
int PrepareBitmap(_LOADDISPATCH* dispatch, _LOADINFO* loadInfo, _BITMAPHANDLE* bitmap, int bitsPerPixel) {
    if (bitsPerPixel != 1)
        return ERROR_NULL_PTR;
    ApplyDescription(loadInfo, bitmap);
    SetBitmapPalette(dispatch, loadInfo, bitmap);
    return SUCCESS;
}

} // namespace

void ApplyDescription(const _LOADINFO* loadInfo, _BITMAPHANDLE* bitmap) {
    if (loadInfo->XResolution != 0 && loadInfo->YResolution != 0) {
        bitmap->XResolution = loadInfo->XResolution;
        bitmap->YResolution = loadInfo->YResolution;
    }
    bitmap->Orientation = OrientationFromFlags(loadInfo->Flags);
}

} // namespace faxx

int SetBitmapPalette(_LOADDISPATCH*, _LOADINFO* loadInfo, _BITMAPHANDLE* bitmap) {
    static constexpr _PALETTEENTRY kWhite{255, 255, 255, 0};
    static constexpr _PALETTEENTRY kBlack{0, 0, 0, 0};
    const bool inverted = loadInfo->Flags & LOADINFO_INVERTED;
    const _PALETTEENTRY entries[2] = {inverted ? kBlack : kWhite, inverted ? kWhite : kBlack};
    return K_SetBitmapNewPalette(bitmap, entries, bitmap->PaletteParam, inverted ? 0 : -1);
}

int K_LoadRawFax(_LOADDISPATCH* dispatch, tagHANDLE* handle, _LOADINFO* loadInfo, _FILEINFOA* fileInfo,
                 _BITMAPHANDLE* bitmap, RowCallbackFn* rowCallback, int bitsPerPixel, void* userData) {
    using namespace faxx;
    if (!loadInfo)
        return ERROR_NULL_PTR;
    const bool batches = dispatch && dispatch->Flags & LOADDISPATCH_BATCHES;
    if (loadInfo->Width > static_cast<int>(MAX_IMAGE_WIDTH))
        return ERROR_INV_PARAMETER;
    if (dispatch && bitmap) {
        const int status = PrepareBitmap(dispatch, loadInfo, bitmap, bitsPerPixel);
        if (status != SUCCESS)
            return status;
    }

    const bool mirror = dispatch && loadInfo->Flags & LOADINFO_MIRROR;
    Buffer<unsigned short> runs;
    Buffer<unsigned short> mirrored;
    if (!runs.Allocate(kRawRowWords))
        return ERROR_NO_MEMORY;
    if (!mirrored.Allocate(mirror ? kMirrorRowWords : kRowWords)) {
        runs.Release();
        return ERROR_NO_MEMORY;
    }

    RawLoad load{dispatch, handle,  loadInfo, fileInfo,   bitmap,    rowCallback,
                 userData, batches, mirror,   CCITTG34{}, runs.data, mirrored.data};
    OnUnwind release([&] { ReleaseLoad(runs, mirrored, &load.codec, ERROR_EXCEPTION); });
    int result = ERROR_EXCEPTION;
    RunGuarded([&] { result = dispatch ? LoadRows(load) : Describe(load); });
    result = ReleaseLoad(runs, mirrored, &load.codec, result);
    release.Disarm();
    return result;
}
