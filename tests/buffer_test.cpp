// fltLoadBuffer and fltSaveBuffer: blocks in memory, the calls they cost and the requests they refuse.
#include "API/Filters/Fax/Fax.h"
#include "tests/codec_run.h"
#include "tests/encode_run.h"

namespace {

struct SaveCall {
    Picture picture;
    int width;
    int format = 68;
    unsigned flags = 0;
    int height = -1; // minus the picture's: top-down rows
    size_t capacity = 1000000;
    unsigned long long size = 0;
    Bytes stream = {};

    int Run() {
        Bytes source = Joined(picture);
        _BITMAPINFOHEADER info = {};
        info.Width = width;
        info.Height = height < 0 ? -static_cast<int>(picture.size()) : height;
        info.BitsPerPixel = 1;
        stream.assign(capacity + 1, 0xEE);
        size = capacity;
        const int status = fltSaveBuffer(source.data(), &info, stream.data(), &size, 1, flags, format, 2, 0);
        EXPECT_EQ(stream[capacity], 0xEE);
        stream.resize(std::min<size_t>(size, capacity));
        return status;
    }
};

struct LoadCall {
    Bytes stream;
    int format, width, height;
    unsigned flags = 0;
    Picture rows = {};

    int Run() {
        const size_t rowBytes = (static_cast<size_t>(width) + 7) / 8;
        Bytes output(rowBytes * static_cast<size_t>(std::max(height, 1)), 0xEE);
        const int status =
            fltLoadBuffer(stream.data(), stream.size(), output.data(), format, width, height, 3, 4, flags);
        for (auto at = output.begin(); at != output.end(); at += static_cast<ptrdiff_t>(rowBytes))
            rows.emplace_back(at, at + static_cast<ptrdiff_t>(rowBytes));
        return status;
    }
};

std::vector<Line> MirroredLines(const Picture& picture, unsigned width) {
    std::vector<Line> lines;
    for (const Line& line : LinesOf(picture, width)) {
        lines.emplace_back(line.size() % 2, 0);
        for (auto change = line.rbegin(); change != line.rend(); ++change)
            if (*change != 0)
                lines.back().push_back(width - *change);
    }
    return lines;
}

class Buffers : public KernelTest {};

TEST_F(Buffers, CallsInTheirOrder) {
    SaveCall save{PictureOf(1728, 300, NOISE), 1728};
    save.height = 20;
    EXPECT_EQ(save.Run(), SUCCESS);
    const std::string size = std::to_string(save.size);
    EXPECT_EQ(KernelInUse().trace,
              (Trace{"StartRedirect 8 1000000", "Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1",
                     "Write " + size, "Free 1000000", "Free 1000000", "Free 200000", "StopRedirect"}));
    Trace wanted = {"Alloc 250000 2", "Alloc 250000 2",     "StartRedirect 4 " + size,
                    "Alloc 250000 4", "Alloc 250000 4",     "Alloc 200000 1",
                    "Read " + size,   "ExpandRows 1728 20", "Free 500000",
                    "Free 500000",    "Free 1000000",       "Free 1000000",
                    "Free 200000",    "StopRedirect"};
    for (const unsigned flags : {0u, LOADINFO_MIRROR}) {
        ResetTestKernel();
        LoadCall load{save.stream, 68, 1728, 20, flags};
        EXPECT_EQ(load.Run(), SUCCESS);
        EXPECT_EQ(KernelInUse().trace, wanted);
        wanted[1] = "Alloc 334000 2";
        wanted[9] = "Free 668000";
        wanted.insert(wanted.begin() + 7, "Mirror 20");
    }
}

TEST_F(Buffers, RefusesWhatItCannotSave) {
    uint8_t byte = 0;
    unsigned long long size = 1;
    const auto save = [&](uint8_t* source, uint8_t* destination, unsigned long long* bytes,
                          unsigned long long last, int width = 8, uint16_t bits = 1) {
        _BITMAPINFOHEADER info = {};
        info.Width = width;
        info.BitsPerPixel = bits;
        return fltSaveBufferFAX(source, &info, destination, bytes, 0, 0, 68, 0, last);
    };
    EXPECT_EQ(save(nullptr, &byte, &size, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, nullptr, &size, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, &byte, nullptr, 0), ERROR_NULL_PTR);
    EXPECT_EQ(save(&byte, &byte, &size, 1), ERROR_NULL_PTR);
    EXPECT_EQ(fltSaveBufferFAX(&byte, nullptr, &byte, &size, 0, 0, 68, 0, 0), ERROR_NULL_PTR);
    for (const int width : {65536, 0, -1}) {
        EXPECT_EQ(save(&byte, &byte, &size, 0, width), ERROR_INV_PARAMETER) << width;
        EXPECT_EQ(save(&byte, &byte, &size, 0, width, 8), ERROR_NULL_PTR) << width;
    }
    EXPECT_TRUE(KernelInUse().trace.empty());
}

TEST_F(Buffers, TellsWhenTheDestinationIsTooSmall) {
    const Bytes stream = CodedPicture(PictureOf(100, 30), 100, 67, 0, 2);
    for (const size_t capacity : {size_t{0}, size_t{1}, stream.size() - 1, stream.size()}) {
        SaveCall save{PictureOf(100, 30), 100, 67};
        save.capacity = capacity;
        EXPECT_EQ(save.Run(), capacity < stream.size() ? ERROR_BUFFER_TOO_SMALL : SUCCESS) << capacity;
        EXPECT_EQ(save.size, stream.size());
    }
    SaveCall none{PictureOf(9, 1), 9};
    none.height = 0;
    EXPECT_EQ(none.Run(), SUCCESS);
    EXPECT_EQ(none.stream, (Bytes{0, 0x10, 1, 0}));
}

TEST_F(Buffers, RefusesWhatItCannotLoad) {
    LoadCall load{{0x80}, 68, 65536, 1};
    uint8_t byte = 0;
    EXPECT_EQ(load.Run(), ERROR_INV_PARAMETER);
    EXPECT_EQ(fltLoadBufferFAX(nullptr, 1, &byte, 68, 8, 1, 0, 0, 0), ERROR_NULL_PTR);
    EXPECT_EQ(fltLoadBufferFAX(&byte, 1, nullptr, 68, 8, 1, 0, 0, 0), ERROR_NULL_PTR);
    EXPECT_TRUE(KernelInUse().trace.empty());
    for (const int height : {0, -3}) {
        ResetTestKernel();
        LoadCall none{{0x80}, 68, 8, height};
        EXPECT_EQ(none.Run(), SUCCESS);
        EXPECT_EQ(none.rows, Picture(1, Bytes(1, 0xEE)));
        EXPECT_EQ(CallsNamed("Read"), Trace{"Read 1"});
    }
}

// An extension that is not uncompressed mode ends a G4 block: what it did not yield stays.
TEST_F(Buffers, LeavesTheRowsThatABlockLacks) {
    LoadCall load{Packed(Horizontal(3, 4) + kV0 + Repeated(kV0, 27) + "0000001000"), 68, 9, 20};
    EXPECT_EQ(load.Run(), SUCCESS);
    Picture wanted(10, PackedRow({3, 4, 2}));
    wanted.resize(20, {0xEE, 0xEE});
    EXPECT_EQ(load.rows, wanted);
}

// More rows than the run buffer holds come in several goes; mirrored ones may take a word more each.
TEST_F(Buffers, LoadsInSeveralGoes) {
    const Picture picture = PictureOf(2001, 400, ALTERNATING);
    for (const bool mirror : {false, true}) {
        ResetTestKernel();
        LoadCall load{CodedPicture(picture, 2001, 66), 66, 2001, 400, mirror ? LOADINFO_MIRROR : 0};
        EXPECT_EQ(load.Run(), SUCCESS);
        EXPECT_TRUE(LinesOf(load.rows, 2001) ==
                    (mirror ? MirroredLines(picture, 2001) : LinesOf(picture, 2001)));
        EXPECT_GE(CallsNamed("ExpandRows").size(), 4u);
    }
}

} // namespace
