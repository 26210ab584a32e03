// Describing and loading a file: fltInfo and fltLoad with the kernel's dispatch records, and the row
// callback that builds the bitmap.
#include "host/kernel.h"
#include "host/standin/row_target.h"
#include "host/standin/rows.h"
#include "host/standin/standin.h"

#include <algorithm>
#include <utility>

namespace standin {

extern "C" int ReceiveRows(_FILEINFOA* /*fileInfo*/, _BITMAPHANDLE* /*bitmap*/, unsigned short* rows,
                           unsigned /*flags*/, int firstLine, int rowCount, void* userData) {
    auto& target = *static_cast<RowTarget*>(userData);
    if (target.Bitmap && rows) {
        const unsigned short* row = rows;
        const int end = std::min(firstLine + rowCount, target.Bitmap->Height);
        for (int line = firstLine; line < end; ++line)
            row = ExpandRow(row, BitmapRow(*target.Bitmap, static_cast<size_t>(line)), target.Bitmap->Width);
    }
    target.Rows = std::max(target.Rows, firstLine + rowCount);
    if (*target.Progress && !(*target.Progress)(target.RowsBefore + target.Rows, target.Total))
        return kStatusStopped;
    return SUCCESS;
}

Description Describe(const Filter& filter, const std::string& fileName) {
    Description description;
    Padded<_LOADDISPATCH> load;
    load.Declared.FileName = fileName.c_str();
    load.Declared.FileInfo = &description.FileInfo.Declared;
    load.Declared.LoadInfoValid = 1;
    load.Declared.LoadInfo.Width = -1; // stays so when the filter finds no stream
    Padded<_INFODISPATCH> info;
    info.Declared.FileName = fileName.c_str();
    info.Declared.FileInfo = &description.FileInfo.Declared;
    info.Declared.LoadDispatch = &load.Declared;
    description.Status = filter.Info(&info.Declared);
    description.LoadInfo = load.Declared.LoadInfo;
    return description;
}

namespace {

// As the filter itself takes the flags (host/records.h).
int OrientationOf(uint32_t flags) {
    static constexpr std::pair<uint32_t, int> kOrientations[] = {
        {LOADINFO_ORIENTATION_1, 1}, {LOADINFO_ORIENTATION_6, 6}, {LOADINFO_ORIENTATION_3, 3},
        {LOADINFO_ORIENTATION_8, 8}, {LOADINFO_ORIENTATION_5, 5}, {LOADINFO_ORIENTATION_2, 2},
        {LOADINFO_ORIENTATION_7, 7},
    };
    for (const auto& [flag, orientation] : kOrientations)
        if ((flags & flag) != 0)
            return orientation;
    return ORIENTATION_BOTTOM_UP;
}

} // namespace

Description DescribeStream(const _LOADINFO& stream) {
    Description description;
    description.Status = SUCCESS;
    description.LoadInfo = stream;
    _FILEINFOA& info = description.FileInfo.Declared;
    info.Format = stream.Format;
    info.Width = static_cast<uint32_t>(stream.Width);
    info.Height = stream.Height;
    info.BitsPerPixel = 1;
    info.ImageSize = (uint64_t{info.Width} + 7) / 8 * static_cast<uint32_t>(std::max(stream.Height, 0));
    info.Orientation = OrientationOf(stream.Flags);
    info.XResolution = stream.XResolution;
    info.YResolution = stream.YResolution;
    info.Flags = FILEINFO_DESCRIBED;
    return description;
}

LoadResult Load(const Filter& filter, const std::string& fileName, const Description& description,
                const LoadOptions& options) {
    LoadResult result;
    if (description.Status != SUCCESS) {
        result.Status = description.Status;
        return result;
    }
    Padded<_FILEINFOA> fileInfo = description.FileInfo;
    const int height = std::max(fileInfo.Declared.Height, 0);
    const auto make = options.DiscardRows ? MakeBitmapWithoutRows : MakeBitmap;
    BitmapPtr bitmap = make(fileInfo.Declared.Width, height);
    if (!bitmap) {
        result.Status = ERROR_NO_MEMORY;
        return result;
    }
    RowTarget target{options.DiscardRows ? nullptr : bitmap.get(), &options.Progress, height, 0};

    Padded<_LOADDISPATCH> load;
    load.Declared.FileName = fileName.c_str();
    load.Declared.Bitmap = bitmap.get();
    load.Declared.Flags = options.Batches ? LOADDISPATCH_BATCHES : 0;
    load.Declared.RowCallback = ReceiveRows;
    load.Declared.UserData = &target;
    load.Declared.FileInfo = &fileInfo.Declared;
    load.Declared.LoadInfoValid = 1;
    load.Declared.LoadInfo = description.LoadInfo;
    load.Declared.LoadInfo.Flags |= options.AddedFlags;
    result.Status = filter.Load(&load.Declared);
    result.DataStatus = load.Declared.Status;
    result.Rows = target.Rows;
    result.LoadInfo = load.Declared.LoadInfo;
    result.Bitmap = std::move(bitmap);
    return result;
}

} // namespace standin
