// A block of memory: through the buffer entry, and through the raw loader with a row callback. Where nothing
// upsets the load, both must see the same pixels, and so must a load of good data in batches through the
// small buffer.
#include "fuzz/harness.h"

#include "API/Filters/Fax/Fax.h"

#include <memory>

namespace {

enum : uint8_t { UPSET = 3, BATCHES = 4 }; // of Choice; the upper four bits tell when

// Upper bound of the words that the rows of a block take. Within one call's budget nothing depends on how the
// lines are asked for.
uint64_t MostRowWords(const fuzz::Stream& stream, size_t bytes) {
    return uint64_t{stream.Height} * (3 + 2 * (stream.Width / 65534 + 1)) + 16 * uint64_t{bytes};
}
constexpr uint64_t kCallBudget = 249998;

struct RawLoad {
    int Status;
    int DataStatus;
};

RawLoad LoadRaw(const fuzz::Stream& stream, fuzz::Bytes& block, bool batches, fuzz::RowSink& sink) {
    const fuzz::MemoryHandle handle(REDIRECT_READ, block);
    const auto dispatch = std::make_unique<standin::Padded<_LOADDISPATCH>>();
    dispatch->Declared.Flags = batches ? LOADDISPATCH_BATCHES : 0;
    _LOADINFO& info = dispatch->Declared.LoadInfo;
    info = fuzz::LoadInfoOf(stream);
    info.Offset = 0;
    sink.LoadInfo = &info;
    sink.LeastWidth = stream.Width;
    const int status =
        K_LoadRawFax(&dispatch->Declared, handle.Get(), &info, nullptr, nullptr, fuzz::CheckRows, 1, &sink);
    return {status, dispatch->Declared.Status};
}

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const Stream stream = TakeStream(input);
    Bytes block = input.Rest();
    Bytes pixels(size_t{stream.Height} * ((stream.Width + 7) / 8));
    if (pixels.empty())
        pixels.reserve(1); // an address
    unsigned char* const first = block.empty() ? nullptr : block.data();
    const int status =
        fltLoadBuffer(first, block.size(), pixels.data(), stream.Format, static_cast<int>(stream.Width),
                      static_cast<int>(stream.Height), 0, 0, stream.Flags);
    const bool accepted = stream.Width <= MAX_BUFFER_WIDTH && first;
    Require(status == (!first     ? ERROR_NULL_PTR
                       : accepted ? SUCCESS
                                  : ERROR_INV_PARAMETER),
            "the buffer entry's status");

    RowSink sink;
    sink.What = static_cast<RowSink::Upset>(stream.Choice & UPSET);
    sink.UpsetAt = 1 + (stream.Choice >> 4);
    KeepRows(sink, stream.Width, stream.Height);
    const bool batches = (stream.Choice & BATCHES) != 0;
    const RawLoad raw = LoadRaw(stream, block, batches, sink);
    if (stream.Width > MAX_IMAGE_WIDTH)
        return Require(raw.Status == ERROR_INV_PARAMETER, "a width out of range is refused");
    const bool upset = sink.What != RowSink::Upset::None && sink.Calls >= sink.UpsetAt;
    if (upset && sink.What == RowSink::Upset::Stop)
        return Require(raw.Status == kStopped, "the callback's status comes back");
    if (upset && sink.What == RowSink::Upset::Throw)
        return Require(raw.Status == ERROR_EXCEPTION, "an exception becomes a status");
    Require(raw.Status == SUCCESS, "the raw loader's status");
    if (upset)
        return;
    Require(sink.Ended || stream.Height == 0, "the last batch is marked");
    RowSink other;
    KeepRows(other, stream.Width, stream.Height);
    const RawLoad again = LoadRaw(stream, block, !batches, other);
    Require(again.Status == SUCCESS, "the raw loader's status");
    if (accepted)
        Require((batches ? other : sink).Pixels == pixels, "both loaders see the same pixels");
    if (EndsAtRefill(block.size(), true) || EndsAtRefill(block.size(), false))
        return;
    // Damage that a decoder stops at takes effect from its next call on. So does the tag behind a stray EOL
    // in format 117, without a status.
    const bool whole =
        (raw.DataStatus == 0 || again.DataStatus == 0) && stream.Format != FORMAT_FAX_G3_2D_ALL2D;
    if (whole && MostRowWords(stream, block.size()) < kCallBudget)
        Require(other.Pixels == sink.Pixels && again.DataStatus == raw.DataStatus,
                "batches and a small buffer change nothing");
}
