// Saves a bitmap as one stream: rows from the kernel's callbacks, one at a time, through the line encoder.
#include "API/Filters/Fax/Common/Tif_faxx/encode/line_encoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/streams/save_session.h"

namespace faxx {
namespace {

struct RawSave {
    SaveSession& session;
    CCITTG34& codec;
    unsigned format;
    SaveRowCallbackFn* rowCallback;
    void* userData;
    // Taken before the first row: callbacks may change the bitmaps.
    size_t rowBytes;
    int height;
    bool bottomUp;
};

// The status of a save whose WriteStatus is not 0.
int WriteFailure(const CCITTG34& codec) {
    return codec.WriteStatus == WRITE_STATUS_SHORT ? K_OsGetLastError(ERROR_FILE_WRITE)
                                                   : static_cast<int>(FAILURE);
}

bool Inverts(const SaveSession& session) {
    if (session.saveFile->NoInvert)
        return false;
    const _SAVEOPTIONS* options = session.dispatch->Options;
    return !options || (options->OutputBits & SaveOptionNoInvert) == 0;
}

int SaveRow(RawSave& save, LineEncoder* encode, unsigned row) {
    const SaveSession& session = save.session;
    int status = session.dispatch->GetRowCallback(session.bitmap, session.saveBitmap, session.rowBuffer, row,
                                                  1, session.callbackParam, session.userData1,
                                                  session.userData2, session.saveFile);
    if (status != SUCCESS)
        return status;
    if (Inverts(session))
        InvertBits(session.rowBuffer, save.rowBytes);
    if (save.rowCallback) {
        status = save.rowCallback(session.saveBitmap, session.rowBuffer, save.userData);
        if (status != SUCCESS)
            return status;
    }
    encode(&save.codec, session.rowBuffer);
    return save.codec.WriteStatus == 0 ? SUCCESS : WriteFailure(save.codec);
}

int SaveRows(RawSave& save) {
    LineEncoder* encode = LineEncoderFor(save.format);
    for (int i = 0; i < save.height; ++i) {
        const int row = save.bottomUp ? save.height - 1 - i : i;
        const int status = SaveRow(save, encode, static_cast<unsigned>(row));
        if (status != SUCCESS)
            return status;
        encode = NextLineEncoder(&save.codec, encode);
    }
    return SUCCESS;
}

} // namespace
} // namespace faxx

int K_SaveRawFax(_SAVEDISPATCH* dispatch, tagHANDLE* handle, _BITMAPHANDLE* bitmap, int bitsPerPixel,
                 unsigned format, unsigned callbackParam, void* userData1, void* userData2,
                 unsigned* fileSize, unsigned flags, SaveRowCallbackFn* rowCallback, void* userData) {
    using namespace faxx;
    if (!dispatch || !bitmap || bitsPerPixel != 1 || bitmap->Width > MAX_IMAGE_WIDTH)
        return ERROR_NULL_PTR;

    SaveSession session{dispatch, bitmap, callbackParam, userData1, userData2, true};
    CCITTG34 codec{};
    OnUnwind endSession([&] { session.End(); });
    OnUnwind dropEncoder([&] { DropEncoder(&codec); });
    const auto finish = [&](int status) {
        dropEncoder.Disarm();
        endSession.Disarm();
        session.End();
        return status;
    };

    int status = session.Start();
    if (status <= 0)
        return finish(status);
    const unsigned width = session.saveBitmap->Width;
    if (InitEncodeG34(dispatch, &codec, format, width, flags, handle) != 0) {
        QuitEncodeG34(&codec);
        return finish(ERROR_NO_MEMORY);
    }

    RawSave save{session,        codec,
                 format,         rowCallback,
                 userData,       (size_t{width} + 7) / 8,
                 bitmap->Height, bitmap->Orientation == ORIENTATION_BOTTOM_UP};
    const bool access = K_IntAccessBitmap(bitmap, 0) == SUCCESS;
    OnUnwind releaseBitmap([&] {
        if (access)
            K_IntReleaseBitmap(bitmap, 1, ERROR_EXCEPTION);
    });
    status = SaveRows(save);
    releaseBitmap.Disarm();
    if (access)
        status = K_IntReleaseBitmap(bitmap, 1, status);
    QuitEncodeG34(&codec);
    if (codec.WriteStatus != 0)
        status = WriteFailure(codec);
    if (fileSize)
        *fileSize = codec.TotalBytes;
    return finish(status);
}
