#include "API/Filters/Fax/Common/Tif_faxx/bit_output.h"

#include "API/Filters/Fax/Common/Tif_faxx/bit_reverse.h"
#include "API/Filters/Fax/Common/Tif_faxx/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/memory.h"

#include <algorithm>

namespace faxx {
namespace {

// T.4 § 4.2.1: the finer the lines, the more of them lean on one another.
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

void FreeBuffers(CCITTG34* record) {
    Free(record->ReferenceLine);
    Free(record->CodingLine);
    Free(record->Buffer);
}

void PutTrailer(BitOutput& output, const CCITTG34* record) {
    switch (record->Format) {
    case FORMAT_FAX_G3_1D:
    case FORMAT_FAX_G3_2D:
        if (record->Flags & FAX_ALIGN_EOL) {
            for (int i = 0; i < 2; ++i)
                output.PutAlignedEol();
            return;
        }
        output.PutFill((output.BitsFree() + 8) % 16);
        break;
    case FORMAT_FAX_G3_1D_NOEOL:
        output.PutFill(output.BitsFree() % 8);
        return;
    default: // an EOFB
        break;
    }
    output.PutEol();
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

void FlushBuffer(CCITTG34* record) {
    if (record->Flags & FAX_REVERSE_BITS)
        ReverseBits(record->Buffer, record->BufferCount);
    record->TotalBytes += record->BufferCount;
    const int written = K_RedirectedWrite(record->Handle, record->Buffer, record->BufferCount);
    if (written != static_cast<int>(record->BufferCount))
        record->WriteStatus = WRITE_STATUS_SHORT;
}

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
    if (format == FORMAT_FAX_G3_1D || format == FORMAT_FAX_G3_2D || format == FORMAT_FAX_G3_2D_ALL2D) {
        // An EOL that ends on a byte boundary.
        record->Buffer[0] = 0x00;
        record->Buffer[1] = 0x01;
        record->BufferCount = 2;
    }
    record->KFactor = format == FORMAT_FAX_G3_2D ? KFactorFor(dispatch) : 0;
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
