#include "tests/load_run.h"

#include <gtest/gtest.h>

namespace {

extern "C" int KeepRows(_FILEINFOA* fileInfo, _BITMAPHANDLE* bitmap, unsigned short* rows, unsigned flags,
                        int firstLine, int rowCount, void* userData) {
    LoadRun& load = *static_cast<LoadRun*>(userData);
    EXPECT_EQ(fileInfo, load.fileInfo.get());
    EXPECT_EQ(bitmap, &load.bitmap);
    const Rows batch = RowsFromWords(rows, static_cast<size_t>(rowCount));
    load.rows.insert(load.rows.end(), batch.begin(), batch.end());
    if (EnterCall("Rows " + std::to_string(firstLine) + ' ' + std::to_string(rowCount) + ' ' +
                  std::to_string(flags)))
        return kCallbackFailed;
    return ++load.deliveries == load.stopAt ? load.stopWith : SUCCESS;
}

} // namespace

LoadRun::LoadRun(const Bytes& stream, int format, int width, int height) : file(stream), callback(KeepRows) {
    Info().Format = format;
    Info().Width = width;
    Info().Height = height;
    bitmap.BitsPerPixel = 1;
    bitmap.PaletteParam = 7;
    dispatch->Bitmap = &bitmap;
    dispatch->FileInfo = fileInfo.get();
    dispatch->RowCallback = KeepRows;
    dispatch->UserData = this;
}

int LoadRun::Run() {
    return K_LoadRawFax(dispatch.get(), file.Handle(), &Info(), fileInfo.get(), &bitmap, callback,
                        bitmap.BitsPerPixel, this);
}
