// Saving a bitmap: a save dispatch, and the callbacks through which the filter fetches the rows.
//
// The saver wants rows in which a set bit is black. A bitmap with the inverted palette has them the other
// way round and asks, by a NoInvert of 0, for the saver's inversion; a converted copy has the normal
// palette and needs none.
#include "host/kernel.h"
#include "host/standin/fast/copy_row.h"
#include "host/standin/standin.h"

#include <cstring>

namespace standin {

int SaveRefusal(const _BITMAPHANDLE& bitmap) {
    if (bitmap.BitsPerPixel != 1)
        return ERROR_BITS_PER_PIXEL;
    if (bitmap.Height < 0)
        return ERROR_INV_PARAMETER;
    if (!BitmapRow(bitmap, 0))
        return ERROR_NULL_PTR;
    const bool kept = bitmap.Orientation == 1 || bitmap.Orientation == ORIENTATION_BOTTOM_UP;
    return kept ? SUCCESS : ERROR_INV_PARAMETER;
}

namespace {

BitmapPtr ConvertedCopy(const _BITMAPHANDLE& bitmap) {
    BitmapPtr copy = MakeBitmap(bitmap.Width, bitmap.Height);
    if (!copy)
        return nullptr;
    copy->Orientation = bitmap.Orientation;
    copy->XResolution = bitmap.XResolution;
    copy->YResolution = bitmap.YResolution;
    const auto flip = static_cast<unsigned char>(IsInverted(bitmap) ? 0xFF : 0);
    for (size_t y = 0; y < static_cast<size_t>(bitmap.Height); ++y) {
        const unsigned char* const source = BitmapRow(bitmap, y);
        unsigned char* const target = BitmapRow(*copy, y);
        for (size_t i = 0; i < bitmap.BytesPerLine; ++i)
            target[i] = source[i] ^ flip;
    }
    return copy;
}

extern "C" int StartSave(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, int /*one*/,
                         unsigned* /*callbackParam*/, unsigned char** rowBuffer, int /*alsoOne*/,
                         void* userData1, void* /*userData2*/, _SAVEFILESTRUCT** saveFile) {
    auto& call = *static_cast<SaveCall*>(userData1);
    *saveBitmap = bitmap;
    *saveFile = &call.SaveFile.Declared;
    if (rowBuffer)
        *rowBuffer = nullptr;
    if (const int refusal = SaveRefusal(*bitmap); refusal != SUCCESS)
        return refusal;
    if (call.How.ConvertedCopy) {
        BitmapPtr copy = ConvertedCopy(*bitmap);
        if (!copy)
            return ERROR_NO_MEMORY;
        *saveBitmap = copy.release();
    }
    if (rowBuffer) {
        *rowBuffer = static_cast<unsigned char*>(
            K_LocalAlloc((*saveBitmap)->BytesPerLine + kRowSlack, 1, __LINE__, "save row buffer"));
        if (!*rowBuffer)
            return ERROR_NO_MEMORY;
        call.RowBuffer = *rowBuffer;
    }
    const bool asItLies = call.Tiled && call.How.NoInvert;
    call.SaveFile.Declared.NoInvert = IsInverted(**saveBitmap) && !asItLies ? 0 : 1;
    return SUCCESS;
}

extern "C" int GetSaveRow(_BITMAPHANDLE* /*bitmap*/, _BITMAPHANDLE* saveBitmap, unsigned char* rowBuffer,
                          unsigned row, int /*rowCount*/, unsigned /*callbackParam*/, void* userData1,
                          void* /*userData2*/, _SAVEFILESTRUCT* /*saveFile*/) {
    auto& call = *static_cast<SaveCall*>(userData1);
    if (saveBitmap->Height < 0 || row >= static_cast<unsigned>(saveBitmap->Height))
        return ERROR_INV_PARAMETER;
    // The tiled saver fetches a row once for every tile in it.
    const int done = call.Tiled ? static_cast<int>(row) : call.RowsFetched;
    if (call.How.Progress && !call.How.Progress(done, saveBitmap->Height))
        return kStatusStopped;
    ++call.RowsFetched;
    const unsigned char* const source = BitmapRow(*saveBitmap, row);
    if (rowBuffer == call.RowBuffer)
        CopyRow(rowBuffer, source, saveBitmap->BytesPerLine);
    else
        std::memcpy(rowBuffer, source, saveBitmap->BytesPerLine);
    return SUCCESS;
}

extern "C" int EndSave(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, unsigned* /*callbackParam*/,
                       unsigned char** rowBuffer, _SAVEFILESTRUCT** saveFile) {
    if (*saveBitmap != bitmap)
        FreeBitmap{}(*saveBitmap);
    *saveBitmap = nullptr;
    if (rowBuffer) {
        K_LocalFree(*rowBuffer, __LINE__, "save row buffer");
        *rowBuffer = nullptr;
    }
    *saveFile = nullptr;
    return SUCCESS;
}

} // namespace

void PrepareSave(SaveCall& call, const char* fileName, _BITMAPHANDLE& bitmap, const SaveOptions& options) {
    call.How = options;
    call.RowsFetched = 0;
    call.RowBuffer = nullptr;
    _SAVEOPTIONS& bits = call.Options.Declared;
    bits.OutputBits =
        (options.ReverseBits ? SAVEOPTION_REVERSE_BITS : 0) | (options.NoInvert ? SaveOptionNoInvert : 0);
    bits.FaxBits = options.AlignEol ? SAVEOPTION_FAX_ALIGN_EOL : 0;
    _SAVEDISPATCH& dispatch = call.Dispatch.Declared;
    dispatch.FileName = fileName;
    dispatch.Bitmap = &bitmap;
    dispatch.BitsPerPixel = bitmap.BitsPerPixel;
    dispatch.Format = options.Format;
    dispatch.UserData1 = &call;
    dispatch.Options = &bits;
    dispatch.StartCallback = StartSave;
    dispatch.GetRowCallback = GetSaveRow;
    dispatch.EndCallback = EndSave;
}

int SaveFile(const Filter& filter, const std::string& fileName, _BITMAPHANDLE& bitmap,
             const SaveOptions& options) {
    if (!filter.Save)
        return ERROR_FORMAT_NOT_WRITABLE;
    if (const int refusal = SaveRefusal(bitmap); refusal != SUCCESS)
        return refusal; // before the filter creates the file
    SaveCall call;
    PrepareSave(call, fileName.c_str(), bitmap, options);
    return filter.Save(&call.Dispatch.Declared);
}

} // namespace standin
