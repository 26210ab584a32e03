#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/bit_reverse.h"
#include "host/kernel.h"

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

} // namespace

bool RefillBuffer(CCITTG34* record, uint32_t position) {
    const uint32_t unread = position < record->BytesInBuffer ? record->BytesInBuffer - position : 0;
    if (unread != 0)
        std::memmove(record->Buffer, record->Buffer + position, unread);
    return FillBuffer(record, unread, record->BytesInBuffer);
}

bool FillEmptyBuffer(CCITTG34* record, uint32_t oldEnd) {
    return FillBuffer(record, 0, oldEnd);
}

} // namespace faxx
