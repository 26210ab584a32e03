#include "fuzz/harness.h"

#include "API/Filters/Fax/Fax.h"
#include "host/kernel.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

namespace {

constexpr int kFormats[] = {66, 67, 68, 117, 162, 121, 0, 1};
// Where run pieces, the buffer entries, the loaders and the decoder set-up draw their lines.
constexpr unsigned kEdgeWidths[] = {65533, 65534, 65535, 65536, 131068, 249998, 249999, 250000, 250001};

} // namespace

void Require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "failed: %s\n", what);
    std::abort();
}

unsigned TakeWidth(Input& input) {
    const unsigned word = input.Word();
    return word <= kMostSimpleWidth ? word : kEdgeWidths[word % std::size(kEdgeWidths)];
}

Stream TakeStream(Input& input) {
    Stream stream;
    stream.Format = kFormats[input.Byte() % std::size(kFormats)];
    stream.Width = TakeWidth(input);
    const unsigned most = std::min(kMostPixels / std::max(stream.Width, 1u), 4096u);
    stream.Height = input.Word() % (most + 1);
    stream.Flags = input.Word();
    stream.Offset = input.Byte();
    stream.Choice = input.Byte();
    return stream;
}

void PutWord(Bytes& input, unsigned value) {
    input.push_back(static_cast<uint8_t>(value));
    input.push_back(static_cast<uint8_t>(value >> 8));
}

void PutWidth(Bytes& input, unsigned width) {
    const auto* const edge = std::find(std::begin(kEdgeWidths), std::end(kEdgeWidths), width);
    const auto index = static_cast<unsigned>(edge - kEdgeWidths);
    constexpr unsigned kFirst = (kMostSimpleWidth / std::size(kEdgeWidths) + 1) * std::size(kEdgeWidths);
    PutWord(input, width <= kMostSimpleWidth ? width : kFirst + index);
}

void PutStream(Bytes& input, const Stream& stream) {
    const auto* const format = std::find(std::begin(kFormats), std::end(kFormats), stream.Format);
    input.push_back(static_cast<uint8_t>(format - kFormats));
    PutWidth(input, stream.Width);
    PutWord(input, stream.Height);
    PutWord(input, stream.Flags);
    input.push_back(stream.Offset);
    input.push_back(stream.Choice);
}

_LOADINFO LoadInfoOf(const Stream& stream) {
    _LOADINFO info{};
    info.Format = stream.Format;
    info.Width = static_cast<int32_t>(stream.Width);
    info.Height = static_cast<int32_t>(stream.Height);
    info.BitsPerPixel = 1;
    info.Offset = stream.Offset;
    info.Flags = stream.Flags;
    return info;
}

bool EndsAtRefill(size_t bytes, bool smallBuffer) {
    const size_t refill = smallBuffer ? 1536 : 150000; // at the first pair behind so many bytes
    const size_t rest = bytes % (refill + 2);
    return bytes >= refill && (rest == 0 || rest >= refill);
}

const standin::Filter& TheFilter() {
    static constexpr standin::Filter kFilter{fltInfo, fltLoad, fltSave, K_LoadTiledFax, K_SaveTiledFax};
    return kFilter;
}

NamedFile::NamedFile(const Bytes& contents)
    : descriptor_(memfd_create("input", MFD_CLOEXEC)), name_("/proc/self/fd/" + std::to_string(descriptor_)) {
    const auto size = static_cast<ssize_t>(contents.size());
    Require(write(descriptor_, contents.data(), contents.size()) == size, "a file in memory");
}

NamedFile::~NamedFile() {
    close(descriptor_);
}

MemoryHandle::MemoryHandle(unsigned mode, Bytes& bytes) {
    const int status = K_StartRedirectToBuffer(&redirect_, &handle_, mode, bytes.data(), bytes.size());
    Require(status == SUCCESS, "a handle to memory");
}

MemoryHandle::~MemoryHandle() {
    K_StopRedirectToBuffer(redirect_, nullptr, nullptr);
}

void KeepRows(RowSink& sink, unsigned width, unsigned height) {
    sink.Width = width;
    sink.Height = height;
    sink.Pixels.assign(size_t{height} * ((width + 7) / 8), 0);
}

extern "C" int CheckRows(_FILEINFOA* /*fileInfo*/, _BITMAPHANDLE* /*bitmap*/, unsigned short* rows,
                         unsigned flags, int firstLine, int rowCount, void* userData) {
    RowSink& sink = *static_cast<RowSink*>(userData);
    Require(firstLine == sink.Delivered && rowCount >= 0, "batches follow one another");
    Require(!sink.Ended, "nothing follows the last batch");
    Require(((flags & ROWS_FIRST_BATCH) != 0) == (firstLine == 0), "the first batch is marked");
    sink.Ended = (flags & ROWS_LAST_BATCH) != 0;
    for (int i = 0; i < rowCount; ++i) {
        uint32_t runCount = 0;
        std::memcpy(&runCount, rows, sizeof runCount);
        unsigned short* const next = rows + 2 + runCount;
        uint64_t pixels = 0;
        for (const unsigned short* run = rows + 2; run != next; ++run)
            pixels += *run;
        Require(pixels >= sink.LeastWidth && pixels <= sink.MostWidth, "the runs of a row add up");
        const auto line = static_cast<size_t>(firstLine) + static_cast<size_t>(i);
        if (line < sink.Height)
            K_ExpandRows(rows, sink.Pixels.data() + line * ((sink.Width + 7) / 8), sink.Width, 1);
        rows = next;
    }
    sink.Delivered += rowCount;
    if (++sink.Calls != sink.UpsetAt)
        return SUCCESS;
    switch (sink.What) {
    case RowSink::Upset::None:
        return SUCCESS;
    case RowSink::Upset::Stop:
        return kStopped;
    case RowSink::Upset::Throw:
        throw std::runtime_error("upset");
    case RowSink::Upset::CutHeight:
        sink.LoadInfo->Height = sink.LoadInfo->Height * 3 / 4;
        return SUCCESS;
    }
    return SUCCESS;
}

} // namespace fuzz
