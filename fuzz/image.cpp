// A whole file: described by the filter or by the caller, then loaded.
#include "fuzz/harness.h"

#include <algorithm>

namespace {

enum : uint8_t { DESCRIBE = 1, BATCHES = 2, STOP = 4 };

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const Stream stream = TakeStream(input);
    const NamedFile file(input.Rest());
    const standin::Description description = (stream.Choice & DESCRIBE) != 0
                                                 ? standin::Describe(TheFilter(), file.Name())
                                                 : standin::DescribeStream(LoadInfoOf(stream));
    if (description.Status != SUCCESS) {
        Require(description.Status == FAILURE || description.Status == ERROR_FILE_READ, "a described status");
        return;
    }
    const _FILEINFOA& info = description.FileInfo.Declared;
    standin::LoadOptions options;
    options.Batches = (stream.Choice & BATCHES) != 0;
    options.DiscardRows =
        uint64_t{info.Width} * static_cast<uint32_t>(std::max(info.Height, 0)) > kMostPixels;
    if ((stream.Choice & STOP) != 0)
        options.Progress = [](int done, int) { return done < 150; };
    const standin::LoadResult loaded = standin::Load(TheFilter(), file.Name(), description, options);
    switch (loaded.Status) {
    case SUCCESS:
        Require(loaded.Rows <= std::max(info.Height, 0), "no more rows than lines");
        break;
    case standin::kStatusStopped:
        Require((stream.Choice & STOP) != 0, "only stopped loads stop");
        break;
    case ERROR_INV_PARAMETER:
        Require(info.Width > 249999, "only too wide pictures are refused");
        break;
    case ERROR_FILE_READ:
        Require(info.Format == 121, "only a header is missed");
        break;
    default:
        Require(false, "a load's status");
    }
}
