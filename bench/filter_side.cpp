#include "bench/filter_side.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/kernel.h"
#include "host/standin/fast/copy_row.h"

#include <stdexcept>
#include <utility>

namespace bench {
namespace {

// The kernel's part of a load: each batch goes to its place in the bitmap.
extern "C" int ExpandBatch(_FILEINFOA*, _BITMAPHANDLE*, unsigned short* rows, unsigned, int firstLine,
                           int rowCount, void* userData) {
    Page& page = *static_cast<Page*>(userData);
    return K_ExpandRows(rows, page.Row(static_cast<unsigned>(firstLine)), page.width,
                        static_cast<unsigned>(rowCount));
}

// The kernel's part of a save: rows are handed out as they lie in the bitmap.
extern "C" int StartSave(_BITMAPHANDLE* bitmap, _BITMAPHANDLE** saveBitmap, int, unsigned*,
                         unsigned char** rowBuffer, int, void* userData, void*, _SAVEFILESTRUCT** saveFile) {
    Save& save = *static_cast<Save*>(userData);
    *saveBitmap = bitmap;
    *rowBuffer = static_cast<unsigned char*>(
        K_LocalAlloc(save.page.RowBytes() + standin::kRowSlack, 1, __LINE__, "row buffer"));
    if (!*rowBuffer)
        return ERROR_NO_MEMORY;
    *saveFile = &save.saveFile;
    return SUCCESS;
}

extern "C" int GetRow(_BITMAPHANDLE*, _BITMAPHANDLE*, unsigned char* rowBuffer, unsigned row, int, unsigned,
                      void* userData, void*, _SAVEFILESTRUCT*) {
    Save& save = *static_cast<Save*>(userData);
    standin::CopyRow(rowBuffer, save.page.Row(row), save.page.RowBytes());
    return SUCCESS;
}

extern "C" int EndSave(_BITMAPHANDLE*, _BITMAPHANDLE**, unsigned*, unsigned char** rowBuffer,
                       _SAVEFILESTRUCT**) {
    K_LocalFree(*rowBuffer, __LINE__, "row buffer");
    return SUCCESS;
}

} // namespace

void LoadWithFilter(const std::vector<uint8_t>& strip, int format, Page& page) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    if (K_StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, const_cast<uint8_t*>(strip.data()),
                                strip.size()) != SUCCESS)
        throw std::runtime_error("no memory redirection");
    _LOADDISPATCH dispatch{};
    _LOADINFO info{};
    info.Format = format;
    info.Width = static_cast<int>(page.width);
    info.Height = static_cast<int>(page.height);
    info.Flags = LOADINFO_ORIENTATION_1;
    const int status = K_LoadRawFax(&dispatch, handle, &info, nullptr, nullptr, ExpandBatch, 1, &page);
    K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    if (status != SUCCESS || dispatch.Status != 0)
        throw std::runtime_error("the load failed");
}

Save::Save(Page source, int formatNumber) : page(std::move(source)), format(formatNumber) {
    bitmap.Width = page.width;
    bitmap.Height = static_cast<int>(page.height);
    bitmap.BytesPerLine = page.RowBytes();
    bitmap.YResolution = 204;
    saveFile.NoInvert = 1;
    stream.resize(page.rows.size() * 4);
    page.rows.resize(page.rows.size() + standin::kRowSlack);
}

void SaveWithFilter(Save& save) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    if (K_StartRedirectToBuffer(&redirect, &handle, REDIRECT_WRITE, save.stream.data(), save.stream.size()) !=
        SUCCESS)
        throw std::runtime_error("no memory redirection");
    _SAVEDISPATCH dispatch{};
    dispatch.Bitmap = &save.bitmap;
    dispatch.StartCallback = StartSave;
    dispatch.GetRowCallback = GetRow;
    dispatch.EndCallback = EndSave;
    const int status = K_SaveRawFax(&dispatch, handle, &save.bitmap, 1, static_cast<unsigned>(save.format), 0,
                                    &save, nullptr, &save.streamSize, FAX_BYTE_TRAILER, nullptr, nullptr);
    K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    if (status != SUCCESS)
        throw std::runtime_error("the save failed");
}

} // namespace bench
