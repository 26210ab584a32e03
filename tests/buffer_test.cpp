// fltLoadBuffer and fltSaveBuffer: blocks in memory, the calls they cost and the requests they refuse.
#include <algorithm>
#include <gtest/gtest.h>

#include "API/Filters/Fax/Fax.h"
#include "tests/codec_run.h"
#include "tests/encode_run.h"

namespace {

using Trace = std::vector<std::string>;

struct SaveCall {
    Picture picture;
    int width;
    int format = 68;
    unsigned flags = 0;
    int height = -1; // minus the picture's: top-down rows
    size_t capacity = 1000000;
    unsigned long long size = 0;
    Bytes destination = {};

    int run() {
        Bytes source;
        for (const Bytes& row : picture)
            source.insert(source.end(), row.begin(), row.end());
        source.reserve(1); // not null
        _BITMAPINFOHEADER info = {};
        info.Width = width;
        info.Height = height < 0 ? -static_cast<int>(picture.size()) : height;
        info.BitsPerPixel = 1;
        destination.assign(capacity, 0xEE);
        size = capacity;
        return fltSaveBuffer(source.data(), &info, destination.data(), &size, 1, flags, format, 2, 0);
    }
    Bytes stream() const {
        return Bytes(destination.begin(), destination.begin() + static_cast<ptrdiff_t>(size));
    }
};

struct LoadCall {
    Bytes stream;
    int format, width, height;
    unsigned flags = 0;
    Bytes output = {};

    int run() {
        output.assign(static_cast<size_t>((std::clamp(width, 0, 70000) + 7) / 8 * std::max(height, 1)), 0xEE);
        return fltLoadBuffer(stream.data(), stream.size(), output.data(), format, width, height, 3, 4, flags);
    }
    Picture rows() const {
        const size_t rowBytes = (static_cast<size_t>(width) + 7) / 8;
        Picture picture;
        for (size_t at = 0; at + rowBytes <= output.size(); at += rowBytes)
            picture.emplace_back(output.begin() + static_cast<ptrdiff_t>(at),
                                 output.begin() + static_cast<ptrdiff_t>(at + rowBytes));
        return picture;
    }
};

Picture noise(unsigned width, size_t rows, int kind = NOISE) {
    std::mt19937 random(width);
    return makePicture(random, kind, width, rows);
}

Line mirrored(const Line& line, unsigned width) {
    Line changes;
    if (line.size() % 2 != 0)
        changes.push_back(0);
    for (auto change = line.rbegin(); change != line.rend(); ++change)
        if (*change != 0)
            changes.push_back(width - *change);
    return changes;
}

class Buffers : public testing::Test {
protected:
    void SetUp() override { resetTestKernel(); }
    void TearDown() override { EXPECT_TRUE(nothingHeld()); }
};

TEST_F(Buffers, WhatOneWritesTheOtherReads) {
    for (const int format : {66, 67, 68, 117, 162, 4711})
        for (const unsigned width : {1u, 9u, 100u, 1728u, 65535u})
            for (unsigned flags = 0; flags < 8; ++flags)
                for (const bool mirror : {false, true}) {
                    SCOPED_TRACE(testing::Message() << format << " width " << width << " flags " << flags);
                    resetTestKernel();
                    SaveCall save{noise(width, 9, flags % 2 != 0 ? PAGE : NOISE), static_cast<int>(width),
                                  format};
                    save.flags = flags;
                    EXPECT_EQ(save.run(), SUCCESS);
                    ASSERT_EQ(save.stream(),
                              codedPicture(save.picture, width, static_cast<unsigned>(format), flags, 2));
                    LoadCall load{save.stream(), format, static_cast<int>(width), 9};
                    load.flags = (flags & 1 ? LOADINFO_REVERSED_BITS : 0) | (mirror ? LOADINFO_MIRROR : 0) |
                                 0xFFFFFFB7;
                    load.flags &=
                        ~((flags & 1 ? 0 : LOADINFO_REVERSED_BITS) | (mirror ? 0 : LOADINFO_MIRROR));
                    EXPECT_EQ(load.run(), SUCCESS);
                    std::vector<Line> lines = linesOf(save.picture, width);
                    for (Line& line : lines)
                        line = mirror ? mirrored(line, width) : line;
                    EXPECT_TRUE(linesOf(load.rows(), width) == lines) << (mirror ? "mirrored" : "");
                    EXPECT_TRUE(nothingHeld());
                }
}

TEST_F(Buffers, CallsInTheirOrder) {
    SaveCall save{noise(1728, 300), 1728};
    save.height = 20;
    EXPECT_EQ(save.run(), SUCCESS);
    EXPECT_EQ(testKernel().trace, (Trace{"StartRedirect 8 1000000", "Alloc 250000 4", "Alloc 250000 4",
                                         "Alloc 200000 1", "Write " + std::to_string(save.size),
                                         "Free 1000000", "Free 1000000", "Free 200000", "StopRedirect"}));
    resetTestKernel();
    LoadCall load{save.stream(), 68, 1728, 20};
    EXPECT_EQ(load.run(), SUCCESS);
    const std::string size = std::to_string(save.size);
    EXPECT_EQ(testKernel().trace,
              (Trace{"Alloc 250000 2", "Alloc 250000 2", "StartRedirect 4 " + size, "Alloc 250000 4",
                     "Alloc 250000 4", "Alloc 200000 1", "Read " + size, "ExpandRows 1728 20", "Free 500000",
                     "Free 500000", "Free 1000000", "Free 1000000", "Free 200000", "StopRedirect"}));
    resetTestKernel();
    load.flags = LOADINFO_MIRROR;
    EXPECT_EQ(load.run(), SUCCESS);
    const Trace& trace = testKernel().trace;
    ASSERT_EQ(trace.size(), 15u);
    EXPECT_EQ(trace[1], "Alloc 334000 2");
    EXPECT_EQ(trace[7] + ", " + trace[8], "Mirror 20, ExpandRows 1728 20");
}

TEST_F(Buffers, SavesNoRowsAndTopDownRows) {
    SaveCall none{noise(9, 1), 9};
    none.height = 0;
    EXPECT_EQ(none.run(), SUCCESS);
    EXPECT_EQ(none.stream(), (Bytes{0, 0x10, 1, 0}));
    SaveCall widest{noise(65535, 2), 65535};
    EXPECT_EQ(widest.run(), SUCCESS);
}

TEST_F(Buffers, RefusesWhatItCannotSave) {
    uint8_t byte = 0;
    unsigned long long size = 1;
    _BITMAPINFOHEADER good = {};
    good.Width = 8;
    good.BitsPerPixel = 1;
    const auto save = [&](uint8_t* source, _BITMAPINFOHEADER* info, uint8_t* destination,
                          unsigned long long* bytes, unsigned long long last) {
        return fltSaveBufferFAX(source, info, destination, bytes, 0, 0, 68, 0, last);
    };
    EXPECT_EQ(save(nullptr, &good, &byte, &size, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, &good, nullptr, &size, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, &good, &byte, nullptr, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, nullptr, &byte, &size, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, &good, &byte, &size, 1), ERROR_NULL_PTR);
    for (const int width : {65536, 0, -1}) {
        _BITMAPINFOHEADER info = good;
        info.Width = width;
        EXPECT_EQ(save(&byte, &info, &byte, &size, 0), ERROR_INV_PARAMETER) << width;
        info.BitsPerPixel = 8;
        EXPECT_EQ(save(&byte, &info, &byte, &size, 0), ERROR_NULL_PTR) << width;
    }
    EXPECT_TRUE(testKernel().trace.empty());
}

TEST_F(Buffers, TellsWhenTheDestinationIsTooSmall) {
    const Bytes stream = codedPicture(noise(100, 30), 100, 67, 0, 2);
    for (const size_t capacity : {size_t{0}, size_t{1}, stream.size() - 1, stream.size()}) {
        SaveCall save{noise(100, 30), 100, 67};
        save.capacity = capacity;
        save.destination.reserve(1);
        EXPECT_EQ(save.run(), capacity < stream.size() ? ERROR_BUFFER_TOO_SMALL : SUCCESS) << capacity;
        EXPECT_EQ(save.size, stream.size());
    }
}

TEST_F(Buffers, RefusesWhatItCannotLoad) {
    LoadCall load{{0x80}, 68, 65536, 1};
    EXPECT_EQ(load.run(), ERROR_INV_PARAMETER);
    EXPECT_EQ(fltLoadBufferFAX(nullptr, 1, load.output.data(), 68, 8, 1, 0, 0, 0), ERROR_NULL_PTR);
    EXPECT_EQ(fltLoadBufferFAX(load.stream.data(), 1, nullptr, 68, 8, 1, 0, 0, 0), ERROR_NULL_PTR);
    EXPECT_TRUE(testKernel().trace.empty());
    for (const int height : {0, -3}) {
        LoadCall none{{0x80}, 68, 8, height};
        EXPECT_EQ(none.run(), SUCCESS);
        EXPECT_EQ(none.output, Bytes(1, 0xEE));
        EXPECT_EQ(std::count(testKernel().trace.begin(), testKernel().trace.end(), "Read 1"), 1);
        resetTestKernel();
    }
}

// An extension that is not uncompressed mode ends a G4 block: what it did not yield stays.
TEST_F(Buffers, LeavesTheRowsThatABlockLacks) {
    LoadCall load{packed(repeated(horizontal(3, 4) + V0, 1) + repeated(repeated(V0, 3), 9) + "0000001000"),
                  68, 9, 20};
    EXPECT_EQ(load.run(), SUCCESS);
    const Picture rows = load.rows();
    for (size_t y = 0; y < 20; ++y)
        EXPECT_EQ(rows[y], y < 10 ? packedRow({3, 4, 2}) : Bytes({0xEE, 0xEE})) << y;
}

// More rows than the run buffer holds come in several goes; mirrored ones may take a word more each.
TEST_F(Buffers, LoadsInSeveralGoes) {
    const unsigned width = 2001;
    for (const bool mirror : {false, true}) {
        resetTestKernel();
        const Picture picture = noise(width, 400, ALTERNATING);
        LoadCall load{codedPicture(picture, width, 66), 66, static_cast<int>(width), 400};
        load.flags = mirror ? LOADINFO_MIRROR : 0;
        EXPECT_EQ(load.run(), SUCCESS);
        std::vector<Line> lines = linesOf(picture, width);
        for (Line& line : lines)
            line = mirror ? mirrored(line, width) : line;
        EXPECT_TRUE(linesOf(load.rows(), width) == lines);
        EXPECT_GE(std::count_if(testKernel().trace.begin(), testKernel().trace.end(),
                                [](const std::string& entry) { return entry.rfind("ExpandRows", 0) == 0; }),
                  4);
    }
}

class BufferFaults : public testing::TestWithParam<std::tuple<bool, Fault>> {};

TEST_P(BufferFaults, AtEveryCall) {
    const auto [saving, fault] = GetParam();
    const Bytes stream = codedPicture(noise(100, 5), 100, 66);
    bool hit = true;
    for (unsigned n = 1; hit; ++n) {
        resetTestKernel();
        testKernel().fault = fault;
        testKernel().faultAt = n;
        SaveCall save{noise(100, 5), 100, 66};
        LoadCall load{stream, 66, 100, 5, LOADINFO_MIRROR};
        int status = 0;
        bool thrown = false;
        try {
            status = saving ? save.run() : load.run();
        } catch (const KernelFault&) {
            thrown = true;
        }
        const std::string call = testKernel().faulted;
        hit = !call.empty();
        SCOPED_TRACE("call " + std::to_string(n) + ", " + call);
        const auto is = [&](const char* name) { return call.rfind(name, 0) == 0; };
        const Trace& trace = testKernel().trace;
        const bool redirected = std::any_of(trace.begin(), trace.end(), [](const std::string& entry) {
            return entry.rfind("StartRedirect", 0) == 0;
        });
        EXPECT_EQ(testKernel().badFrees, 0u);
        // Where releasing the decoder's buffers throws, those behind stay.
        const bool lastRelease = fault == Fault::Throw && (is("Free 1000000") || is("Free 200000"));
        EXPECT_TRUE(nothingHeld() || (lastRelease && !saving));
        if (redirected && !is("StartRedirect") && !is("StopRedirect") && !thrown) {
            EXPECT_EQ(trace.back(), "StopRedirect");
        }
        if (fault == Fault::Throw && hit) {
            EXPECT_EQ(thrown, saving || !redirected || is("StartRedirect"));
            EXPECT_TRUE(thrown || status == ERROR_EXCEPTION) << status;
            continue;
        }
        EXPECT_FALSE(thrown);
        EXPECT_EQ(status, is("StartRedirect") || is("ExpandRows") ? FAILURE
                          : is("Alloc")                           ? ERROR_NO_MEMORY
                                                                  : SUCCESS);
        if (saving && is("Alloc")) {
            EXPECT_EQ(save.size, save.capacity);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Entries, BufferFaults,
                         testing::Combine(testing::Bool(),
                                          testing::Values(Fault::Fail, Fault::Short, Fault::Throw)));

} // namespace
