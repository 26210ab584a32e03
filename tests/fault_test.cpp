// Every kernel call and callback of every operation gone wrong in turn: failed, come back short, thrown, or
// the end of its thread. The status is the one that belongs to the call, nothing is leaked and nothing is
// given back twice. The run in which nothing goes wrong shows how much memory the operation holds at most.
#include <cerrno>
#include <cxxabi.h>

#include "API/Filters/Fax/Fax.h"
#include "tests/save_run.h"
#include "tests/tile_grid.h"

namespace {

constexpr int ANY = 4711;

// The status by the call that went wrong: with its arguments, or by its name. Others do not fail anything.
using Statuses = std::map<std::string, int>;
const Statuses STATUSES = {{"Open", ERROR_FILE_OPEN},     {"Alloc", ERROR_NO_MEMORY},
                           {"Rows", CALLBACK_FAILED},     {"Start", CALLBACK_STOPS},
                           {"GetRow", CALLBACK_STOPS},    {"Row", CALLBACK_STOPS},
                           {"Write", ERROR_FILE_WRITE},   {"AllocateBitmap", ERROR_NO_MEMORY},
                           {"IntReleaseBitmap", FAILURE}, {"StartRedirect", FAILURE},
                           {"ExpandRows", FAILURE},       {"CompressRow", FAILURE},
                           {"Read 20", ERROR_FILE_READ},  {"Read 1", ERROR_FILE_READ},
                           {"Read 8", ERROR_FILE_READ},   {"Read 13", ERROR_FILE_READ}};

// An operation in which a call goes wrong.
struct Play {
    template <typename Operation>
    void run(Operation operation) {
        try {
            status = operation();
        } catch (const KernelFault&) {
            thrown = true;
        }
        call = testKernel().faulted;
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
};

const Bits G3 = repeated(EOL + "1" + line1D({100, 100, 1528}) + EOL + "0" + repeated(V0, 3), 130);
const Bits G4 = repeated(horizontal(100, 100) + V0 + VL1 + VR1 + V0, 300);

void playLoad(Play& play, int format, const Bytes& stream, unsigned flags, bool batches, bool byFile,
              int height) {
    testKernel().files["page"] = stream;
    LoadRun load(stream, format, 1728, height);
    load.dispatch->Flags = batches ? LOADDISPATCH_BATCHES : 0;
    load.dispatch->FileName = "page";
    load.info().Flags = flags;
    load.fileInfo->Format = format;
    load.fileInfo->Width = 1728;
    load.fileInfo->Height = height;
    play.run([&] { return byFile ? fltLoad(load.dispatch.get()) : load.run(); });
    const bool whole = !play.thrown && play.status == SUCCESS;
    EXPECT_LE(load.rows.size(), static_cast<size_t>(height));
    EXPECT_TRUE(!whole || load.rows.size() == static_cast<size_t>(height));
}

void playHeaderLoad(Play& play) {
    Bytes file = packed(G4);
    file.insert(file.begin(), 512, uint8_t{1});
    playLoad(play, FORMAT_FAX_G4_HEADER, file, 1, true, true, 20);
}

void playProbe(Play& play, bool byFile) {
    LoadRun load(packed(G3), -1, 1728, -1);
    testKernel().files["page"] = load.file.bytes;
    load.fileInfo->Flags = FILEINFO_PROBE_RAW;
    _INFODISPATCH info = {};
    info.FileName = "page";
    info.FileInfo = load.fileInfo.get();
    play.run([&] {
        return byFile ? fltInfo(&info)
                      : K_LoadRawFax(nullptr, load.file.handle(), &load.info(), nullptr, nullptr, nullptr, 1,
                                     nullptr);
    });
}

extern "C" int countRows(_FILEINFOA*, _BITMAPHANDLE*, unsigned short*, unsigned, int, int rowCount, void*) {
    return enterCall("Rows " + std::to_string(rowCount)) ? CALLBACK_FAILED : SUCCESS;
}

void playTiledLoad(Play& play, unsigned tileWidth) {
    TiledLoad load(pictureOf(100, 20), 100, tileWidth, 16);
    load.makeRaw(load.grid.across - 1);
    load.callback = countRows; // the rows may be anything now
    play.run([&] { return load.load(); });
    const bool allocated = !callsNamed("AllocateBitmap").empty() && play.name != "AllocateBitmap";
    if (testKernel().fault != Fault::Throw || play.name != "IntReleaseBitmap") {
        EXPECT_EQ(callsNamed("FreeBitmap").size(), allocated ? 1u : 0u);
    }
}

void playBuffer(Play& play, bool saving) {
    static const Bytes stream = codedPicture(pictureOf(100, 5, NOISE), 100, 66);
    Bytes input = saving ? joined(pictureOf(100, 5, NOISE)) : stream;
    Bytes output(1000);
    unsigned long long size = output.size();
    _BITMAPINFOHEADER info = {};
    info.Width = 100;
    info.Height = 5;
    info.BitsPerPixel = 1;
    play.run([&] {
        return saving ? fltSaveBuffer(input.data(), &info, output.data(), &size, 0, 0, 66, 0, 0)
                      : fltLoadBuffer(input.data(), input.size(), output.data(), 66, 100, 5, 0, 0,
                                      LOADINFO_MIRROR);
    });
    const bool failed = play.name == "StartRedirect" || callsNamed("StartRedirect").empty();
    EXPECT_TRUE(play.thrown || failed || testKernel().trace.back() == "StopRedirect");
    EXPECT_TRUE(play.name != "Alloc" || size == output.size());
}

template <typename Operation>
void playSave(Play& play, SaveRun& save, Operation operation) {
    play.run(operation);
    EXPECT_EQ(save.starts, play.name == "Open" ? 0 : 1);
    EXPECT_EQ(save.ends, save.starts);
}

// Rows of 33 KB: a flush every five of them.
void playRawSave(Play& play, unsigned format) {
    static const Picture picture = pictureOf(60000, 12, ALTERNATING);
    SaveRun save(picture, 60000, static_cast<int>(format));
    save.rowCallback = traceRow;
    errno = format == 66 ? 0 : ENOMEM;
    playSave(play, save, [&] { return save.run(); });
    errno = 0;
    if (play.thrown)
        return;
    EXPECT_EQ(testKernel().trace.back(), "End");
    if (play.name == "Start" || play.name == "Alloc") {
        EXPECT_TRUE(save.file.bytes.empty());
        EXPECT_EQ(save.size, 0xABCDu);
        return;
    }
    // The stream of the rows that came through, trailer and all, without what a bad write dropped.
    const Picture done(picture.begin(), picture.begin() + save.rowCalls - (play.name == "Row"));
    const Bytes stream = codedPicture(done, 60000, format);
    EXPECT_EQ(save.size, stream.size());
    EXPECT_TRUE(play.name == "Write" || save.file.bytes == stream);
}

void playFileSave(Play& play) {
    SaveRun save(pictureOf(100, 2), 100, 67);
    testKernel().files["page"] = {};
    save.dispatch->FileName = "page";
    errno = 0;
    playSave(play, save, [&] { return fltSave(save.dispatch.get()); });
}

void playTiledSave(Play& play, bool ownCounts) {
    Grid grid(100, 20, 64, 16);
    if (ownCounts)
        grid.info.TileByteCounts = nullptr;
    SaveRun save(pictureOf(100, 20, NOISE), 100, 66);
    playSave(play, save,
             [&] { return save.runTiled(&grid.info, ownCounts ? nullptr : grid.uncompressed.data()); });
    EXPECT_EQ(grid.info.TileByteCounts, ownCounts ? nullptr : grid.counts.data());
}

// The codec's own functions, as a container filter calls them; a throw leaves the release to do.
template <typename Release, typename Operation>
void playCodec(Play& play, Release release, Operation operation) {
    play.run([&] {
        try {
            const int status = operation();
            release();
            return status;
        } catch (abi::__forced_unwind&) {
            release();
            throw;
        }
    });
    try {
        release();
    } catch (const KernelFault&) {
        ADD_FAILURE() << "released twice";
    }
}

void playDecoder(Play& play, unsigned format, bool probe) {
    CCITTG34 codec = {};
    MemoryFile file(packed(format == 68 ? repeated(G4, 20) : G3));
    std::vector<unsigned short> rows(ROW_AREA_WORDS);
    const auto decode = format == 68 ? DecodeG4 : DecodeG3;
    playCodec(
        play, [&] { QuitDecodeG34(&codec, 1); },
        [&] {
            const int status =
                InitDecodeG34(nullptr, &codec, format, probe ? 0 : 1728, 0, file.handle(), 1, 0);
            for (int i = 0; status == SUCCESS && !probe && i < 300; ++i)
                EXPECT_EQ(decode(&codec, rows.data(), 1), 1u);
            if (status == SUCCESS && probe)
                InfoDecodeG3(&codec, rows.data());
            return status;
        });
}

void playEncoder(Play& play, unsigned format) {
    static const Picture picture = pictureOf(60000, 6, ALTERNATING);
    CCITTG34 codec = {};
    MemoryFile file({});
    int failed = 0;
    playCodec(
        play, [&] { QuitEncodeG34(&codec); },
        [&] {
            failed = InitEncodeG34(nullptr, &codec, format, 60000, 0, file.handle());
            for (const Bytes& row : picture)
                if (failed == 0)
                    (format == 68 ? EncodeG4 : EncodeG3)(&codec, Bytes(row).data());
            return SUCCESS;
        });
    EXPECT_EQ(failed, play.name == "Alloc" && !play.thrown ? 1 : 0);
    EXPECT_TRUE(play.thrown || (codec.WriteStatus != 0) == (play.name == "Write"));
}

void playOneTile(Play& play) {
    SaveRun save(pictureOf(100, 16), 100, 68);
    Grid grid(100, 16, 104, 16);
    CCITTG34 codec = {};
    Bytes row(16);
    unsigned size = 0;
    save.tiled = true;
    save.dispatch->CallbackParam = 78;
    playCodec(
        play, [&] { QuitEncodeG34(&codec); },
        [&] {
            return SaveFaxTile(save.dispatch.get(), save.file.handle(), &codec, 68, &grid.info, 0, 0, 0, 13,
                               0, &size, &save.saveBitmap, save.saveFile.get(), row.data(), 1);
        });
}

void playPalette(Play& play) {
    LoadRun load({}, 68, 1, 1);
    play.run([&] { return SetBitmapPalette(load.dispatch.get(), &load.info(), &load.bitmap); });
}

void playRedirection(Play& play, bool ownBuffer) {
    void* redirect = nullptr;
    tagHANDLE* handle = nullptr;
    Bytes bytes(10);
    play.run([&] {
        const int started = ownBuffer
                                ? StartRedirectToBuffer(&redirect, &handle, REDIRECT_WRITE)
                                : StartRedirectToBuffer(&redirect, &handle, REDIRECT_READ, bytes.data(), 10);
        return started == SUCCESS ? StopRedirectToBuffer(redirect, nullptr, nullptr) : started;
    });
}

const Statuses PROBE = {{"Read", ANY}, {"Seek", ANY}}; // it may find another stream
const Statuses TILES = {{"IntAccessBitmap", FAILURE}};
const Statuses NO_STATUS = {{"Alloc", SUCCESS}, {"Write", SUCCESS}}; // the record tells

constexpr size_t DECODER = 2 * 1000000 + 200000; // two change lists, input
constexpr size_t RAW_LOAD = DECODER + 502000 + 500000;
constexpr size_t MIRRORED = 168000; // what a mirror buffer has more
constexpr size_t ENCODER = 2 * 1000000 + 200000;
constexpr size_t TILE_ROW = 16;

const Scenario scenarios[] = {
    {"G4_in_batches", [](Play& p) { playLoad(p, 68, packed(repeated(G4, 20)), 1, true, false, 250); },
     "Alloc 250000 2", RAW_LOAD},
    {"G4_mirrored", [](Play& p) { playLoad(p, 68, packed(G4), LOADINFO_MIRROR, false, false, 250); },
     "Alloc 334000 2", RAW_LOAD + MIRRORED},
    {"G3_by_file",
     [](Play& p) { playLoad(p, 67, packed(G3, true), LOADINFO_REVERSED_BITS, true, true, 250); },
     "Alloc 250000 2", RAW_LOAD},
    {"truncated_G3_by_file", [](Play& p) { playLoad(p, 66, packed(G3), 1, false, true, 1000); },
     "Alloc 250000 2", RAW_LOAD},
    {"header_by_file", playHeaderLoad, "Alloc 250000 2", RAW_LOAD},
    {"probe", [](Play& p) { playProbe(p, false); }, "Alloc 250000 2", RAW_LOAD, PROBE},
    {"probe_by_file", [](Play& p) { playProbe(p, true); }, "Alloc 250000 2", RAW_LOAD, PROBE},
    {"tiled_load", [](Play& p) { playTiledLoad(p, 64); }, "Alloc 250000 2", DECODER + 500000 + TILE_ROW,
     TILES},
    {"strip_load", [](Play& p) { playTiledLoad(p, 100); }, "Alloc 250000 2", DECODER + 500000 + TILE_ROW,
     TILES},
    {"buffer_load", [](Play& p) { playBuffer(p, false); }, "StartRedirect", DECODER + 1000000 + MIRRORED},
    {"buffer_save", [](Play& p) { playBuffer(p, true); }, nullptr, ENCODER, {{"Write", SUCCESS}}},
    {"G3_save", [](Play& p) { playRawSave(p, 66); }, nullptr, ENCODER},
    {"all_2D_save", [](Play& p) { playRawSave(p, 117); }, nullptr, ENCODER, {{"Write", ERROR_NO_MEMORY}}},
    {"save_by_file", playFileSave, nullptr, ENCODER, {{"Open", ERROR_FILE_CREATE}}},
    {"tiled_save", [](Play& p) { playTiledSave(p, false); }, nullptr, ENCODER + TILE_ROW, {{"Write 0", ANY}}},
    {"tiled_save_with_own_counts", [](Play& p) { playTiledSave(p, true); }, nullptr, ENCODER + 2 * TILE_ROW},
    {"one_tile", playOneTile, nullptr, ENCODER},
    {"G4_decoder", [](Play& p) { playDecoder(p, 68, false); }, nullptr, DECODER},
    {"G3_decoder", [](Play& p) { playDecoder(p, 67, false); }, nullptr, DECODER},
    {"stream_probe", [](Play& p) { playDecoder(p, 66, true); }, nullptr, DECODER},
    {"G4_encoder", [](Play& p) { playEncoder(p, 68); }, nullptr, ENCODER, NO_STATUS},
    {"G3_encoder", [](Play& p) { playEncoder(p, 66); }, nullptr, ENCODER, NO_STATUS},
    {"palette", playPalette, nullptr, 0, {{"Palette", FAILURE}}},
    {"redirection", [](Play& p) { playRedirection(p, false); }, nullptr, 0},
    {"redirection_to_own_buffer", [](Play& p) { playRedirection(p, true); }, nullptr, 0}};

int expectedStatus(const Scenario& scenario, const Play& play) {
    for (const std::string& key : {play.call, play.name})
        for (const Statuses* statuses : {&scenario.statuses, &STATUSES})
            if (const auto found = statuses->find(key); found != statuses->end())
                return found->second;
    return SUCCESS;
}

// What becomes of an exception: a status, or it leaves the operation.
constexpr int LEAVES = 4712;

int expectedOfThrow(const Scenario& scenario, const Play& play) {
    const std::string last = scenario.lastUnguarded == nullptr ? "-" : scenario.lastUnguarded;
    if (callsNamed(last).empty() || play.call.rfind(last, 0) == 0 || play.name == "Close")
        return LEAVES;
    // The tiled loader's clean-up comes behind its result.
    const bool cleanUp = play.name == "Free" || play.name == "IntReleaseBitmap" || play.name == "FreeBitmap";
    return cleanUp && !callsNamed("InitBitmap").empty() ? SUCCESS : ERROR_EXCEPTION;
}

class Faults : public testing::TestWithParam<std::tuple<Scenario, Fault>> {};

TEST_P(Faults, AtEveryCall) {
    const auto& [scenario, fault] = GetParam();
    for (unsigned n = 1;; ++n) {
        resetTestKernel();
        testKernel().fault = fault;
        testKernel().faultAt = n;
        Play play;
        scenario.play(play);
        SCOPED_TRACE("call " + std::to_string(n) + ", " + play.call);
        EXPECT_EQ(testKernel().badFrees + testKernel().badCloses, 0u);
        if (play.call.empty()) {
            EXPECT_TRUE(nothingHeld());
            EXPECT_EQ(play.status, SUCCESS);
            EXPECT_EQ(testKernel().mostHeld, scenario.mostHeld);
            return;
        }
        // A throw out of the codec's last releases ends the call at once: what it had not come to stays.
        const bool mayHold = scenario.lastUnguarded != nullptr && fault == Fault::Throw &&
                             (play.call == "Free 1000000" || play.call == "Free 200000");
        EXPECT_TRUE(mayHold || nothingHeld());
        const int wanted =
            fault == Fault::Throw ? expectedOfThrow(scenario, play) : expectedStatus(scenario, play);
        EXPECT_EQ(play.thrown, fault == Fault::Throw && wanted == LEAVES);
        EXPECT_TRUE(play.thrown || wanted == ANY || play.status == wanted) << play.status;
    }
}

std::string caseName(const testing::TestParamInfo<Faults::ParamType>& tested) {
    const char* const faults[] = {"_fails", "_comes_short", "_throws"};
    return std::get<0>(tested.param).name + std::string(faults[static_cast<int>(std::get<1>(tested.param))]);
}

INSTANTIATE_TEST_SUITE_P(Operations, Faults,
                         testing::Combine(testing::ValuesIn(scenarios),
                                          testing::Values(Fault::Fail, Fault::Short, Fault::Throw)),
                         caseName);

// A thread that ends inside a call is unwound: the process goes on, and the operation gives everything back.
class EndOfThread : public testing::TestWithParam<Scenario> {};

TEST_P(EndOfThread, AtEveryCall) {
    for (unsigned n = 1;; ++n) {
        resetTestKernel();
        testKernel().fault = Fault::EndThread;
        testKernel().faultAt = n;
        runOnThread([] {
            Play play;
            GetParam().play(play);
        });
        SCOPED_TRACE("call " + std::to_string(n) + ", " + testKernel().faulted);
        EXPECT_TRUE(nothingHeld());
        const auto calls = [](const char* name) { return callsNamed(name).size(); };
        EXPECT_EQ(calls("Start") - calls("StartRedirect"), calls("End"));
        EXPECT_EQ(calls("FreeBitmap"),
                  calls("AllocateBitmap") - (testKernel().faulted == "AllocateBitmap 513"));
        const bool notStarted = testKernel().faulted.rfind("StartRedirect", 0) == 0;
        EXPECT_EQ(calls("StopRedirect"), notStarted ? 0 : calls("StartRedirect"));
        if (testKernel().faulted.empty())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, EndOfThread, testing::ValuesIn(scenarios),
                         [](const auto& tested) { return tested.param.name; });

} // namespace
