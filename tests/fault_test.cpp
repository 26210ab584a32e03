// Every kernel call and callback of a load gone wrong in turn: the status is the one that belongs to
// the call, nothing is leaked and nothing is given back twice.
#include <algorithm>
#include <gtest/gtest.h>

#include "API/Filters/Fax/Fax.h"
#include "tests/load_run.h"

namespace {

struct Scenario {
    const char* name;
    int format;
    Bytes stream;
    uint32_t loadFlags; // of _LOADINFO
    bool batches;
    bool throughFile; // fltLoad, or fltInfo where height is below 0
    int height;
};

const Bits G3 = repeated(EOL + "1" + line1D({100, 100, 1528}) + EOL + "0" + repeated(V0, 3), 130);
const Bits G4 = repeated(horizontal(100, 100) + V0 + VL1 + VR1 + V0, 300);

const Scenario scenarios[] = {
    {"G4 in batches", 68, packed(repeated(G4, 20)), 1, true, false, 250},
    {"G4 mirrored", 68, packed(G4), LOADINFO_MIRROR, false, false, 250},
    {"G3 by file", 67, packed(G3, true), LOADINFO_REVERSED_BITS, true, true, 250},
    {"truncated G3 by file", 66, packed(G3), 1, false, true, 1000},
    {"probe", -1, packed(G3), 0, false, false, -1},
    {"description by file", -1, packed(G3), 0, false, true, -1},
    {"header by file", FORMAT_FAX_G4_HEADER, Bytes(), 1, true, true, 20},
};

struct Outcome {
    int status = 0;
    bool thrown = false;
};

Outcome play(const Scenario& s, LoadRun& load) {
    Outcome outcome;
    load.dispatch->Flags = s.batches ? LOADDISPATCH_BATCHES : 0;
    load.info().Flags = s.loadFlags;
    load.dispatch->FileName = "page";
    load.fileInfo->Format = s.format;
    load.fileInfo->Width = 1728;
    load.fileInfo->Height = s.height;
    load.fileInfo->Flags = FILEINFO_PROBE_RAW;
    _INFODISPATCH info = {};
    info.FileName = "page";
    info.FileInfo = load.fileInfo.get();
    try {
        if (s.height >= 0)
            outcome.status = s.throughFile ? fltLoad(load.dispatch.get()) : load.run();
        else
            outcome.status = s.throughFile ? fltInfo(&info)
                                           : K_LoadRawFax(nullptr, load.file.handle(), &load.info(), nullptr,
                                                          nullptr, nullptr, 1, nullptr);
    } catch (const KernelFault&) {
        outcome.thrown = true;
    }
    return outcome;
}

class Faults : public testing::TestWithParam<std::tuple<size_t, Fault>> {};

std::string caseName(const testing::TestParamInfo<Faults::ParamType>& tested) {
    const char* const faults[] = {"Fail", "Short", "Throw"};
    std::string name = scenarios[std::get<0>(tested.param)].name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name + '_' + faults[static_cast<size_t>(std::get<1>(tested.param))];
}

TEST_P(Faults, AtEveryCall) {
    const Scenario& s = scenarios[std::get<0>(GetParam())];
    const Fault fault = std::get<1>(GetParam());
    Bytes file = s.stream;
    if (s.format == FORMAT_FAX_G4_HEADER) {
        file = packed(G4);
        file.insert(file.begin(), 512, uint8_t{1});
    }
    bool hit = true;
    for (unsigned n = 1; hit; ++n) {
        resetTestKernel();
        testKernel().files["page"] = file;
        testKernel().fault = fault;
        testKernel().faultAt = n;
        LoadRun load(s.stream, s.format, 1728, s.height);
        const Outcome outcome = play(s, load);
        const std::string call = testKernel().faulted;
        hit = !call.empty();
        SCOPED_TRACE(std::string(s.name) + ": call " + std::to_string(n) + ", " + call);
        const auto is = [&](const char* name) { return call.rfind(name, 0) == 0; };
        const std::vector<std::string>& trace = testKernel().trace;
        // The loader guards its calls from the seek behind its two allocations on.
        const bool inRawLoad = std::count_if(trace.begin(), trace.end(),
                                             [](const std::string& entry) {
                                                 return entry.rfind("Alloc", 0) == 0 && entry.back() == '2';
                                             }) == 2 &&
                               !(is("Alloc") && call.back() == '2');

        EXPECT_EQ(testKernel().badFrees, 0u);
        EXPECT_EQ(testKernel().badCloses, 0u);
        // A throw out of the codec's last releases ends the call at once: what it had not come to stays.
        const bool lastRelease = fault == Fault::Throw && (call == "Free 1000000" || call == "Free 200000");
        EXPECT_TRUE(lastRelease || nothingHeld());
        EXPECT_LE(load.rows.size(), static_cast<size_t>(std::max(0, s.height)));
        if (fault == Fault::Throw && hit) {
            const bool guarded = inRawLoad && !is("Close");
            EXPECT_EQ(outcome.thrown, !guarded);
            EXPECT_TRUE(outcome.thrown || outcome.status == ERROR_EXCEPTION) << outcome.status;
            continue;
        }
        EXPECT_FALSE(outcome.thrown);
        const int failure = is("Open")                              ? ERROR_FILE_OPEN
                            : is("Alloc")                           ? ERROR_NO_MEMORY
                            : is("Rows")                            ? CALLBACK_FAILED
                            : call == "Read 20" || call == "Read 1" ? ERROR_FILE_READ
                            : s.height < 0 && (is("Read") || is("Seek"))
                                ? outcome.status // it may find another
                                : SUCCESS;       // bad data fails no load
        EXPECT_EQ(outcome.status, failure);
        if (failure == SUCCESS && s.height >= 0) {
            EXPECT_EQ(load.rows.size(), static_cast<size_t>(s.height));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Loads, Faults,
                         testing::Combine(testing::Range(size_t{0}, std::size(scenarios)),
                                          testing::Values(Fault::Fail, Fault::Short, Fault::Throw)),
                         caseName);

} // namespace
