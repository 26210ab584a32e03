// Describing raw Group 3 files: fltInfo beside one decode of the same file, on ordinary pages and on files
// that are made to keep the search for a stream busy. The counter "passes" is how many decodes a description
// takes.
#include "API/Filters/Fax/Fax.h"
#include "bench/libtiff_peer.h"
#include "bench/ratio_reporter.h"
#include "host/kernel.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace bench {
namespace {

// Groups of bits in stream order, packed most significant first.
class BitStream {
public:
    void Put(std::string_view bits) {
        for (const char bit : bits) {
            last_ = static_cast<uint8_t>(last_ << 1 | (bit == '1'));
            if (++count_ % 8 == 0)
                bytes_.push_back(last_);
        }
    }
    size_t Size() const { return bytes_.size(); }
    std::vector<uint8_t> Take() {
        while (count_ % 8 != 0)
            Put("0");
        return std::move(bytes_);
    }

private:
    std::vector<uint8_t> bytes_;
    uint8_t last_ = 0;
    size_t count_ = 0;
};

constexpr size_t kHostileBytes = 10'000'000;
constexpr size_t kProbedBytes = 2000;
constexpr std::string_view kEol = "000000000001";
constexpr std::string_view kEolEveryOtherByte = "0000000000010000";
constexpr std::string_view kEmptyRuns = "001101010000110111";
constexpr std::string_view kOnePixelEach = "000111010";

std::vector<uint8_t> Hostile(std::string_view head, std::string_view body, std::string_view tail = "",
                             std::string_view oddByte = "") {
    BitStream stream;
    while (stream.Size() < kProbedBytes / 2)
        stream.Put(head);
    stream.Put(oddByte);
    while (stream.Size() < kProbedBytes)
        stream.Put(head);
    stream.Put(kEol);
    while (stream.Size() < kHostileBytes)
        stream.Put(body);
    stream.Put(tail);
    return stream.Take();
}

std::string Repeated(std::string_view bits, size_t times) {
    std::string all;
    for (size_t i = 0; i < times; ++i)
        all += bits;
    return all;
}

class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<uint8_t>& bytes) {
        std::string name = std::filesystem::temp_directory_path() / ("describe-" + std::string(6, 'X'));
        const int descriptor = mkstemp(name.data());
        if (descriptor < 0)
            throw std::runtime_error("no temporary file");
        close(descriptor);
        name_ = name;
        std::ofstream(name_, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    ~TemporaryFile() { std::filesystem::remove(name_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const char* Name() const { return name_.c_str(); }

private:
    std::string name_;
};

extern "C" int TakeRows(_FILEINFOA*, _BITMAPHANDLE*, unsigned short*, unsigned, int, int, void*) {
    return SUCCESS;
}

struct Described {
    int status = 0;
    _FILEINFOA info{};
    _LOADDISPATCH dispatch{};
};

void Describe(const char* name, Described& described) {
    _INFODISPATCH info{};
    info.FileName = name;
    info.FileInfo = &described.info;
    info.LoadDispatch = &described.dispatch;
    described.dispatch.LoadInfoValid = 1;
    described.status = fltInfo(&info);
}

// What the kernel does with a description: the rows come, and nobody looks at them.
void Load(const char* name, Described& described) {
    _BITMAPHANDLE bitmap{};
    bitmap.BitsPerPixel = 1;
    _LOADDISPATCH& dispatch = described.dispatch;
    dispatch.FileName = name;
    dispatch.Bitmap = &bitmap;
    dispatch.FileInfo = &described.info;
    dispatch.RowCallback = TakeRows;
    if (fltLoad(&dispatch) != SUCCESS)
        throw std::runtime_error("the load failed");
}

// One pass over a file in which no stream is found: a one-dimensional trial at its start.
void Pass(const char* name) {
    tagHANDLE* const handle = K_RedirectedOpen(name, 0, 0400);
    CCITTG34 codec{};
    std::vector<unsigned short> row(251000);
    InitDecodeG34(nullptr, &codec, FORMAT_FAX_G3_1D, 0, 0, handle, 0, 0);
    benchmark::DoNotOptimize(InfoDecodeG3(&codec, row.data()));
    QuitDecodeG34(&codec, 1);
    K_RedirectedClose(handle);
}

template <typename Step>
double Seconds(Step step) {
    const auto start = std::chrono::steady_clock::now();
    step();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Register(const std::string& title, const std::vector<uint8_t>& bytes) {
    const auto file = std::make_shared<TemporaryFile>(bytes);
    benchmark::RegisterBenchmark(
        ("describe/" + title).c_str(),
        [file](benchmark::State& state) {
            double fastestPass = std::numeric_limits<double>::max();
            double fastest = fastestPass;
            for (auto _ : state) {
                Described described;
                const double seconds = Seconds([&] { Describe(file->Name(), described); });
                fastest = std::min(fastest, seconds);
                const bool found = described.status == SUCCESS;
                fastestPass =
                    std::min(fastestPass,
                             Seconds([&] { found ? Load(file->Name(), described) : Pass(file->Name()); }));
                state.SetIterationTime(seconds);
            }
            state.counters["pass_ms"] = fastestPass * 1e3;
            state.counters["passes"] = fastest / fastestPass;
        })
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime();
}

void RegisterPage(Coding coding) {
    Page page = MakePage(PageKind::Text, kPageSizes[0]);
    std::vector<Page> blocks{page};
    TiffPeer peer;
    peer.Encode(page, blocks, coding, {0, page.height});
    peer.OpenForDecoding();
    Register(std::string(CodingName(coding)) + "/" + PageTitle(PageKind::Text, kPageSizes[0]),
             peer.Compressed(0));
}

void RegisterHostile() {
    const std::string eol(kEol);
    const std::string line = eol + Repeated(kOnePixelEach, 864);
    const std::string longLine = eol + Repeated(kEmptyRuns, 48000);
    const std::string tooWide = eol + Repeated("11011001101010000110111", 3500); // 64 white, 0 black
    Register("endless-line", Hostile(kEolEveryOtherByte, kEmptyRuns));
    Register("99-lines", Hostile(kEolEveryOtherByte, longLine));
    Register("fill", Hostile(std::string(kEolEveryOtherByte) + std::string(size_t{8} * 44, '0'), "00000000"));
    Register("too-wide-at-the-end", Hostile(kEolEveryOtherByte, line, tooWide));
    Register("both-parities", Hostile(kEolEveryOtherByte, line, tooWide, "11111111"));
    Register("lines-of-no-width", Hostile(kEolEveryOtherByte, eol + std::string(kEmptyRuns), tooWide));
    // The trials find 100 lines and more, but no width.
    Register("no-width-at-all", Hostile(kEolEveryOtherByte, eol + "00110101"));
    Register("short-lines-first", Hostile(eol + "1" + std::string(kOnePixelEach), longLine, tooWide));
    // 64 more white pixels before the first line for every EOL in front of it.
    Register("make-up-codes-first", Hostile(eol + "110110000000", kEmptyRuns, tooWide));
    // Lines that end at their 65,535th pixel, at another place for every trial: white 0, black 1.
    Register("lines-apart", Hostile(eol + "110110000000", "00110101010", tooWide));
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    return bench::RunAlone(argc, argv, [] {
        bench::RegisterPage(bench::Coding::G3OneDimensional);
        bench::RegisterPage(bench::Coding::G3TwoDimensional);
        bench::RegisterHostile();
    });
}
