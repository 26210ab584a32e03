#include "tests/codec_run.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

constexpr unsigned short kGuard = 0xD1CE;
constexpr size_t kGuardWords = 64;

Rows RowsOfCall(CodecRun& run, unsigned count) {
    const auto end = run.area.begin() + kRowAreaWords;
    EXPECT_TRUE(std::all_of(end, run.area.end(), [](unsigned short w) { return w == kGuard; }));
    Rows rows = RowsFromWords(run.area.data(), count);
    EXPECT_LE(WordsOf(rows), kRowAreaWords);
    return rows;
}

} // namespace

bool IsG3(unsigned format) {
    return format == 66 || format == 67 || format == 117 || format == 162;
}

CodecRun::CodecRun(const Bytes& stream, const CodecSetup& setup) : area(kRowAreaWords + kGuardWords, kGuard) {
    Restart(stream, setup);
}

CodecRun::~CodecRun() {
    QuitDecodeG34(&record, 1);
}

void CodecRun::Restart(const Bytes& stream, const CodecSetup& setup) {
    QuitDecodeG34(&record, 0);
    file = std::make_unique<MemoryFile>(stream);
    file->script = setup.readScript;
    dispatch->Status = 0;
    setupStatus = InitDecodeG34(dispatch.get(), &record, setup.format, setup.width, setup.flags,
                                file->Handle(), setup.smallBuffer, setup.byteLimit);
}

Rows CodecRun::Decode(unsigned lines) {
    return RowsOfCall(*this, IsG3(record.Format) ? DecodeG3(&record, area.data(), lines)
                                                 : ::DecodeG4(&record, area.data(), lines));
}

Rows CodecRun::DecodeG4(unsigned lines) {
    return RowsOfCall(*this, ::DecodeG4(&record, area.data(), lines));
}

int CodecRun::Probe() {
    const int lines = InfoDecodeG3(&record, area.data());
    RowsOfCall(*this, 0);
    return lines;
}

size_t CodecRun::BitPosition() const {
    const size_t firstByte = record.BytesRead - record.BytesInBuffer;
    return (firstByte + record.ReadPosition) * 8 - 16 - static_cast<size_t>(record.BitCount);
}
