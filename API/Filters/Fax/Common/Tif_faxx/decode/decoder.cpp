#include "API/Filters/Fax/Common/Tif_faxx/decode/decoder.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/memory.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/record.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"

#include <algorithm>

namespace faxx {
namespace {

bool AllocateBuffers(CCITTG34* record) {
    if (record->ReferenceLine && record->CodingLine && record->Buffer)
        return true;
    QuitDecodeG34(record, 1);
    return (record->ReferenceLine = Allocate<uint32_t>(kListEntries)) &&
           (record->CodingLine = Allocate<uint32_t>(kListEntries)) &&
           (record->Buffer = Allocate<uint8_t>(kInputBytes));
}

} // namespace

int SetUpDecoder(_LOADDISPATCH* dispatch, CCITTG34* record, unsigned format, unsigned width, unsigned flags,
                 tagHANDLE* handle, unsigned smallBuffer, unsigned byteLimit, uint32_t oldEnd) {
    if (width > MAX_CODEC_WIDTH)
        return ERROR_WIDTH_LIMIT;
    if (!AllocateBuffers(record))
        return ERROR_NO_MEMORY;

    record->Format = format;
    record->NextLineTag = kNextLineOneDimensional;
    record->Flags = flags;
    record->Width = width;
    record->Handle = handle;
    record->BytesInBuffer = 0;
    record->ReadPosition = 0;
    record->DecodeStatus = DECODE_STATUS_OK;
    record->BufferCapacity = smallBuffer ? kSmallInputBytes : kInputBytes;
    record->BytesRead = 0;
    record->ByteLimit = byteLimit;
    record->RefillThreshold = RefillThresholdOf(record->BufferCapacity);
    record->LoadDispatch = dispatch;
    std::fill_n(record->ReferenceLine, kClosingZeros, 0);

    // An empty stream is no failure: the decoders report it.
    if (!FillEmptyBuffer(record, oldEnd)) {
        record->DecodeStatus = DECODE_STATUS_NO_DATA;
        return SUCCESS;
    }
    const uint8_t* first = record->Buffer;
    record->BitAccumulator =
        uint32_t{first[0]} << 24 | uint32_t{first[1]} << 16 | uint32_t{first[2]} << 8 | uint32_t{first[3]};
    record->BitCount = 16;
    record->ReadPosition = 4;
    return SUCCESS;
}

} // namespace faxx

using namespace faxx;

int InitDecodeG34(_LOADDISPATCH* dispatch, CCITTG34* record, unsigned format, unsigned width, unsigned flags,
                  tagHANDLE* handle, unsigned smallBuffer, unsigned byteLimit) {
    return SetUpDecoder(dispatch, record, format, width, flags, handle, smallBuffer, byteLimit, kInputBytes);
}

void QuitDecodeG34(CCITTG34* record, int freeAll) {
    if (freeAll)
        FreeBuffers(record);
}
