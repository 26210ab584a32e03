// Finds the width and the number of lines of a G3 stream that carries neither, by decoding it once.
//
// Lines end at EOLs alone, and the longest is taken for the width. Distances count down from 65535, the
// fax codes' natural width, since the right edge is not known yet; so a line becomes all white when it is
// turned into the reference of the next, and two-dimensional lines are decoded against that. Their count is
// what matters.
#include "API/Filters/Fax/Common/Tif_faxx/g3_probe.h"

#include "API/Filters/Fax/Common/Tif_faxx/g3_line.h"

#include <algorithm>
#include <utility>

namespace faxx {

using namespace g3;

namespace {

constexpr uint32_t kProbeWidth = 65535;
constexpr unsigned kEolZeros = 8; // no run code begins with so many

enum class LineRead : uint8_t { Complete, TwoDimensional, NoData, TooWide };

// Lets the length of the line's runs so far count for the width; false when no page is that wide.
bool CountWidth(const Line& line) {
    CCITTG34* record = line.record;
    record->Width = std::max(record->Width, kProbeWidth - record->CodingLine[line.written - 1]);
    return record->Width <= kWidestProbed;
}

LineRead ReadLine(Line& line) {
    for (;;) {
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        ReadFast(line, Edge::Unknown);
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        if (line.written != 0)
            CountWidth(line);
        for (const Colour colour : {Colour::White, Colour::Black}) {
            if (colour != line.Due())
                continue;
            const RunRead run = ReadRun(line.input, colour, line.remaining);
            if (run == RunRead::NoCode) {
                const bool padding = colour == Colour::Black && line.record->Format == FORMAT_FAX_G3_1D_NOEOL;
                if (!padding && !ReadEol(line.input, line.record))
                    return LineRead::NoData;
                if (colour == Colour::Black || line.written != 0)
                    return LineRead::Complete;
                break; // an EOL in front of the line
            }
            if (run == RunRead::NoData)
                return LineRead::NoData;
            if (line.remaining == 0 || !line.Append())
                return LineRead::Complete;
            if (!CountWidth(line))
                return LineRead::TooWide;
        }
    }
}

uint64_t HashOf(const uint32_t* list) {
    uint64_t hash = 1;
    for (; *list != 0; ++list) {
        hash = (hash ^ *list) * 0x9E3779B97F4A7C15;
        hash ^= hash >> 32;
    }
    return hash;
}

// What is noted of a trial under way, and looked up in earlier ones; nothing without a history.
class Notes {
public:
    Notes() = default;
    Notes(TrialKind& kind, int64_t offset, bool share) : kind_(&kind), startBit_(offset * 8), share_(share) {
        Current() = {.marks = Current().marks};
        for (Trial& trial : kind.trials)
            trial.next = 0;
    }

    // Such a line comes after so many.
    void TwoDimensionalLine(int lines) const {
        if (kind_)
            Current().oneDimensionalAfter = static_cast<uint32_t>(lines) + 1;
    }

    // What a line's landmarks have in common.
    uint64_t ReferenceHash(const CCITTG34* record) const {
        return Wanted() && HasTagBits(record) ? HashOf(record->ReferenceLine) : 0;
    }

    // Where a line is due after so many, or an EOL in front of it. True where the trial is sure to fail:
    // *lines is its result then, and what an ordinary end would still have read has been read.
    bool AtLandmark(const Line& line, uint64_t reference, int* lines) const {
        if (!Wanted())
            return false;
        CCITTG34* record = line.record;
        const int64_t buffered = int64_t{record->BytesRead} - record->BytesInBuffer;
        const int64_t position = startBit_ + buffered * 8 + line.input.Position();
        if (position > UINT32_MAX)
            return false;
        const Landmark here{static_cast<uint32_t>(position),
                            static_cast<uint32_t>(*lines),
                            record->Width,
                            {static_cast<uint32_t>(reference), static_cast<uint32_t>(reference >> 32)}};
        if (share_)
            for (Trial& trial : kind_->trials)
                if (&trial != &Current() && Foresees(trial, here, lines)) {
                    FinishReading(record, trial);
                    return true;
                }
        if (Current().count < TrialHistory::kMarks)
            Current().marks[Current().count++] = here;
        return false;
    }

private:
    Trial& Current() const { return kind_->trials[kind_->current]; }

    bool Wanted() const { return kind_ && (share_ || Current().count < TrialHistory::kMarks); }

    // True where the earlier trial was here too and the one under way will fail as it did.
    static bool Foresees(Trial& trial, const Landmark& here, int* lines) {
        while (trial.next < trial.count && trial.marks[trial.next].position < here.position)
            ++trial.next;
        if (trial.next == trial.count || trial.marks[trial.next].position != here.position)
            return false;
        const Landmark& there = trial.marks[trial.next];
        const bool same = there.width == here.width && there.reference == here.reference;
        if (!same && there.lines < trial.oneDimensionalAfter)
            return false;
        if (trial.width > kWidestProbed) {
            *lines = 0;
            return true;
        }
        const int all = *lines + trial.lines - static_cast<int>(there.lines);
        if (all >= kFewestLinesProbed)
            return false;
        *lines = all;
        return true;
    }

    // One read, behind the last byte, if the buffer holds all the rest; otherwise they are not made.
    static void FinishReading(CCITTG34* record, const Trial& trial) {
        if (trial.readToEnd && record->RefillThreshold == record->BytesInBuffer + 2)
            RefillBuffer(record, record->BytesInBuffer);
    }

    TrialKind* kind_ = nullptr;
    int64_t startBit_ = 0;
    bool share_ = false;
};

enum class Ending : uint8_t { Own, Foreseen };

// Counts the lines. Foreseen: the count is that of a trial run to its end, the record's state is not.
Ending CountLines(CCITTG34* record, unsigned short* rows, const Notes& notes, int* lines) {
    record->Width = 0;
    while (record->DecodeStatus == DECODE_STATUS_OK) {
        Line line(record);
        line.Begin(kProbeWidth, kRawRowWords);
        const uint64_t reference = notes.ReferenceHash(record);
        bool more = true;
        while (more && record->NextLineTag < 0) {
            if (notes.AtLandmark(line, reference, lines))
                return Ending::Foreseen;
            if (line.input.Top(kEolZeros) != 0)
                break;
            more = ReadEol(line.input, record);
        }
        switch (more ? ReadLine(line) : LineRead::NoData) {
        case LineRead::TooWide:
            *lines = 0;
            return Ending::Own;
        case LineRead::TwoDimensional:
            record->NextLineTag = kNextLineOneDimensional;
            line.input.Store();
            notes.TwoDimensionalLine(*lines);
            if (DecodeG4(record, rows, 1) == 0)
                return Ending::Own;
            ++*lines;
            continue;
        case LineRead::Complete:
            line.input.Store();
            break;
        case LineRead::NoData:
            line.input.StoreExhausted();
            break;
        }
        RowOutput output{rows, 0, kRawRowWords, 1};
        FinishLine(record, output, line.written);
        ++*lines;
    }
    return Ending::Own;
}

} // namespace

TrialHistory::TrialHistory(unsigned short* scratch) {
    auto* marks = reinterpret_cast<Landmark*>(scratch);
    for (TrialKind& kind : kinds)
        for (Trial& trial : kind.trials) {
            trial.marks = marks;
            marks += kMarks;
        }
}

int ProbeStream(CCITTG34* record, unsigned short* rows, int64_t offset, TrialHistory& history) {
    const unsigned tagged = HasTagBits(record) ? 4 : 0;
    const unsigned reversed = record->Flags & FAX_REVERSE_BITS ? 2 : 0;
    TrialKind& kind = history.kinds[tagged | reversed | static_cast<unsigned>(offset & 1)];
    int lines = 0;
    const Notes notes(kind, offset, history.bytesRead > kReadUnshared);
    const Ending ending = CountLines(record, rows, notes, &lines);
    history.bytesRead += record->BytesRead;
    if (ending == Ending::Own) {
        Trial& trial = kind.trials[kind.current];
        trial.lines = lines;
        trial.width = record->Width;
        trial.readToEnd = record->DecodeStatus == DECODE_STATUS_NO_DATA;
        kind.current = (kind.current + 1) % TrialKind::kTrials;
    }
    return lines;
}

} // namespace faxx

int InfoDecodeG3(CCITTG34* record, unsigned short* rows) {
    int lines = 0;
    faxx::CountLines(record, rows, faxx::Notes(), &lines);
    return lines;
}
