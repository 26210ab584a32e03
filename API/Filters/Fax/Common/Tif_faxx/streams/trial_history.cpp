#include "API/Filters/Fax/Common/Tif_faxx/streams/trial_history.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"

#include <algorithm>
#include <cstring>
#include <sys/auxv.h>

namespace faxx {
namespace {

constexpr uint64_t kHashPrime = (uint64_t{1} << 61) - 1;

uint64_t MultiplyModPrime(uint64_t a, uint64_t b) {
    __extension__ using Product = unsigned __int128;
    const Product product = Product{a} * b;
    const uint64_t sum = (static_cast<uint64_t>(product) & kHashPrime) + static_cast<uint64_t>(product >> 61);
    return sum >= kHashPrime ? sum - kHashPrime : sum;
}

// The bytes that the system gives every process for such purposes: asking for more would be a system call.
ListHash SecretPoints() {
    ListHash points{};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how the address is given
    if (const auto* bytes = reinterpret_cast<const void*>(getauxval(AT_RANDOM)))
        std::memcpy(points.data(), bytes, sizeof points);
    for (uint64_t& point : points)
        point = point % (kHashPrime - 2) + 2;
    return points;
}

// The list as the coefficients of a polynomial.
ListHash HashOf(const uint32_t* list, const ListHash& points) {
    ListHash hash{1, 1};
    for (; *list != 0; ++list)
        for (size_t i = 0; i < hash.size(); ++i)
            hash[i] = (MultiplyModPrime(hash[i], points[i]) + *list) % kHashPrime;
    return hash;
}

} // namespace

TrialHistory::TrialHistory(unsigned short* scratch, uint64_t readUnshared)
    : hashPoints(SecretPoints()), bytesUntilShared(readUnshared) {
    auto* marks = reinterpret_cast<Landmark*>(scratch);
    for (TrialKind& kind : kinds)
        for (Trial& trial : kind.trials) {
            trial.marks = marks;
            marks += kMarks;
        }
}

TrialNotes::TrialNotes(TrialHistory& history, const CCITTG34* record, int64_t offset)
    : history_(&history), offset_(offset), tagged_(HasTagBits(record->Format)),
      share_(history.bytesUntilShared == 0) {
    const unsigned kind = (tagged_ ? 4U : 0U) | (record->Flags & FAX_REVERSE_BITS ? 2U : 0U) |
                          static_cast<unsigned>(offset & 1);
    kind_ = &history.kinds[kind];
    Current() = {.marks = Current().marks};
    for (Trial& trial : kind_->trials)
        trial.next = 0;
}

// Behind the data a decoder takes three or four zero bytes before it asks for more, so that trials at offsets
// of one parity all end at the same bit; unless the last fill leaves just so many bytes that the refill
// threshold is reached with their end. There are three such offsets at most in a search.
bool TrialNotes::EndsEarly() const {
    constexpr uint64_t kThreshold = RefillThresholdOf(kInputBytes);
    if (history_->fileSize == 0)
        return false;
    const uint64_t rest = history_->fileSize - static_cast<uint64_t>(offset_);
    return rest >= kThreshold && (rest + 2) % (kThreshold + 2) <= 2;
}

void TrialNotes::CountBytes(const CCITTG34* record) {
    bytesRead_ += record->BytesRead - static_cast<uint32_t>(bytesRead_);
}

const ListHash& TrialNotes::Reference(const CCITTG34* record) {
    if (!reference_)
        reference_ = tagged_ ? HashOf(record->ReferenceLine, history_->hashPoints) : ListHash{};
    return *reference_;
}

bool TrialNotes::KnowsTheEnd(CCITTG34* record, int64_t bufferPosition, int* lines) {
    if (!kind_)
        return false;
    CountBytes(record);
    const uint64_t buffered = bytesRead_ - record->BytesInBuffer;
    const int64_t bit = (offset_ + static_cast<int64_t>(buffered)) * 8 + bufferPosition;
    if (bit > UINT32_MAX)
        return false;
    const auto position = static_cast<uint32_t>(bit);
    if (share_ && !EndsEarly())
        for (Trial& trial : kind_->trials)
            if (&trial != &Current() && EndsLike(trial, record, position, lines))
                return true;
    Trial& current = Current();
    if (current.count < TrialHistory::kMarks)
        current.marks[current.count++] = {position, static_cast<uint32_t>(*lines), record->Width, 0,
                                          Reference(record)};
    return false;
}

// True where the earlier trial was at this position too, and the current one will fail as it did.
bool TrialNotes::EndsLike(Trial& trial, CCITTG34* record, uint32_t position, int* lines) {
    while (trial.next < trial.count && trial.marks[trial.next].position < position)
        ++trial.next;
    if (trial.next == trial.count || trial.marks[trial.next].position != position)
        return false;
    const Landmark& mark = trial.marks[trial.next];
    const bool same = mark.width == record->Width && mark.reference == Reference(record);
    if (!same && mark.lines < trial.oneDimensionalAfter)
        return false;
    const bool tooWide = trial.width > kWidestProbed;
    const uint32_t width = same || tooWide ? trial.width : std::max(record->Width, mark.widthAfter);
    const int all = tooWide ? 0 : *lines + trial.lines - static_cast<int>(mark.lines);
    if (IsConvincing(width, all))
        return false;
    // One read, behind the last byte, if the buffer holds all the rest; otherwise they are not made.
    if (trial.readToEnd && record->RefillThreshold == record->BytesInBuffer + 2)
        RefillBuffer(record, record->BytesInBuffer);
    record->Width = width;
    *lines = all;
    return true;
}

void TrialNotes::TwoDimensionalLine(int lines) {
    if (kind_)
        Current().oneDimensionalAfter = static_cast<uint32_t>(lines) + 1;
}

void TrialNotes::OneDimensionalLine(uint32_t length) {
    if (!kind_ || Current().count == 0)
        return;
    Landmark& last = Current().marks[Current().count - 1];
    last.widthAfter = std::max(last.widthAfter, length);
}

void TrialNotes::Finish(const CCITTG34* record, int lines) {
    if (!kind_)
        return;
    CountBytes(record);
    // Reads are full until the end of the file.
    if (record->BytesInBuffer < record->BufferCapacity)
        history_->fileSize = static_cast<uint64_t>(offset_) + bytesRead_;
    history_->bytesUntilShared -= std::min(history_->bytesUntilShared, bytesRead_);

    Trial& trial = Current();
    if (EndsEarly()) {
        trial.count = 0;
        return;
    }
    for (uint32_t i = trial.count; i-- > 1;)
        trial.marks[i - 1].widthAfter = std::max(trial.marks[i - 1].widthAfter, trial.marks[i].widthAfter);
    trial.lines = lines;
    trial.width = record->Width;
    trial.readToEnd = record->DecodeStatus == DECODE_STATUS_NO_DATA;
    kind_->current = (kind_->current + 1) % TrialKind::kTrials;
}

} // namespace faxx
