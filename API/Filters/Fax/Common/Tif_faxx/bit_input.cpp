#include "API/Filters/Fax/Common/Tif_faxx/bit_input.h"

#include "API/Filters/Fax/Common/Tif_faxx/bit_reverse.h"
#include "API/Filters/Fax/Common/Tif_faxx/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/memory.h"

#include <algorithm>
#include <cstring>

namespace faxx {
namespace {

// How far behind the data a decoder reads: a few zero bytes that the lowered threshold lets it consume, and
// the rest of a window.
constexpr uint32_t kZeroTail = 64;

// What stands behind the data reads as zero bits. oldEnd: bytes up to there may hold former data.
void ClearTail(CCITTG34* record, uint32_t oldEnd) {
    const uint32_t end = std::min(std::max(oldEnd, record->BytesInBuffer + kZeroTail), kInputBytes);
    std::memset(record->Buffer + record->BytesInBuffer, 0, end - record->BytesInBuffer);
}

// Reads behind the first kept of the oldEnd bytes in the buffer. A fill that leaves the buffer short lowers
// the threshold, so that all of the data and only a few zero bytes are consumed before the handle is asked
// again. False: nothing kept and nothing read.
bool FillBuffer(CCITTG34* record, uint32_t kept, uint32_t oldEnd) {
    record->BytesInBuffer = kept;
    uint32_t room = record->BufferCapacity - kept;
    if (record->ByteLimit != 0)
        room = std::min(room, record->ByteLimit - record->BytesRead);

    if (room == 0) {
        record->RefillThreshold = kept + 2;
        if (kept == 0)
            return false;
        ClearTail(record, oldEnd);
        return true;
    }

    const int result = K_RedirectedRead(record->Handle, record->Buffer + kept, room);
    if (result <= 0 && kept == 0)
        return false;
    const uint32_t read = result <= 0 ? 0 : std::min(static_cast<uint32_t>(result), room);
    record->BytesRead += read;
    record->BytesInBuffer += read;
    if (record->BytesInBuffer < record->RefillThreshold)
        record->RefillThreshold = record->BytesInBuffer + 2;
    ClearTail(record, oldEnd);
    if (record->Flags & FAX_REVERSE_BITS)
        ReverseBits(record->Buffer + kept, read);
    return true;
}

bool AllocateBuffers(CCITTG34* record) {
    if (record->ReferenceLine && record->CodingLine && record->Buffer)
        return true;
    QuitDecodeG34(record, 1);
    return (record->ReferenceLine = Allocate<uint32_t>(kListEntries)) &&
           (record->CodingLine = Allocate<uint32_t>(kListEntries)) &&
           (record->Buffer = Allocate<uint8_t>(kInputBytes));
}

} // namespace

bool RefillBuffer(CCITTG34* record, uint32_t position) {
    const uint32_t unread = position < record->BytesInBuffer ? record->BytesInBuffer - position : 0;
    if (unread != 0)
        std::memmove(record->Buffer, record->Buffer + position, unread);
    return FillBuffer(record, unread, record->BytesInBuffer);
}

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

    // An empty stream is the decoders' business, not a failed set-up.
    if (!FillBuffer(record, 0, oldEnd)) {
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
    if (!freeAll)
        return;
    Free(record->ReferenceLine);
    Free(record->CodingLine);
    Free(record->Buffer);
}
