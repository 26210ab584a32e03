// Every kernel call and callback of every operation gone wrong in turn: failed, come back short, thrown, or
// the end of its thread. The status is the one that belongs to the call, nothing is leaked and nothing is
// given back twice. The run in which nothing goes wrong shows how much memory the operation holds at most.
#include <cerrno>

#include "API/Filters/Fax/Fax.h"
#include "tests/save_run.h"
#include "tests/tile_grid.h"

namespace {

constexpr int kAny = 4711;

// The status by the call that went wrong: with its arguments, or by its name. Others do not fail anything.
using Statuses = std::map<std::string, int>;
const Statuses kStatuses = {{"Open", ERROR_FILE_OPEN},     {"Alloc", ERROR_NO_MEMORY},
                            {"Rows", kCallbackFailed},     {"Start", kCallbackStops},
                            {"GetRow", kCallbackStops},    {"Row", kCallbackStops},
                            {"Write", ERROR_FILE_WRITE},   {"AllocateBitmap", ERROR_NO_MEMORY},
                            {"IntReleaseBitmap", FAILURE}, {"StartRedirect", FAILURE},
                            {"ExpandRows", FAILURE},       {"CompressRow", FAILURE},
                            {"Read 20", ERROR_FILE_READ},  {"Read 1", ERROR_FILE_READ},
                            {"Read 8", ERROR_FILE_READ},   {"Read 13", ERROR_FILE_READ}};

// An operation in which a call goes wrong.
struct Play {
    template <typename Operation>
    void Run(Operation operation) {
        try {
            status = operation();
        } catch (const KernelFault&) {
            thrown = true;
        }
        call = KernelInUse().faulted;
        name = call.substr(0, call.find(' '));
    }
    int status = 0;
    bool thrown = false;
    std::string call, name; // empty when none went wrong
};

struct Scenario {
    const char* name;
    void (*play)(Play&);
    const char* lastUnguarded; // what is thrown behind this call the operation catches; null: never
    size_t mostHeld;           // bytes of working memory
    Statuses statuses = {};

    friend std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
        return out << scenario.name;
    }
};

const Bits kG3 = Repeated(kEol + "1" + Line1D({100, 100, 1528}) + kEol + "0" + Repeated(kV0, 3), 130);
const Bits kG4 = Repeated(Horizontal(100, 100) + kV0 + kVL1 + kVR1 + kV0, 300);

void PlayLoad(Play& play, int format, const Bytes& stream, unsigned flags, bool batches, bool byFile,
              int height) {
    KernelInUse().files["page"] = stream;
    LoadRun load(stream, format, 1728, height);
    load.dispatch->Flags = batches ? LOADDISPATCH_BATCHES : 0;
    load.dispatch->FileName = "page";
    load.Info().Flags = flags;
    load.fileInfo->Format = format;
    load.fileInfo->Width = 1728;
    load.fileInfo->Height = height;
    play.Run([&] { return byFile ? fltLoad(load.dispatch.get()) : load.Run(); });
    const bool whole = !play.thrown && play.status == SUCCESS;
    EXPECT_LE(load.rows.size(), static_cast<size_t>(height));
    EXPECT_TRUE(!whole || load.rows.size() == static_cast<size_t>(height));
}

void PlayHeaderLoad(Play& play) {
    Bytes file = Packed(kG4);
    file.insert(file.begin(), 512, uint8_t{1});
    PlayLoad(play, FORMAT_FAX_G4_HEADER, file, 1, true, true, 20);
}

void PlayProbe(Play& play, bool byFile) {
    LoadRun load(Packed(kG3), -1, 1728, -1);
    KernelInUse().files["page"] = load.file.bytes;
    load.fileInfo->Flags = FILEINFO_PROBE_RAW;
    _INFODISPATCH info = {};
    info.FileName = "page";
    info.FileInfo = load.fileInfo.get();
    play.Run([&] {
        return byFile ? fltInfo(&info)
                      : K_LoadRawFax(nullptr, load.file.Handle(), &load.Info(), nullptr, nullptr, nullptr, 1,
                                     nullptr);
    });
}

extern "C" int CountRows(_FILEINFOA*, _BITMAPHANDLE*, unsigned short*, unsigned, int, int rowCount, void*) {
    return EnterCall("Rows " + std::to_string(rowCount)) ? kCallbackFailed : SUCCESS;
}

void PlayTiledLoad(Play& play, unsigned tileWidth) {
    TiledLoad load(PictureOf(100, 20), 100, tileWidth, 16);
    load.MakeRaw(load.grid.across - 1);
    load.callback = CountRows; // the rows may be anything now
    play.Run([&] { return load.Load(); });
    const bool allocated = !CallsNamed("AllocateBitmap").empty() && play.name != "AllocateBitmap";
    if (KernelInUse().fault != Fault::Throw || play.name != "IntReleaseBitmap") {
        EXPECT_EQ(CallsNamed("FreeBitmap").size(), allocated ? 1u : 0u);
    }
}

void PlayBuffer(Play& play, bool saving) {
    static const Bytes stream = CodedPicture(PictureOf(100, 5, NOISE), 100, 66);
    Bytes input = saving ? Joined(PictureOf(100, 5, NOISE)) : stream;
    Bytes output(1000);
    unsigned long long size = output.size();
    _BITMAPINFOHEADER info = {};
    info.Width = 100;
    info.Height = 5;
    info.BitsPerPixel = 1;
    play.Run([&] {
        return saving ? fltSaveBuffer(input.data(), &info, output.data(), &size, 0, 0, 66, 0, 0)
                      : fltLoadBuffer(input.data(), input.size(), output.data(), 66, 100, 5, 0, 0,
                                      LOADINFO_MIRROR);
    });
    const bool failed = play.name == "StartRedirect" || CallsNamed("StartRedirect").empty();
    EXPECT_TRUE(play.thrown || failed || KernelInUse().trace.back() == "StopRedirect");
    EXPECT_TRUE(play.name != "Alloc" || size == output.size());
}

template <typename Operation>
void PlaySave(Play& play, SaveRun& save, Operation operation) {
    play.Run(operation);
    EXPECT_EQ(save.starts, play.name == "Open" ? 0 : 1);
    EXPECT_EQ(save.ends, save.starts);
}

// Rows of 33 KB: a flush every five of them.
void PlayRawSave(Play& play, unsigned format) {
    static const Picture picture = PictureOf(60000, 12, ALTERNATING);
    SaveRun save(picture, 60000, static_cast<int>(format));
    save.rowCallback = TraceRow;
    errno = format == 66 ? 0 : ENOMEM;
    PlaySave(play, save, [&] { return save.Run(); });
    errno = 0;
    if (play.thrown)
        return;
    EXPECT_EQ(KernelInUse().trace.back(), "End");
    if (play.name == "Start" || play.name == "Alloc") {
        EXPECT_TRUE(save.file.bytes.empty());
        EXPECT_EQ(save.size, 0xABCDu);
        return;
    }
    // The stream of the rows that came through, trailer and all, without what a bad write dropped.
    const Picture done(picture.begin(), picture.begin() + save.rowCalls - (play.name == "Row"));
    const Bytes stream = CodedPicture(done, 60000, format);
    EXPECT_EQ(save.size, stream.size());
    EXPECT_TRUE(play.name == "Write" || save.file.bytes == stream);
}

void PlayFileSave(Play& play) {
    SaveRun save(PictureOf(100, 2), 100, 67);
    KernelInUse().files["page"] = {};
    save.dispatch->FileName = "page";
    errno = 0;
    PlaySave(play, save, [&] { return fltSave(save.dispatch.get()); });
}

void PlayTiledSave(Play& play, bool ownCounts) {
    Grid grid(100, 20, 64, 16);
    if (ownCounts)
        grid.info.TileByteCounts = nullptr;
    SaveRun save(PictureOf(100, 20, NOISE), 100, 66);
    PlaySave(play, save,
             [&] { return save.RunTiled(&grid.info, ownCounts ? nullptr : grid.uncompressed.data()); });
    EXPECT_EQ(grid.info.TileByteCounts, ownCounts ? nullptr : grid.counts.data());
}

// The codec's own functions, as a container filter calls them; a throw leaves the release to do.
template <typename Release, typename Operation>
void PlayCodec(Play& play, Release release, Operation operation) {
    struct WhereTheThreadEnds {
        Release& release;
        ~WhereTheThreadEnds() {
            if (KernelInUse().fault == Fault::EndThread)
                release();
        }
    };
    play.Run([&] {
        const WhereTheThreadEnds released{release};
        const int status = operation();
        release();
        return status;
    });
    try {
        release();
    } catch (const KernelFault&) {
        ADD_FAILURE() << "released twice";
    }
}

void PlayDecoder(Play& play, unsigned format, bool probe) {
    CCITTG34 codec = {};
    MemoryFile file(Packed(format == 68 ? Repeated(kG4, 20) : kG3));
    std::vector<unsigned short> rows(kRowAreaWords);
    const auto decode = format == 68 ? DecodeG4 : DecodeG3;
    PlayCodec(
        play, [&] { QuitDecodeG34(&codec, 1); },
        [&] {
            const int status =
                InitDecodeG34(nullptr, &codec, format, probe ? 0 : 1728, 0, file.Handle(), 1, 0);
            for (int i = 0; status == SUCCESS && !probe && i < 300; ++i)
                EXPECT_EQ(decode(&codec, rows.data(), 1), 1u);
            if (status == SUCCESS && probe)
                InfoDecodeG3(&codec, rows.data());
            return status;
        });
}

void PlayEncoder(Play& play, unsigned format) {
    static const Picture picture = PictureOf(60000, 6, ALTERNATING);
    CCITTG34 codec = {};
    MemoryFile file({});
    int failed = 0;
    PlayCodec(
        play, [&] { QuitEncodeG34(&codec); },
        [&] {
            failed = InitEncodeG34(nullptr, &codec, format, 60000, 0, file.Handle());
            for (const Bytes& row : picture)
                if (failed == 0)
                    (format == 68 ? EncodeG4 : EncodeG3)(&codec, Bytes(row).data());
            return SUCCESS;
        });
    EXPECT_EQ(failed, play.name == "Alloc" && !play.thrown ? 1 : 0);
    EXPECT_TRUE(play.thrown || (codec.WriteStatus != 0) == (play.name == "Write"));
}

void PlayOneTile(Play& play) {
    SaveRun save(PictureOf(100, 16), 100, 68);
    Grid grid(100, 16, 104, 16);
    CCITTG34 codec = {};
    Bytes row(16);
    unsigned size = 0;
    save.tiled = true;
    save.dispatch->CallbackParam = 78;
    PlayCodec(
        play, [&] { QuitEncodeG34(&codec); },
        [&] {
            return SaveFaxTile(save.dispatch.get(), save.file.Handle(), &codec, 68, &grid.info, 0, 0, 0, 13,
                               0, &size, &save.saveBitmap, save.saveFile.get(), row.data(), 1);
        });
}

void PlayPalette(Play& play) {
    LoadRun load({}, 68, 1, 1);
    play.Run([&] { return SetBitmapPalette(load.dispatch.get(), &load.Info(), &load.bitmap); });
}

void PlayRedirection(Play& play, bool ownBuffer) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    Bytes bytes(10);
    play.Run([&] {
        const int started = ownBuffer
                                ? StartRedirectToBuffer(&redirect, &handle, REDIRECT_WRITE)
                                : StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, bytes.data(), 10);
        return started == SUCCESS ? StopRedirectToBuffer(redirect, nullptr, nullptr) : started;
    });
}

const Statuses kProbe = {{"Read", kAny}, {"Seek", kAny}}; // it may find another stream
const Statuses kTiles = {{"IntAccessBitmap", FAILURE}};
const Statuses kNoStatus = {{"Alloc", SUCCESS}, {"Write", SUCCESS}}; // the record tells

constexpr size_t kDecoder = 2 * 1000000 + 200000; // two change lists, input
constexpr size_t kRawLoad = kDecoder + 502000 + 500000;
constexpr size_t kMirrored = 168000; // what a mirror buffer has more
constexpr size_t kEncoder = 2 * 1000000 + 200000;
constexpr size_t kTileRow = 16;

const Scenario kScenarios[] = {
    {"G4_in_batches", [](Play& p) { PlayLoad(p, 68, Packed(Repeated(kG4, 20)), 1, true, false, 250); },
     "Alloc 250000 2", kRawLoad},
    {"G4_mirrored", [](Play& p) { PlayLoad(p, 68, Packed(kG4), LOADINFO_MIRROR, false, false, 250); },
     "Alloc 334000 2", kRawLoad + kMirrored},
    {"G3_by_file",
     [](Play& p) { PlayLoad(p, 67, Packed(kG3, true), LOADINFO_REVERSED_BITS, true, true, 250); },
     "Alloc 250000 2", kRawLoad},
    {"truncated_G3_by_file", [](Play& p) { PlayLoad(p, 66, Packed(kG3), 1, false, true, 1000); },
     "Alloc 250000 2", kRawLoad},
    {"header_by_file", PlayHeaderLoad, "Alloc 250000 2", kRawLoad},
    {"probe", [](Play& p) { PlayProbe(p, false); }, "Alloc 250000 2", kRawLoad, kProbe},
    {"probe_by_file", [](Play& p) { PlayProbe(p, true); }, "Alloc 250000 2", kRawLoad, kProbe},
    {"tiled_load", [](Play& p) { PlayTiledLoad(p, 64); }, "Alloc 250000 2", kDecoder + 500000 + kTileRow,
     kTiles},
    {"strip_load", [](Play& p) { PlayTiledLoad(p, 100); }, "Alloc 250000 2", kDecoder + 500000 + kTileRow,
     kTiles},
    {"buffer_load", [](Play& p) { PlayBuffer(p, false); }, "StartRedirect", kDecoder + 1000000 + kMirrored},
    {"buffer_save", [](Play& p) { PlayBuffer(p, true); }, nullptr, kEncoder, {{"Write", SUCCESS}}},
    {"G3_save", [](Play& p) { PlayRawSave(p, 66); }, nullptr, kEncoder},
    {"all_2D_save", [](Play& p) { PlayRawSave(p, 117); }, nullptr, kEncoder, {{"Write", ERROR_NO_MEMORY}}},
    {"save_by_file", PlayFileSave, nullptr, kEncoder, {{"Open", ERROR_FILE_CREATE}}},
    {"tiled_save",
     [](Play& p) { PlayTiledSave(p, false); },
     nullptr,
     kEncoder + kTileRow,
     {{"Write 0", kAny}}},
    {"tiled_save_with_own_counts", [](Play& p) { PlayTiledSave(p, true); }, nullptr, kEncoder + 2 * kTileRow},
    {"one_tile", PlayOneTile, nullptr, kEncoder},
    {"G4_decoder", [](Play& p) { PlayDecoder(p, 68, false); }, nullptr, kDecoder},
    {"G3_decoder", [](Play& p) { PlayDecoder(p, 67, false); }, nullptr, kDecoder},
    {"stream_probe", [](Play& p) { PlayDecoder(p, 66, true); }, nullptr, kDecoder},
    {"G4_encoder", [](Play& p) { PlayEncoder(p, 68); }, nullptr, kEncoder, kNoStatus},
    {"G3_encoder", [](Play& p) { PlayEncoder(p, 66); }, nullptr, kEncoder, kNoStatus},
    {"palette", PlayPalette, nullptr, 0, {{"Palette", FAILURE}}},
    {"redirection", [](Play& p) { PlayRedirection(p, false); }, nullptr, 0},
    {"redirection_to_own_buffer", [](Play& p) { PlayRedirection(p, true); }, nullptr, 0}};

int ExpectedStatus(const Scenario& scenario, const Play& play) {
    for (const std::string& key : {play.call, play.name})
        for (const Statuses* statuses : {&scenario.statuses, &kStatuses})
            if (const auto found = statuses->find(key); found != statuses->end())
                return found->second;
    return SUCCESS;
}

// What becomes of an exception: a status, or it leaves the operation.
constexpr int kLeaves = 4712;

int ExpectedOfThrow(const Scenario& scenario, const Play& play) {
    const std::string last = scenario.lastUnguarded ? scenario.lastUnguarded : "-";
    if (CallsNamed(last).empty() || play.call.rfind(last, 0) == 0 || play.name == "Close")
        return kLeaves;
    // The tiled loader's clean-up comes behind its result.
    const bool cleanUp = play.name == "Free" || play.name == "IntReleaseBitmap" || play.name == "FreeBitmap";
    return cleanUp && !CallsNamed("InitBitmap").empty() ? SUCCESS : ERROR_EXCEPTION;
}

class Faults : public testing::TestWithParam<std::tuple<Scenario, Fault>> {};

TEST_P(Faults, AtEveryCall) {
    const auto& [scenario, fault] = GetParam();
    for (unsigned n = 1;; ++n) {
        ResetTestKernel();
        KernelInUse().fault = fault;
        KernelInUse().faultAt = n;
        Play play;
        scenario.play(play);
        SCOPED_TRACE("call " + std::to_string(n) + ", " + play.call);
        EXPECT_EQ(KernelInUse().badFrees + KernelInUse().badCloses, 0u);
        if (play.call.empty()) {
            EXPECT_TRUE(NothingHeld());
            EXPECT_EQ(play.status, SUCCESS);
            EXPECT_EQ(KernelInUse().mostHeld, scenario.mostHeld);
            return;
        }
        // A throw out of the codec's last releases ends the call at once: what it had not come to stays.
        const bool mayHold = scenario.lastUnguarded && fault == Fault::Throw &&
                             (play.call == "Free 1000000" || play.call == "Free 200000");
        EXPECT_TRUE(mayHold || NothingHeld());
        const int wanted =
            fault == Fault::Throw ? ExpectedOfThrow(scenario, play) : ExpectedStatus(scenario, play);
        EXPECT_EQ(play.thrown, fault == Fault::Throw && wanted == kLeaves);
        EXPECT_TRUE(play.thrown || wanted == kAny || play.status == wanted) << play.status;
    }
}

std::string CaseName(const testing::TestParamInfo<Faults::ParamType>& tested) {
    const char* const faults[] = {"_fails", "_comes_short", "_throws"};
    return std::get<0>(tested.param).name + std::string(faults[static_cast<int>(std::get<1>(tested.param))]);
}

INSTANTIATE_TEST_SUITE_P(Operations, Faults,
                         testing::Combine(testing::ValuesIn(kScenarios),
                                          testing::Values(Fault::Fail, Fault::Short, Fault::Throw)),
                         CaseName);

// A thread that ends inside a call is unwound: the process goes on, and the operation gives everything back.
class EndOfThread : public testing::TestWithParam<Scenario> {};

TEST_P(EndOfThread, AtEveryCall) {
    for (unsigned n = 1;; ++n) {
        ResetTestKernel();
        KernelInUse().fault = Fault::EndThread;
        KernelInUse().faultAt = n;
        RunOnThread([] {
            Play play;
            GetParam().play(play);
        });
        SCOPED_TRACE("call " + std::to_string(n) + ", " + KernelInUse().faulted);
        EXPECT_TRUE(NothingHeld());
        const auto calls = [](const char* name) { return CallsNamed(name).size(); };
        EXPECT_EQ(calls("Start") - calls("StartRedirect"), calls("End"));
        EXPECT_EQ(calls("FreeBitmap"),
                  calls("AllocateBitmap") - (KernelInUse().faulted == "AllocateBitmap 513"));
        const bool notStarted = KernelInUse().faulted.rfind("StartRedirect", 0) == 0;
        EXPECT_EQ(calls("StopRedirect"), notStarted ? 0 : calls("StartRedirect"));
        if (KernelInUse().faulted.empty())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, EndOfThread, testing::ValuesIn(kScenarios),
                         [](const auto& tested) { return tested.param.name; });

} // namespace
