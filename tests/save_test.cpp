// K_SaveRawFax and fltSave: the calls and callbacks in their order, and what they make of every refusal.
#include "API/Filters/Fax/Fax.h"
#include "tests/save_run.h"

namespace {

class RawSaver : public KernelTest {};

TEST_F(RawSaver, CallsInTheirOrder) {
    SaveRun save(PictureOf(100, 2), 100, 68);
    save.rowCallback = TraceRow;
    save.bitmap.Width = 90; // the save bitmap's counts
    save.dispatch->CallbackParam = 5;
    EXPECT_EQ(save.Run(), SUCCESS);
    const Bytes stream = CodedPicture(save.picture, 100, 68);
    EXPECT_EQ(KernelInUse().trace, (Trace{"Start", "Alloc 250000 4", "Alloc 250000 4", "Alloc 200000 1",
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
                    SaveRun save(PictureOf(100, 11), 100, format);
                    save.bitmap.Orientation = orientation;
                    save.bitmap.YResolution = 400;
                    save.flags = flags;
                    save.saveFile->NoInvert = polarity & 1;
                    save.options->OutputBits = polarity & 2 ? SaveOptionNoInvert : 0;
                    save.invertRows = polarity == 0;
                    if (flags == 7)
                        save.dispatch->Options = polarity & 2 ? save.options.get() : nullptr;
                    EXPECT_EQ(save.Run(), SUCCESS);
                    EXPECT_EQ(save.fetches, 11);
                    EXPECT_EQ(save.file.bytes,
                              CodedPicture(save.picture, 100, static_cast<unsigned>(format), flags, 8))
                        << format << ' ' << orientation << ' ' << polarity << ' ' << flags;
                }
    EXPECT_FALSE(CallsNamed("GetRow 10").empty());
}

TEST_F(RawSaver, RowCallbackSeesAndChangesTheCodersRows) {
    SaveRun save(PictureOf(100, 3), 100, 68);
    save.saveFile->NoInvert = 0;
    save.invertRows = true;
    save.rowCallback = [](_BITMAPHANDLE*, unsigned char* row, void* userData) -> int {
        SaveRun& run = *static_cast<SaveRun*>(userData);
        EXPECT_EQ(Bytes(row, row + 13), run.picture[static_cast<size_t>(run.rowCalls)]);
        row[0] ^= 0x42;
        return ++run.rowCalls == 3 ? 0 : 1;
    };
    EXPECT_EQ(save.Run(), 0);
    EXPECT_EQ(save.rowCalls, 3);
    Picture seen(save.picture.begin(), save.picture.begin() + 2);
    for (Bytes& row : seen)
        row[0] ^= 0x42;
    EXPECT_EQ(save.file.bytes, CodedPicture(seen, 100, 68));
    EXPECT_EQ(save.ends, 1);
}

TEST_F(RawSaver, EmptyAndWideBitmaps) {
    SaveRun empty(Picture(), 100, 68);
    EXPECT_EQ(empty.Run(), SUCCESS);
    EXPECT_EQ(empty.file.bytes, (Bytes{0, 0x10, 1, 0}));
    EXPECT_EQ(empty.fetches, 0);
    empty.bitmap.Height = -5;
    EXPECT_EQ(empty.Run(), SUCCESS);
    EXPECT_EQ(empty.fetches, 0);
    SaveRun wide(Picture(2, Bytes(31250)), MAX_IMAGE_WIDTH, 162);
    EXPECT_EQ(wide.Run(), SUCCESS);
    EXPECT_EQ(wide.file.bytes, CodedPicture(wide.picture, MAX_IMAGE_WIDTH, 162));
}

TEST_F(RawSaver, RefusesBeforeAnyCall) {
    SaveRun save(PictureOf(100, 2), 100, 68);
    EXPECT_EQ(K_SaveRawFax(nullptr, save.file.Handle(), &save.bitmap, 1, 68, 0, nullptr, nullptr, nullptr, 0,
                           nullptr, nullptr),
              ERROR_NULL_PTR);
    EXPECT_EQ(K_SaveRawFax(save.dispatch.get(), save.file.Handle(), nullptr, 1, 68, 0, nullptr, nullptr,
                           nullptr, 0, nullptr, nullptr),
              ERROR_NULL_PTR);
    save.bitmap.Width = MAX_IMAGE_WIDTH + 1;
    EXPECT_EQ(save.Run(), ERROR_NULL_PTR);
    save.bitmap.Width = 100;
    save.dispatch->BitsPerPixel = 8;
    EXPECT_EQ(save.Run(), ERROR_NULL_PTR);
    EXPECT_TRUE(KernelInUse().trace.empty());
    EXPECT_EQ(save.size, 0xABCDu);
}

TEST_F(RawSaver, EndsWhatAStartRefused) {
    for (const int status : {0, -1, kCallbackStops}) {
        SaveRun save(PictureOf(100, 2), 100, 68);
        save.startStatus = status;
        ResetTestKernel();
        EXPECT_EQ(save.Run(), status);
        EXPECT_EQ(KernelInUse().trace, (Trace{"Start", "End"}));
    }
    SaveRun above(PictureOf(100, 2), 100, 68);
    above.startStatus = 2;
    EXPECT_EQ(above.Run(), SUCCESS);
}

// The file is written over from its start, and not cut.
TEST_F(RawSaver, TakesTheOptionsBits) {
    for (unsigned bits = 0; bits < 5; ++bits) {
        KernelInUse().files["page"] = Bytes(5000, 'x');
        KernelInUse().trace.clear();
        SaveRun save(PictureOf(100, 20), 100, 66);
        save.dispatch->FileName = "page";
        save.options->OutputBits = bits & 1 ? 0xEFFFFFFF : 0xEFFFFFFE;
        save.options->FaxBits = bits & 2 ? 0xFFFFFFFF : 0xFFFFF7FF;
        if (bits == 4)
            save.dispatch->Options = nullptr;
        save.saveFile->NoInvert = 0;
        save.invertRows = true;
        EXPECT_EQ((bits == 0 ? fltSaveFAX : fltSave)(save.dispatch.get()), SUCCESS);
        EXPECT_EQ(KernelInUse().trace.front(), "Open 66 128");
        EXPECT_EQ(KernelInUse().trace.back(), "Close");
        Bytes wanted = CodedPicture(save.picture, 100, 66, (bits & 1) + (bits & 2) * 2);
        wanted.resize(5000, 'x');
        EXPECT_EQ(KernelInUse().closed, wanted);
    }
}

TEST_F(RawSaver, RefusesWithoutAFile) {
    EXPECT_EQ(fltSave(nullptr), ERROR_NULL_PTR);
    SaveRun save(PictureOf(100, 2), 100, FORMAT_FAX_G4_HEADER);
    save.dispatch->FileName = "page";
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_FORMAT_NOT_WRITABLE);
    save.dispatch->BitsPerPixel = 8;
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_BITS_PER_PIXEL);
    save.dispatch->Format = 68;
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_BITS_PER_PIXEL);
    EXPECT_TRUE(KernelInUse().trace.empty());

    save.dispatch->BitsPerPixel = 1;
    save.dispatch->FileName = "/no/such/place";
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_FILE_CREATE);
    EXPECT_EQ(KernelInUse().trace, Trace{"Open 66 128"});

    // Behind the open whatever the saver says is the result, and the file is closed.
    ResetTestKernel();
    KernelInUse().files["page"] = {};
    save.dispatch->FileName = "page";
    save.bitmap.Width = MAX_IMAGE_WIDTH + 1;
    EXPECT_EQ(fltSave(save.dispatch.get()), ERROR_NULL_PTR);
    EXPECT_EQ(KernelInUse().trace, (Trace{"Open 66 128", "Close"}));
}

// The rows to save are those of the bitmap before it is accessed, whatever a call makes of it later.
TEST_F(RawSaver, BitmapsThatChangeDuringTheSave) {
    for (const char* call : {"IntAccessBitmap", "GetRow 1"}) {
        SaveRun save(PictureOf(100, 3, NOISE), 100, 68);
        KernelInUse().inside = [&](const std::string& entry) {
            if (entry != call)
                return;
            save.bitmap.Height = 7;
            save.bitmap.Orientation = ORIENTATION_BOTTOM_UP;
            save.saveBitmap.Width = 9;
        };
        save.saveFile->NoInvert = 0;
        save.invertRows = true;
        EXPECT_EQ(save.Run(), SUCCESS);
        EXPECT_EQ(CallsNamed("GetRow"), (Trace{"GetRow 0", "GetRow 1", "GetRow 2"})) << call;
        ResetTestKernel();
    }
}

} // namespace
