// K_SaveRawFax and fltSave: the calls and callbacks in their order, and what they make of every refusal.
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/save_run.h"

namespace {

using Trace = std::vector<std::string>;

class RawSaver : public testing::Test {
protected:
    void SetUp() override {
        resetTestKernel();
        errno = 0;
    }
    void TearDown() override { EXPECT_TRUE(nothingHeld()); }
    static Picture page(size_t rows, unsigned width = 100) {
        std::mt19937 random(4);
        return makePicture(random, PAGE, width, rows);
    }
};

TEST_F(RawSaver, CallsInTheirOrder) {
    SaveRun save(page(2), 100, 68);
    save.rowCallback = traceRow;
    save.bitmap.Width = 90; // the save bitmap's counts
    save.dispatch->CallbackParam = 5;
    EXPECT_EQ(save.run(), SUCCESS);
    const Bytes stream = codedPicture(save.picture, 100, 68);
    EXPECT_EQ(testKernel().trace, (Trace{"Start", "Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1",
                                         "IntAccessBitmap", "GetRow 0", "Row", "GetRow 1", "Row",
                                         "IntReleaseBitmap 1 1", "Write " + std::to_string(stream.size()),
                                         "Free 1000000", "Free 1000000", "Free 200000", "End"}));
    EXPECT_EQ(save.file.bytes, stream);
    EXPECT_EQ(save.size, stream.size());
    EXPECT_EQ(save.dispatch->CallbackParam, 5u);
}

// Every format, both row orders, all ways to say who inverts, every flag.
TEST_F(RawSaver, CodesTheRowsOfTheKernel) {
    for (const int format : {66, 67, 68, 117, 162, 4711})
        for (const int orientation : {1, 4})
            for (int polarity = 0; polarity < 4; ++polarity)
                for (unsigned flags = 0; flags < 8; ++flags) {
                    SaveRun save(page(11), 100, format);
                    save.bitmap.Orientation = orientation;
                    save.bitmap.YResolution = 400;
                    save.flags = flags;
                    save.saveFile->NoInvert = polarity & 1;
                    save.options->OutputBits = polarity & 2 ? SaveOptionNoInvert : 0;
                    save.invertRows = polarity == 0;
                    if (flags == 7)
                        save.dispatch->Options = polarity & 2 ? save.options.get() : nullptr;
                    EXPECT_EQ(save.run(), SUCCESS);
                    EXPECT_EQ(save.fetches, 11);
                    EXPECT_EQ(save.file.bytes,
                              codedPicture(save.picture, 100, static_cast<unsigned>(format), flags, 8))
                        << format << ' ' << orientation << ' ' << polarity << ' ' << flags;
                }
    const Trace& trace = testKernel().trace;
    EXPECT_NE(std::find(trace.begin(), trace.end(), "GetRow 10"), trace.end());
}

TEST_F(RawSaver, RowCallbackSeesAndChangesTheCodersRows) {
    SaveRun save(page(3), 100, 68);
    save.saveFile->NoInvert = 0;
    save.invertRows = true;
    save.rowCallback = [](_BITMAPHANDLE*, unsigned char* row, void* userData) -> int {
        SaveRun& run = *static_cast<SaveRun*>(userData);
        EXPECT_EQ(Bytes(row, row + 13), run.picture[static_cast<size_t>(run.rowCalls)]);
        row[0] ^= 0x42;
        return ++run.rowCalls == 3 ? 0 : 1;
    };
    EXPECT_EQ(save.run(), 0);
    EXPECT_EQ(save.rowCalls, 3);
    Picture seen(save.picture.begin(), save.picture.begin() + 2);
    for (Bytes& row : seen)
        row[0] ^= 0x42;
    EXPECT_EQ(save.file.bytes, codedPicture(seen, 100, 68));
    EXPECT_EQ(save.ends, 1);
}

TEST_F(RawSaver, EmptyAndWideBitmaps) {
    SaveRun empty(Picture(), 100, 68);
    EXPECT_EQ(empty.run(), SUCCESS);
    EXPECT_EQ(empty.file.bytes, (Bytes{0, 0x10, 1, 0}));
    EXPECT_EQ(empty.fetches, 0);
    SaveRun negative(Picture(), 100, 66);
    negative.bitmap.Height = -5;
    EXPECT_EQ(negative.run(), SUCCESS);
    EXPECT_EQ(negative.fetches, 0);
    SaveRun wide(Picture(2, Bytes(31250)), MAX_IMAGE_WIDTH, 162);
    EXPECT_EQ(wide.run(), SUCCESS);
    EXPECT_EQ(wide.file.bytes, codedPicture(wide.picture, MAX_IMAGE_WIDTH, 162));
}

TEST_F(RawSaver, RefusesBeforeAnyCall) {
    SaveRun save(page(2), 100, 68);
    EXPECT_EQ(K_SaveRawFax(nullptr, save.file.handle(), &save.bitmap, 1, 68, 0, nullptr, nullptr, nullptr, 0,
                           nullptr, nullptr),
              ERROR_NULL_PTR);
    EXPECT_EQ(K_SaveRawFax(save.dispatch.get(), save.file.handle(), nullptr, 1, 68, 0, nullptr, nullptr,
                           nullptr, 0, nullptr, nullptr),
              ERROR_NULL_PTR);
    save.bitmap.Width = MAX_IMAGE_WIDTH + 1;
    EXPECT_EQ(save.run(), ERROR_NULL_PTR);
    save.bitmap.Width = 100;
    save.dispatch->BitsPerPixel = 8;
    EXPECT_EQ(save.run(), ERROR_NULL_PTR);
    EXPECT_TRUE(testKernel().trace.empty());
    EXPECT_EQ(save.size, 0xABCDu);
}

TEST_F(RawSaver, EndsWhatAStartRefused) {
    for (const int status : {0, -1, CALLBACK_STOPS}) {
        SaveRun save(page(2), 100, 68);
        save.startStatus = status;
        resetTestKernel();
        EXPECT_EQ(save.run(), status);
        EXPECT_EQ(testKernel().trace, (Trace{"Start", "End"}));
    }
    SaveRun above(page(2), 100, 68);
    above.startStatus = 2;
    EXPECT_EQ(above.run(), SUCCESS);
}

TEST_F(RawSaver, ReportsTheSystemsError) {
    SaveRun save(page(2), 100, 68);
    testKernel().faultAt = 100000;
    save.run();
    const unsigned calls = testKernel().calls;
    for (unsigned n = 1; n <= calls; ++n) {
        resetTestKernel();
        testKernel().faultAt = n;
        SaveRun again(page(2), 100, 68);
        errno = ENOMEM;
        const int status = again.run();
        if (testKernel().faulted.rfind("Write", 0) == 0) {
            EXPECT_EQ(status, ERROR_NO_MEMORY);
        }
    }
    errno = 0;
}

// Rows of 33 KB: a flush every five of them.
class SaveFaults : public testing::TestWithParam<std::tuple<int, Fault>> {};

TEST_P(SaveFaults, AtEveryCall) {
    const auto [format, fault] = GetParam();
    std::mt19937 random(8);
    const Picture picture = makePicture(random, ALTERNATING, 60000, 12);
    bool hit = true;
    for (unsigned n = 1; hit; ++n) {
        resetTestKernel();
        testKernel().fault = fault;
        testKernel().faultAt = n;
        SaveRun save(picture, 60000, format);
        save.rowCallback = traceRow;
        errno = 0;
        int status = 0;
        bool thrown = false;
        try {
            status = save.run();
        } catch (const KernelFault&) {
            thrown = true;
        }
        const std::string call = testKernel().faulted;
        hit = !call.empty();
        SCOPED_TRACE("call " + std::to_string(n) + ", " + call);
        const auto is = [&](const char* name) { return call.rfind(name, 0) == 0; };
        EXPECT_TRUE(nothingHeld());
        EXPECT_EQ(thrown, hit && fault == Fault::Throw);
        if (thrown) {
            EXPECT_LE(save.ends, 1);
            continue;
        }
        EXPECT_EQ(save.ends, 1);
        EXPECT_EQ(testKernel().trace.back(), "End");
        EXPECT_EQ(status, is("Start") || is("Row") || is("GetRow") ? CALLBACK_STOPS
                          : is("Alloc")                            ? ERROR_NO_MEMORY
                          : is("Write")                            ? ERROR_FILE_WRITE
                          : is("IntReleaseBitmap")                 ? FAILURE
                                                                   : SUCCESS);
        if (is("Start") || is("Alloc")) {
            EXPECT_TRUE(save.file.bytes.empty());
            EXPECT_EQ(save.size, 0xABCDu);
        } else {
            // The stream of the rows that came through, trailer and all, without what a bad write dropped.
            const auto coded = static_cast<ptrdiff_t>(save.rowCalls - is("Row"));
            Picture done(picture.begin(), picture.begin() + coded);
            const Bytes stream = codedPicture(done, 60000, static_cast<unsigned>(format));
            EXPECT_EQ(save.size, stream.size());
            if (!is("Write")) {
                EXPECT_TRUE(save.file.bytes == stream);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, SaveFaults,
                         testing::Combine(testing::Values(66, 117),
                                          testing::Values(Fault::Fail, Fault::Short, Fault::Throw)));

class SaveEntry : public RawSaver {
protected:
    void SetUp() override {
        RawSaver::SetUp();
        path = testing::TempDir() + "kffax_save_" + std::to_string(getpid());
        std::filesystem::remove(path);
    }
    void TearDown() override {
        std::filesystem::remove(path);
        RawSaver::TearDown();
    }
    Bytes contents() const {
        std::ifstream file(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    }
    std::string path;
};

TEST_F(SaveEntry, WritesOverTheStartOfAFile) {
    for (unsigned bits = 0; bits < 4; ++bits) {
        resetTestKernel();
        std::ofstream(path, std::ios::binary) << std::string(5000, 'x');
        SaveRun save(page(20), 100, 66);
        save.dispatch->FileName = path.c_str();
        save.options->OutputBits = bits & 1 ? 0xEFFFFFFF : 0xEFFFFFFE;
        save.options->FaxBits = bits & 2 ? 0xFFFFFFFF : 0xFFFFF7FF;
        save.saveFile->NoInvert = 0;
        save.invertRows = true;
        EXPECT_EQ(fltSave(save.dispatch.get()), SUCCESS);
        EXPECT_EQ(testKernel().trace.front(), "Open 66 128");
        EXPECT_EQ(testKernel().trace.back(), "Close");
        Bytes stream = codedPicture(save.picture, 100, 66, (bits & 1) + (bits & 2) * 2);
        const Bytes file = contents();
        ASSERT_EQ(file.size(), 5000u);
        EXPECT_TRUE(std::equal(stream.begin(), stream.end(), file.begin()));
        EXPECT_EQ(file[stream.size()], 'x');
    }
    SaveRun noOptions(page(2), 100, 68);
    std::filesystem::remove(path);
    noOptions.dispatch->FileName = path.c_str();
    noOptions.dispatch->Options = nullptr;
    EXPECT_EQ(fltSaveFAX(noOptions.dispatch.get()), SUCCESS);
    EXPECT_EQ(contents(), codedPicture(noOptions.picture, 100, 68));
}

TEST_F(SaveEntry, RefusesWithoutAFile) {
    EXPECT_EQ(fltSave(nullptr), ERROR_NULL_PTR);
    SaveRun save(page(2), 100, FORMAT_FAX_G4_HEADER);
    save.dispatch->FileName = path.c_str();
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_FORMAT_NOT_WRITABLE);
    save.dispatch->BitsPerPixel = 8;
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_BITS_PER_PIXEL);
    save.dispatch->Format = 68;
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_BITS_PER_PIXEL);
    EXPECT_TRUE(testKernel().trace.empty());
    EXPECT_FALSE(std::filesystem::exists(path));

    save.dispatch->BitsPerPixel = 1;
    save.dispatch->FileName = "/no/such/place";
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_FILE_CREATE);
    EXPECT_EQ(testKernel().trace, Trace{"Open 66 128"});

    // Behind the open whatever the saver says is the result, and the file is closed.
    resetTestKernel();
    save.dispatch->FileName = path.c_str();
    save.bitmap.Width = MAX_IMAGE_WIDTH + 1;
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_NULL_PTR);
    EXPECT_EQ(testKernel().trace, (Trace{"Open 66 128", "Close"}));
}

TEST_F(SaveEntry, ClosesTheFileUnderEveryThrow) {
    for (unsigned n = 1;; ++n) {
        resetTestKernel();
        testKernel().fault = Fault::Throw;
        testKernel().faultAt = n;
        SaveRun save(page(2), 100, 67);
        save.dispatch->FileName = path.c_str();
        bool thrown = false;
        try {
            fltSave(save.dispatch.get());
        } catch (const KernelFault&) {
            thrown = true;
        }
        EXPECT_TRUE(nothingHeld()) << testKernel().faulted;
        EXPECT_EQ(thrown, !testKernel().faulted.empty());
        if (testKernel().faulted.empty())
            break;
    }
}

} // namespace
