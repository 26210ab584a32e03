// The file entry points: what they recognise, what they fill in and what they refuse.
#include <algorithm>
#include <gtest/gtest.h>

#include "API/Filters/Fax/Fax.h"
#include "tests/load_run.h"

namespace {

// A description in a record larger than declared, so that stray writes show.
struct InfoRun {
    InfoRun() {
        std::memset(record, 0xEE, sizeof record);
        FileInfo().Flags = 0xEE;
        dispatch->FileInfo = &FileInfo();
    }
    int Run(const char* name) {
        dispatch->FileName = name;
        return fltInfo(dispatch.get());
    }
    _FILEINFOA& FileInfo() { return *reinterpret_cast<_FILEINFOA*>(record); }
    bool Untouched() const {
        return std::all_of(std::begin(record), std::end(record),
                           [](uint8_t byte) { return byte == 0xEE || byte == 0; });
    }

    alignas(8) uint8_t record[1024];
    std::unique_ptr<_INFODISPATCH> dispatch = std::make_unique<_INFODISPATCH>();
};

// A header, then the stream at byte 512.
Bytes HeaderFile(int width, int height, uint8_t coding, uint8_t bitOrder, const Bytes& stream) {
    Bytes bytes(512 + stream.size(), 0x77);
    Bytes header = {0xDC, 0xDC, 0, 0, 1, 2, 0, 0, 0, 0, 3, 4, coding, bitOrder, 5, 6, 98, 0, 204, 0};
    for (const size_t i : {0u, 1u}) {
        header[6 + i] = static_cast<uint8_t>(height >> 8 * i);
        header[8 + i] = static_cast<uint8_t>(width >> 8 * i);
    }
    std::copy(std::begin(header), std::end(header), bytes.begin());
    std::copy(stream.begin(), stream.end(), bytes.begin() + 512);
    return bytes;
}

const Bits kPage = Repeated(kEol + Line1D({100, 100, 1528}), 120);

class Files : public KernelTest {
protected:
    std::map<std::string, Bytes>& files = KernelInUse().files;
};

TEST_F(Files, NullArguments) {
    EXPECT_EQ(fltInfo(nullptr), ERROR_NULL_PTR);
    EXPECT_EQ(fltLoad(nullptr), ERROR_NULL_PTR);
    InfoRun info;
    info.dispatch->FileInfo = nullptr;
    EXPECT_EQ(info.Run("page"), ERROR_NULL_PTR);
    LoadRun noBitmap({}, 68, 10, 1), noFileInfo({}, 68, 10, 1);
    noBitmap.dispatch->Bitmap = nullptr;
    noFileInfo.dispatch->FileInfo = nullptr;
    EXPECT_EQ(fltLoad(noBitmap.dispatch.get()), ERROR_NULL_PTR);
    EXPECT_EQ(fltLoad(noFileInfo.dispatch.get()), ERROR_NULL_PTR);
    EXPECT_TRUE(KernelInUse().trace.empty());
}

TEST_F(Files, HeaderIsDescribed) {
    files["page"] = HeaderFile(1725, 2200, 2, 1, {});
    files["page"].resize(20);
    InfoRun info;
    EXPECT_EQ(info.Run("page"), SUCCESS);
    const _FILEINFOA& f = info.FileInfo();
    EXPECT_STREQ(f.Name, "CCITT Group 4 Fax");
    EXPECT_EQ(
        (std::vector<uint64_t>{uint64_t(f.Format), f.Width, uint64_t(f.Height), uint64_t(f.BitsPerPixel),
                               f.ImageSize, uint64_t(f.Orientation), f.Reserved572, uint64_t(f.XResolution),
                               uint64_t(f.YResolution), f.Flags}),
        (std::vector<uint64_t>{121, 1725, 2200, 1, 475200, 1, 0, 204, 98, 0xEE | FILEINFO_DESCRIBED}));
    EXPECT_EQ(KernelInUse().trace, (Trace{"Open 0 256", "Read 20", "Close"}));
    // Only the fields that have names.
    const std::pair<size_t, size_t> written[] = {{4, 8}, {520, 532}, {540, 566}, {568, 576}, {584, 596}};
    for (const auto& [begin, end] : written)
        std::fill(info.record + begin, info.record + end, uint8_t{0xEE});
    EXPECT_TRUE(
        std::all_of(std::begin(info.record), std::end(info.record), [](uint8_t b) { return b == 0xEE; }));
}

TEST_F(Files, HeaderIsLoaded) {
    const Bits g4 = Repeated(Horizontal(2, 3) + kV0, 30), g3 = Repeated(Line1D({2, 3, 5}), 30);
    for (const uint8_t coding : {uint8_t{0}, uint8_t{2}})
        for (const uint8_t order : {uint8_t{0}, uint8_t{1}}) {
            files["page"] = HeaderFile(10, 30, coding, order, Packed(coding == 2 ? g3 : g4, order == 0));
            InfoRun info;
            ASSERT_EQ(info.Run("page"), SUCCESS);
            LoadRun load({}, -5, -5, -5);
            std::memcpy(load.fileInfo.get(), info.record, sizeof(_FILEINFOA));
            load.dispatch->FileName = "page";
            KernelInUse().trace.clear();
            EXPECT_EQ(fltLoad(load.dispatch.get()), SUCCESS);
            EXPECT_EQ(load.rows, Rows(30, Row{2, 3, 5}));
            EXPECT_EQ(load.Info().Format, coding == 2 ? 66 : 68);
            EXPECT_EQ(+load.Info().Offset, 512);
            EXPECT_EQ(load.Info().Flags, order == 0 ? 9u : 1u);
            EXPECT_EQ(load.bitmap.XResolution, 204);
            EXPECT_EQ(Trace(KernelInUse().trace.begin(), KernelInUse().trace.begin() + 4),
                      (Trace{"Open 0 256", "Seek 12 0", "Read 1", "Read 1"}));
            EXPECT_EQ(KernelInUse().trace.back(), "Close");
        }
    for (const size_t size : {12u, 13u}) {
        files["page"].resize(size);
        LoadRun load({}, 0, 0, 0);
        load.fileInfo->Format = FORMAT_FAX_G4_HEADER;
        load.dispatch->FileName = "page";
        EXPECT_EQ(fltLoad(load.dispatch.get()), ERROR_FILE_READ);
        EXPECT_TRUE(load.rows.empty());
    }
}

TEST_F(Files, RawStreamIsFoundAndLoaded) {
    for (const bool reversed : {false, true}) {
        files["page"] = Packed(kPage, reversed);
        LoadRun load({}, -1, -1, -1);
        load.dispatch->LoadInfoValid = 5;
        load.dispatch->FileName = "page";
        InfoRun info;
        info.dispatch->LoadDispatch = load.dispatch.get();
        ASSERT_EQ(info.Run("page"), SUCCESS);
        EXPECT_EQ(load.dispatch->LoadInfoValid, 1);
        EXPECT_STREQ(info.FileInfo().Name, "CCITT Group 3 Fax");
        EXPECT_EQ(info.FileInfo().Format, 66);
        EXPECT_EQ(info.FileInfo().Height, 120);
        EXPECT_EQ(+info.FileInfo().ImageSize, 120u * 216);
        EXPECT_EQ(info.FileInfo().Orientation, 1);
        EXPECT_EQ(info.FileInfo().XResolution, 300);
        EXPECT_EQ(fltLoad(load.dispatch.get()), SUCCESS);
        EXPECT_EQ(load.rows, Rows(120, Row{100, 100, 1528}));
    }
}

TEST_F(Files, ProbingNeedsPermission) {
    files["page"] = Packed(kPage);
    LoadRun load({}, -1, -1, -1);
    InfoRun info;
    info.dispatch->LoadDispatch = load.dispatch.get();
    EXPECT_EQ(info.Run("page"), ERROR_FILE_FORMAT);
    info.dispatch->LoadDispatch = nullptr;
    EXPECT_EQ(info.Run("page"), ERROR_FILE_FORMAT);
    EXPECT_TRUE(info.Untouched());
    info.FileInfo().Flags |= FILEINFO_PROBE_RAW;
    info.dispatch->LoadDispatch = load.dispatch.get();
    KernelInUse().trace.clear();
    EXPECT_EQ(info.Run("page"), SUCCESS);
    EXPECT_EQ(load.dispatch->LoadInfoValid, 1);
    EXPECT_EQ(KernelInUse().trace[2], "Seek -20 1");
}

// A description of the caller's own stands when no stream is found; only 66 to 68 are passed on.
TEST_F(Files, CallersDescriptionStands) {
    files["page"] = Bytes(2001, 0xFF);
    for (const int format : {65, 66, 67, 68, 69, 117}) {
        LoadRun load({}, format, 1000, 77);
        load.dispatch->LoadInfoValid = 1;
        load.Info().Flags = LOADINFO_ORIENTATION_3;
        InfoRun info;
        info.dispatch->LoadDispatch = load.dispatch.get();
        const bool described = format >= 66 && format <= 68;
        EXPECT_EQ(info.Run("page"), described ? SUCCESS : FAILURE);
        EXPECT_EQ(+load.Info().Offset, 2000);
        if (!described) {
            EXPECT_TRUE(info.Untouched());
            continue;
        }
        EXPECT_STREQ(info.FileInfo().Name, format == 68 ? "CCITT Group 4 Fax" : "CCITT Group 3 Fax");
        EXPECT_EQ(+info.FileInfo().ImageSize, 77u * 125);
        EXPECT_EQ(info.FileInfo().Orientation, 3);
    }
}

TEST_F(Files, NotFaxFiles) {
    const auto status = [](const char* name) {
        InfoRun info;
        info.FileInfo().Flags |= FILEINFO_PROBE_RAW;
        const int result = info.Run(name);
        EXPECT_EQ(info.FileInfo().Flags, 0xEE | FILEINFO_PROBE_RAW);
        return result;
    };
    EXPECT_EQ(status("/nowhere"), ERROR_FILE_OPEN);
    const int ofDirectory = status("/");
    EXPECT_TRUE(ofDirectory == ERROR_FILE_OPEN || ofDirectory == ERROR_FILE_READ);
    for (const size_t size : {4000u, 20u, 19u, 0u}) {
        files["text"] = Bytes(size, 'x');
        EXPECT_EQ(status("text"), size < 20 ? ERROR_FILE_READ : FAILURE) << size;
    }
    LoadRun load({}, 68, 10, 10);
    load.dispatch->FileName = "/nowhere";
    EXPECT_EQ(fltLoad(load.dispatch.get()), ERROR_FILE_OPEN);
}

// A header is described before the file is closed, a raw stream after that: what a close that throws leaves.
TEST_F(Files, DescriptionWhenTheCloseThrows) {
    Bytes header(20);
    header[0] = header[1] = 0xDC;
    std::map<std::string, Bytes> both;
    both["header"] = header;
    both["raw"] = Packed(Repeated(kEol + Line1D({100, 100, 1528}), 120));
    for (const char* name : {"header", "raw"}) {
        const bool raw = name == std::string("raw");
        ResetTestKernel();
        KernelInUse().files = both;
        KernelInUse().inside = [](const std::string& entry) {
            if (entry == "Close")
                throw KernelFault();
        };
        InfoRun info;
        info.FileInfo().Flags |= FILEINFO_PROBE_RAW;
        EXPECT_THROW(info.Run(name), KernelFault);
        EXPECT_EQ(info.FileInfo().Format, raw ? static_cast<int>(0xEEEEEEEE) : FORMAT_FAX_G4_HEADER);
        EXPECT_EQ(KernelInUse().badCloses, 0u);
    }
}

} // namespace
