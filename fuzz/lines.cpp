// The line decoders and the probe against the reference decoder of the tests, call by call.
#include "fuzz/harness.h"
#include "tests/reference_decoder.h"

#include <algorithm>

namespace {

enum : uint8_t { PROBE = 1, SMALL_BUFFER = 2, BYTE_LIMIT = 4, ONE_BY_ONE = 8 };
constexpr unsigned kMostLines = 400;
constexpr size_t kMostBytes = 16384; // the reference decoder is slow

void CompareState(const CodecRun& codec, const ReferenceDecoder& reference) {
    const CCITTG34& record = codec.record;
    fuzz::Require((record.DecodeStatus == 0) == (reference.decodeStatus == 0), "DecodeStatus");
    fuzz::Require(record.Width == reference.width, "Width");
    fuzz::Require(codec.dispatch->Status == reference.dispatchStatus, "the dispatch's Status");
    fuzz::Require(record.NextLineTag == static_cast<int32_t>(reference.nextLineTag), "NextLineTag");
    fuzz::Require(record.BytesRead == reference.bytesRead, "BytesRead");
    if (record.DecodeStatus != 0 && (record.DecodeStatus == 2 || reference.decodeStatus == 2))
        return; // the bit state means nothing any more
    fuzz::Require(record.BitAccumulator == reference.Accumulator(), "BitAccumulator");
    fuzz::Require(record.BitCount == reference.BitCount(), "BitCount");
    fuzz::Require(record.ReadPosition == reference.readPosition, "ReadPosition");
}

} // namespace

void fuzz::RunInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const Stream stream = TakeStream(input);
    Bytes bytes = input.Rest();
    bytes.resize(std::min(bytes.size(), kMostBytes));
    ResetTestKernel();
    CodecSetup setup;
    setup.format = static_cast<unsigned>(stream.Format);
    setup.width = std::min(stream.Width, MAX_CODEC_WIDTH);
    setup.flags = (stream.Flags & LOADINFO_REVERSED_BITS) != 0 ? FAX_REVERSE_BITS : 0;
    setup.smallBuffer = (stream.Choice & SMALL_BUFFER) != 0;
    setup.byteLimit = (stream.Choice & BYTE_LIMIT) != 0 ? 1u + stream.Offset : 0;
    const bool probe = (stream.Choice & PROBE) != 0 && IsG3(setup.format);
    if (probe)
        setup.width = 0;
    CodecRun codec(bytes, setup);
    ReferenceDecoder reference(bytes, setup);
    if (probe) {
        const int lines = reference.Probe();
        Require(codec.Probe() == lines, "the lines that the probe counts");
        if (lines != 0) // otherwise it broke off inside a line
            CompareState(codec, reference);
        return;
    }
    unsigned left = std::min(stream.Height, kMostLines);
    while (left != 0) {
        const unsigned lines = (stream.Choice & ONE_BY_ONE) != 0 ? 1 : left;
        const bool stopped = reference.decodeStatus != 0;
        const Rows rows = reference.Decode(lines);
        Require(codec.Decode(lines) == rows, "the rows");
        CompareState(codec, reference);
        if (stopped || rows.empty())
            break;
        left -= static_cast<unsigned>(rows.size());
    }
}
