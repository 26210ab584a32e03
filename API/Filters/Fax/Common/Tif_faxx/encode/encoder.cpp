// An encoding record's set-up, and its end: the trailer and the last bytes.
#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/memory.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/record.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_output.h"

#include <algorithm>

namespace faxx {
namespace {

// Bytes that a line of this width may take, with the fill, EOL and tag around it.
constexpr uint32_t LineEstimate(uint32_t width) {
    // The dearest pair is a horizontal mode of two runs of one pixel: 3 + 6 + 3 bits.
    constexpr uint32_t kBitsPerPixelPair = 13;
    return (kBitsPerPixelPair * ((width + 1) / 2) + 20 + 15) / 8 + 2;
}

constexpr uint32_t OutputBufferSize(uint32_t width) {
    constexpr uint32_t kSmallest = 200000;
    const uint32_t size = 3 * LineEstimate(width);
    return size > kSmallest ? size : kSmallest;
}

// T.4 § 4.2.1: the finer the resolution, the more two-dimensional lines follow a one-dimensional one.
uint32_t KFactorFor(const _SAVEDISPATCH* dispatch) {
    const int32_t dpi = dispatch && dispatch->Bitmap ? dispatch->Bitmap->YResolution : 0;
    static constexpr struct {
        int32_t below;
        uint32_t k;
    } kFactors[] = {{200, 2}, {300, 4}, {400, 6}, {600, 8}, {800, 12}, {1200, 16}};
    for (const auto& entry : kFactors)
        if (dpi < entry.below)
            return entry.k;
    return 24;
}

void PutTrailer(BitOutput& output, const CCITTG34* record) {
    if (RowsBeginOnBytes(record->Format)) {
        output.PutFill(output.BitsFree() % 8);
        return;
    }
    const bool eols = HasEols(record->Format) && !HasTwoDimensionalTail(record->Format);
    if (eols && record->Flags & FAX_ALIGN_EOL) {
        for (int i = 0; i < 2; ++i)
            output.PutAlignedEol();
        return;
    }
    if (eols)
        output.PutFill((output.BitsFree() + 8) % 16);
    output.PutEol(); // two EOLs are an EOFB, too
    output.PutEol();
}

// Completes the last word with zero bits; a word of eight bits or fewer may stay a single byte.
void StoreLastWord(CCITTG34* record) {
    const unsigned pending = static_cast<unsigned>(16 - record->BitCount);
    if (pending == 0)
        return;
    const uint32_t word = record->BitAccumulator << record->BitCount;
    record->Buffer[record->BufferCount] = static_cast<uint8_t>(word >> 24);
    record->Buffer[record->BufferCount + 1] = static_cast<uint8_t>(word >> 16);
    record->BufferCount += pending <= 8 && record->Flags & FAX_BYTE_TRAILER ? 1 : 2;
}

} // namespace

} // namespace faxx

using namespace faxx;

int InitEncodeG34(_SAVEDISPATCH* dispatch, CCITTG34* record, unsigned format, unsigned width, unsigned flags,
                  tagHANDLE* handle) {
    constexpr int kReady = 0;
    constexpr int kNoMemory = 1;
    const uint32_t bufferSize = OutputBufferSize(width);
    record->FlushThreshold = bufferSize - LineEstimate(width);
    record->SaveDispatch = dispatch;

    // Every pixel of the widest lines may be a change.
    const size_t entries = std::max(kListEntries, width + kClosingZeros);
    record->ReferenceLine = record->CodingLine = nullptr;
    record->Buffer = nullptr;
    if (!(record->ReferenceLine = Allocate<uint32_t>(entries)) ||
        !(record->CodingLine = Allocate<uint32_t>(entries)) ||
        !(record->Buffer = Allocate<uint8_t>(bufferSize)))
        return kNoMemory;

    record->Format = format;
    record->NextLineTag = 0;
    record->Width = width;
    record->Handle = handle;
    record->Flags = flags;
    record->BufferCount = 0;
    record->TotalBytes = 0;
    record->WriteStatus = 0;
    record->BitAccumulator = 0;
    record->BitCount = 16;
    std::fill_n(record->ReferenceLine, kClosingZeros, 0);
    if (HasEols(format)) {
        // An EOL that ends on a byte boundary.
        record->Buffer[0] = 0x00;
        record->Buffer[1] = 0x01;
        record->BufferCount = 2;
    }
    record->KFactor = HasLineGroups(format) ? KFactorFor(dispatch) : 0;
    return kReady;
}

void QuitEncodeG34(CCITTG34* record) {
    constexpr uint32_t kTrailerBytes = 8;
    if (record->ReferenceLine && record->CodingLine && record->Buffer) {
        // The flush threshold keeps room for a line, not for the trailer behind it.
        if (record->BufferCount + kTrailerBytes > OutputBufferSize(record->Width)) {
            FlushBuffer(record);
            record->BufferCount = 0;
        }
        BitOutput output(record);
        PutTrailer(output, record);
        output.Store();
        StoreLastWord(record);
        if (record->BufferCount != 0)
            FlushBuffer(record);
    }
    FreeBuffers(record);
}
