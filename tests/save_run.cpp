#include "tests/save_run.h"

#include <gtest/gtest.h>

namespace {

constexpr unsigned kParam = 77; // the start callback changes it by one
char secondUserData;

extern "C" int StartSave(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, int one, unsigned* callbackParam,
                         unsigned char** rowBuffer, int alsoOne, void* userData1, void* userData2,
                         _SAVEFILESTRUCT** saveFile) {
    SaveRun& save = *static_cast<SaveRun*>(userData1);
    ++save.starts;
    EXPECT_EQ(bitmap, &save.bitmap);
    EXPECT_EQ(one, 1);
    EXPECT_EQ(alsoOne, 1);
    EXPECT_EQ(*callbackParam, kParam);
    EXPECT_EQ(userData2, &secondUserData);
    EXPECT_EQ(!rowBuffer, save.tiled);
    ++*callbackParam;
    *saveBitmap = &save.saveBitmap;
    *saveFile = save.saveFile.get();
    if (rowBuffer)
        *rowBuffer = save.rowBuffer.data();
    return EnterCall("Start") ? kCallbackStops : save.startStatus;
}

extern "C" int GetSaveRow(_BITMAPHANDLE* bitmap, _BITMAPHANDLE* saveBitmap, unsigned char* rowBuffer,
                          unsigned row, int rowCount, unsigned callbackParam, void* userData1,
                          void* userData2, _SAVEFILESTRUCT* saveFile) {
    SaveRun& save = *static_cast<SaveRun*>(userData1);
    EXPECT_EQ(bitmap, &save.bitmap);
    EXPECT_EQ(saveBitmap, &save.saveBitmap);
    EXPECT_EQ(rowCount, 1);
    EXPECT_EQ(callbackParam, kParam + 1);
    EXPECT_EQ(userData2, &secondUserData);
    EXPECT_EQ(saveFile, save.saveFile.get());
    if (EnterCall("GetRow " + std::to_string(row)))
        return kCallbackStops;
    if (save.fetches++ == save.stopAtRow)
        return kCallbackStops;
    const size_t rows = save.picture.size();
    EXPECT_LT(row, rows);
    const Bytes& source =
        save.picture[save.bitmap.Orientation == ORIENTATION_BOTTOM_UP ? rows - 1 - row : row];
    for (size_t i = 0; i < source.size(); ++i)
        rowBuffer[i] = save.invertRows ? static_cast<uint8_t>(~source[i]) : source[i];
    // The rest of the kernel's row is anything.
    for (size_t i = source.size(); save.tiled && i < saveBitmap->BytesPerLine; ++i)
        rowBuffer[i] = 0x5A;
    return SUCCESS;
}

extern "C" int EndSave(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, unsigned* callbackParam,
                       unsigned char** rowBuffer, _SAVEFILESTRUCT** saveFile) {
    SaveRun& save = *static_cast<SaveRun::Bitmap*>(bitmap)->run; // no user data comes here
    ++save.ends;
    EXPECT_EQ(*saveBitmap, &save.saveBitmap);
    EXPECT_EQ(*callbackParam, kParam + 1);
    EXPECT_EQ(!rowBuffer, save.tiled);
    EXPECT_EQ(*saveFile, save.saveFile.get());
    if (rowBuffer) {
        EXPECT_EQ(*rowBuffer, save.rowBuffer.data());
    }
    EnterCall("End");
    return kCallbackStops; // ignored
}

} // namespace

extern "C" int TraceRow(_BITMAPHANDLE* saveBitmap, unsigned char* row, void* userData) {
    SaveRun& save = *static_cast<SaveRun*>(userData);
    EXPECT_EQ(saveBitmap, &save.saveBitmap);
    EXPECT_EQ(row, save.rowBuffer.data());
    ++save.rowCalls;
    return EnterCall("Row") ? kCallbackStops : SUCCESS;
}

SaveRun::SaveRun(const Picture& rows, unsigned width, int format)
    : picture(rows), rowBuffer((width + 7) / 8), file({}) {
    for (_BITMAPHANDLE* b : std::initializer_list<_BITMAPHANDLE*>{&bitmap, &saveBitmap}) {
        b->Width = width;
        b->Height = static_cast<int>(rows.size());
        b->BitsPerPixel = 1;
        b->BytesPerLine = (width + 31) / 32 * 4;
        b->Flags = BITMAP_ALLOCATED;
        b->Orientation = 1;
    }
    saveFile->NoInvert = 1;
    dispatch->Bitmap = &bitmap;
    dispatch->BitsPerPixel = 1;
    dispatch->Format = format;
    dispatch->CallbackParam = kParam;
    dispatch->UserData1 = this;
    dispatch->UserData2 = &secondUserData;
    dispatch->Options = options.get();
    dispatch->StartCallback = StartSave;
    dispatch->GetRowCallback = GetSaveRow;
    dispatch->EndCallback = EndSave;
}

int SaveRun::Run() {
    return K_SaveRawFax(dispatch.get(), file.Handle(), &bitmap, dispatch->BitsPerPixel,
                        static_cast<unsigned>(dispatch->Format), kParam, this, &secondUserData, &size, flags,
                        rowCallback, this);
}

int SaveRun::RunTiled(_FAXTILEINFO* tiles, unsigned char* uncompressed, unsigned gap) {
    tiled = true;
    return K_SaveTiledFax(dispatch.get(), file.Handle(), &bitmap, tiles, uncompressed, gap,
                          dispatch->BitsPerPixel, static_cast<unsigned>(dispatch->Format), kParam, this,
                          &secondUserData, &size, flags);
}
