// The stand-in kernel by itself and with the filter, without the tests' kernel functions in front.
#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "host/kernel.h"
#include "host/standin/standin.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t kBlockBytes = 1 << 20;
constexpr unsigned kWidth = 413;
constexpr int kHeight = 120;

class StandIn : public testing::Test {
protected:
    StandIn() { std::filesystem::create_directories(directory); }
    ~StandIn() override { std::filesystem::remove_all(directory); }

    const std::string directory = testing::TempDir() + "kffax-standin-" + std::to_string(getpid());
    const std::string file = directory + "/file";
    const standin::Filter filter = standin::LoadFilter(KFFAX_LIBRARY);
};

// The stand-in declares by itself what it uses of the filter.
static_assert(std::is_same_v<decltype(standin::Filter::LoadTiled), decltype(&K_LoadTiledFax)>);
static_assert(std::is_same_v<decltype(standin::Filter::SaveTiled), decltype(&K_SaveTiledFax)>);
static_assert(standin::kTilesReverseBits == FAX_REVERSE_BITS && standin::kTilesAlignEol == FAX_ALIGN_EOL);
static_assert(standin::kTilesByteTrailer == FAX_BYTE_TRAILER);

// A page whose rows all differ.
standin::BitmapPtr MakePage() {
    standin::BitmapPtr page = standin::MakeBitmap(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        standin::BitmapRow(*page, static_cast<size_t>(y))[y / 8] = static_cast<unsigned char>(y + 1);
    return page;
}

_LOADINFO StreamInfo(int format, uint32_t flags) {
    _LOADINFO stream{};
    stream.Format = format;
    stream.Width = kWidth;
    stream.Height = kHeight;
    stream.Flags = flags;
    return stream;
}

size_t BytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Frees a block while its thread ends, after the kernel did its own tidying up for that thread.
struct LateOwner {
    void* block = nullptr;
    ~LateOwner() { K_LocalFree(block, 1, "late"); }
};
thread_local LateOwner lateOwner;

TEST(Memory, ThreadsLeaveNothingBehind) {
    const size_t before = BytesInUse();
    for (int i = 0; i < 100; ++i)
        std::thread([] {
            lateOwner.block = nullptr; // its destructor is registered first and runs last
            void* const kept = K_LocalAlloc(kBlockBytes, 1, 1, "kept");
            lateOwner.block = K_LocalAlloc(kBlockBytes, 1, 1, "late");
            K_LocalFree(kept, 1, "kept");
        }).join();
    EXPECT_LT(BytesInUse(), before + 10 * kBlockBytes);
    EXPECT_TRUE(standin::HeldAllocations().Blocks.empty());
}

TEST(Memory, AThreadThatOnlyFreesAtItsEndLeavesNothing) {
    const size_t before = BytesInUse();
    for (int i = 0; i < 100; ++i)
        std::thread([] { lateOwner.block = K_LocalAlloc(kBlockBytes, 1, 1, "late"); }).join();
    EXPECT_LT(BytesInUse(), before + 10 * kBlockBytes);
    EXPECT_TRUE(standin::HeldAllocations().Blocks.empty());
}

// Destructors of thread-specific values run even later than those of thread_local objects.
TEST(Memory, AThreadThatFreesInAKeysDestructorLeavesNothing) {
    pthread_key_t key{};
    ASSERT_EQ(pthread_key_create(&key, [](void* block) { K_LocalFree(block, 1, "late"); }), 0);
    const size_t before = BytesInUse();
    for (int i = 0; i < 100; ++i)
        std::thread([&] {
            void* const kept = K_LocalAlloc(kBlockBytes, 1, 1, "kept");
            pthread_setspecific(key, K_LocalAlloc(kBlockBytes, 1, 1, "late"));
            // The thread has kept blocks from here on. They are closed before the key's destructor runs.
            K_LocalFree(kept, 1, "kept");
        }).join();
    EXPECT_LT(BytesInUse(), before + 10 * kBlockBytes);
    EXPECT_TRUE(standin::HeldAllocations().Blocks.empty());
    pthread_key_delete(key);
}

// Ends a redirection that outgrew its block while its thread ends.
struct LateRedirection {
    void* redirect = nullptr;
    ~LateRedirection() {
        if (redirect)
            K_StopRedirectToBuffer(redirect, nullptr, nullptr);
    }
};
thread_local LateRedirection lateRedirection;

TEST(Memory, AThreadThatEndsARedirectionLateLeavesNothing) {
    const std::vector<unsigned char> bytes(kBlockBytes);
    const auto outgrow = [&](void** redirect) {
        tagHANDLE* handle = nullptr;
        ASSERT_EQ(K_StartRedirectToBuffer(redirect, &handle, REDIRECT_WRITE, nullptr, 0), SUCCESS);
        ASSERT_EQ(K_RedirectedWrite(handle, bytes.data(), kBlockBytes), static_cast<int>(kBlockBytes));
    };
    const size_t before = BytesInUse();
    for (int i = 0; i < 100; ++i)
        std::thread([&] {
            outgrow(&lateRedirection.redirect);
            void* early = nullptr;
            outgrow(&early);
            K_StopRedirectToBuffer(early, nullptr, nullptr);
        }).join();
    EXPECT_LT(BytesInUse(), before + 10 * kBlockBytes);
}

TEST(Memory, HeldAllocationsNamesWhatIsHeld) {
    void* const block = K_LocalAlloc(3, 100, 17, "here");
    const standin::HeldMemory held = standin::HeldAllocations();
    K_LocalFree(block, 18, "there");
    ASSERT_EQ(held.Blocks.size(), 1u);
    EXPECT_EQ(held.Bytes, 300u);
    EXPECT_EQ(held.Blocks[0].Line, 17);
    EXPECT_EQ(held.Blocks[0].Path, "here");
}

TEST_F(StandIn, UmaskDecidesWhoMayUseANewFile) {
    const struct { mode_t mask, mode; } cases[] = {{022, 0644}, {077, 0600}, {0, 0666}};
    for (const auto& c : cases) {
        std::filesystem::remove(file);
        const mode_t before = umask(c.mask);
        const int status = standin::SaveFile(filter, file, *MakePage());
        umask(before);
        ASSERT_EQ(status, SUCCESS);
        struct stat about {};
        ASSERT_EQ(stat(file.c_str(), &about), 0);
        EXPECT_EQ(about.st_mode & 0777, c.mode) << std::oct << c.mask;
    }
    std::filesystem::remove(file);
    tagHANDLE* const handle = K_RedirectedOpen(file.c_str(), O_RDWR | O_CREAT, 0400);
    ASSERT_NE(handle, INVALID_KERNEL_HANDLE);
    K_RedirectedClose(handle);
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::owner_write,
              std::filesystem::perms::none);
}

// A caller's record may end before the kernel's, or be said to be longer than it is.
TEST(InitBitmap, WritesNothingBehindTheRecord) {
    for (const unsigned size : {0u, 24u, 66u, BITMAP_RECORD_SIZE, 4096u}) {
        std::array<unsigned char, 400> bytes;
        bytes.fill(0xA5);
        K_InitBitmap(reinterpret_cast<_BITMAPHANDLE*>(bytes.data()), size, 10, 20, 1);
        for (size_t i = std::min(size, BITMAP_RECORD_SIZE); i < bytes.size(); ++i)
            ASSERT_EQ(bytes[i], 0xA5) << "byte " << i << " of a record of " << size;
        EXPECT_EQ(bytes[20], size >= 24 ? 10 : 0xA5);
    }
}

TEST_F(StandIn, ALoadThatDiscardsRowsHandsBackNone) {
    const standin::BitmapPtr page = MakePage();
    ASSERT_EQ(standin::SaveFile(filter, file, *page), SUCCESS);
    standin::Blocks blocks;
    blocks.Width = kWidth;
    blocks.Height = 50;
    ASSERT_EQ(standin::SaveBlocks(filter, *page, {}, blocks), SUCCESS);
    const standin::Description description =
        standin::DescribeStream(StreamInfo(FORMAT_FAX_G4, LOADINFO_ORIENTATION_1));
    standin::Blocks damaged = blocks; // is loaded strip by strip
    damaged.ByteCounts[1] = 0;
    standin::LoadOptions options;
    options.DiscardRows = true;
    for (const standin::LoadResult& loaded :
         {standin::Load(filter, file, description, options),
          standin::LoadBlocks(filter, description, blocks, false, options),
          standin::LoadBlocks(filter, description, damaged, false, options)}) {
        ASSERT_EQ(loaded.Status, SUCCESS);
        EXPECT_EQ(loaded.Rows, kHeight);
        ASSERT_NE(loaded.Bitmap, nullptr);
        EXPECT_EQ(loaded.Bitmap->Height, kHeight);
        EXPECT_EQ(standin::BitmapRow(*loaded.Bitmap, 0), nullptr);
        EXPECT_EQ(standin::SaveFile(filter, file, *loaded.Bitmap), ERROR_NULL_PTR);
    }
}

// By each way into a save, and without touching a file.
TEST_F(StandIn, RefusesToSaveWhatItWouldLose) {
    const auto expectRefused = [&](_BITMAPHANDLE& bitmap, int status) {
        std::filesystem::remove(file);
        standin::SaveOptions copied;
        copied.ConvertedCopy = true;
        EXPECT_EQ(standin::SaveFile(filter, file, bitmap), status);
        EXPECT_EQ(standin::SaveFile(filter, file, bitmap, copied), status);
        EXPECT_FALSE(std::filesystem::exists(file));
        standin::Blocks blocks;
        blocks.Width = kWidth;
        blocks.Height = 64;
        EXPECT_EQ(standin::SaveBlocks(filter, bitmap, {}, blocks), status);
        standin::SaveCall call;
        standin::PrepareSave(call, file.c_str(), bitmap, {});
        EXPECT_EQ(filter.Save(&call.Dispatch.Declared), status); // the file is the filter's choice here
    };
    const standin::BitmapPtr noRows = standin::MakeBitmapWithoutRows(kWidth, kHeight);
    expectRefused(*noRows, ERROR_NULL_PTR);
    const standin::BitmapPtr page = MakePage();
    for (const int orientation : {0, 2, 3, 5, 6, 7, 8, 9}) {
        page->Orientation = orientation;
        expectRefused(*page, ERROR_INV_PARAMETER);
    }
    EXPECT_TRUE(standin::HeldAllocations().Blocks.size() == 1); // the page
}

TEST_F(StandIn, SavesABitmapThatLiesBottomUp) {
    const standin::BitmapPtr page = MakePage();
    page->Orientation = ORIENTATION_BOTTOM_UP;
    ASSERT_EQ(standin::SaveFile(filter, file, *page), SUCCESS);
    const standin::LoadResult loaded = standin::Load(
        filter, file, standin::DescribeStream(StreamInfo(FORMAT_FAX_G4, LOADINFO_ORIENTATION_1)));
    for (size_t y = 0; y < kHeight; ++y)
        ASSERT_EQ(std::memcmp(standin::BitmapRow(*loaded.Bitmap, y),
                              standin::BitmapRow(*page, kHeight - 1 - y), page->BytesPerLine),
                  0)
            << "row " << y;
}

// What a stream is described as is what its load makes of the bitmap.
TEST_F(StandIn, DescribesAStreamsOrientationAsItIsLoaded) {
    ASSERT_EQ(standin::SaveFile(filter, file, *MakePage()), SUCCESS);
    const struct {
        uint32_t flags;
        int orientation;
    } cases[] = {
        {0, 4},
        {LOADINFO_ORIENTATION_1, 1},
        {LOADINFO_ORIENTATION_2, 2},
        {LOADINFO_ORIENTATION_3, 3},
        {LOADINFO_ORIENTATION_5, 5},
        {LOADINFO_ORIENTATION_6, 6},
        {LOADINFO_ORIENTATION_7, 7},
        {LOADINFO_ORIENTATION_8, 8},
        {LOADINFO_ORIENTATION_3 | LOADINFO_ORIENTATION_6 | LOADINFO_MIRROR, 6},
        {LOADINFO_ORIENTATION_2 | LOADINFO_ORIENTATION_5 | LOADINFO_ORIENTATION_7, 5},
    };
    for (const auto& c : cases) {
        const standin::Description description = standin::DescribeStream(StreamInfo(FORMAT_FAX_G4, c.flags));
        EXPECT_EQ(description.FileInfo.Declared.Orientation, c.orientation) << c.flags;
        EXPECT_EQ(standin::Load(filter, file, description).Bitmap->Orientation, c.orientation) << c.flags;
    }
}

} // namespace
