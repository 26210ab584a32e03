// Many threads at once through the one loaded filter: every call must end as it does alone, to the byte.
// Built with -DKFFAX_SANITIZE=thread, it also shows that no two of them touch the same memory.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "API/Filters/Fax/Fax.h"
#include "host/standin/standin.h"

namespace {

constexpr unsigned kWidth = 413;
constexpr int kHeight = 120; // the probe wants 100 lines
constexpr int kThreads = 8;
constexpr int kRounds = 3;

// What a call left behind: statuses and pixels as text.
using Outcome = std::string;
// A call that has the name of a file to itself.
using Job = std::function<Outcome(const std::string& ownFile)>;

standin::BitmapPtr MakePage(unsigned seed) {
    std::mt19937 random(seed);
    standin::BitmapPtr page = standin::MakeBitmap(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; x += 1 + static_cast<unsigned>(random() % 60))
            for (unsigned end = std::min(kWidth, x + static_cast<unsigned>(random() % 20)); x < end; ++x)
                standin::BitmapRow(*page, static_cast<size_t>(y))[x / 8] |=
                    static_cast<unsigned char>(0x80 >> x % 8);
    return page;
}

Outcome PixelsOf(const _BITMAPHANDLE& bitmap) {
    Outcome pixels;
    for (int y = 0; y < bitmap.Height; ++y) {
        const unsigned char* const row = standin::BitmapRow(bitmap, static_cast<size_t>(y));
        pixels.append(row, row + (bitmap.Width + 7) / 8);
    }
    return pixels;
}

Outcome OutcomeOf(const standin::LoadResult& load) {
    return std::to_string(load.Status) + ' ' + std::to_string(load.DataStatus) + ' ' +
           std::to_string(load.Rows) + ' ' + PixelsOf(*load.Bitmap);
}

Outcome ContentsOf(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Write(const std::string& name, const Outcome& contents) {
    std::ofstream(name, std::ios::binary) << contents;
}

standin::Description InfoOf(int format, bool reversed) {
    _LOADINFO stream = {};
    stream.Format = format;
    stream.Width = kWidth;
    stream.Height = kHeight;
    stream.Flags = LOADINFO_ORIENTATION_1 | (reversed ? LOADINFO_REVERSED_BITS : 0);
    return standin::DescribeStream(stream);
}

class Threads : public testing::Test {
protected:
    Threads() { std::filesystem::create_directories(directory); }
    ~Threads() override { std::filesystem::remove_all(directory); }

    std::string Path(const std::string& name) const { return directory + '/' + name; }
    void AddJobs(int format, bool reversed);
    void AddBlockJobs(int format);

    const std::string directory = testing::TempDir() + "kffax-threads-" + std::to_string(getpid());
    const standin::Filter filter = standin::LoadFilter(KFFAX_LIBRARY);
    std::vector<Job> jobs;
};

void Threads::AddJobs(int format, bool reversed) {
    const std::string good = Path(std::to_string(format) + (reversed ? "r" : ""));
    standin::SaveOptions how;
    how.Format = format;
    how.ReverseBits = reversed;
    const auto save = [=, this](const std::string& file) {
        const standin::BitmapPtr page = MakePage(static_cast<unsigned>(format));
        return standin::SaveFile(filter, file, *page, how);
    };
    ASSERT_EQ(save(good), SUCCESS);
    Outcome stream = ContentsOf(good);
    for (size_t i = stream.size() / 3; i < stream.size(); i += 97)
        stream[i] = static_cast<char>(stream[i] ^ 0x24);
    Write(good + ".damaged", stream);

    const auto load = [=, this](const std::string& file, bool batches, uint32_t flags) {
        standin::LoadOptions options;
        options.Batches = batches;
        options.AddedFlags = flags;
        return standin::Load(filter, file, InfoOf(format, reversed), options);
    };
    const standin::LoadResult first = load(good, false, 0);
    ASSERT_EQ(PixelsOf(*first.Bitmap), PixelsOf(*MakePage(static_cast<unsigned>(format))));
    ASSERT_EQ(first.DataStatus, 0);

    jobs.emplace_back([=](const std::string& file) {
        std::filesystem::remove(file); // a save does not cut a longer one
        const int status = save(file);
        return std::to_string(status) + ' ' + ContentsOf(file);
    });
    jobs.emplace_back([=](const std::string&) { return OutcomeOf(load(good, false, 0)); });
    jobs.emplace_back([=](const std::string&) { return OutcomeOf(load(good, true, LOADINFO_MIRROR)); });
    jobs.emplace_back([=](const std::string&) { return OutcomeOf(load(good + ".damaged", false, 0)); });
    jobs.emplace_back([=, this](const std::string&) {
        const standin::Description found = standin::Describe(filter, good);
        const _LOADINFO& info = found.LoadInfo;
        return std::to_string(found.Status) + ' ' + std::to_string(info.Format) + ' ' +
               std::to_string(info.Width) + ' ' + std::to_string(info.Height) + ' ' +
               std::to_string(info.Flags);
    });
    jobs.emplace_back([=](const std::string&) {
        Outcome rows = PixelsOf(*MakePage(7));
        Outcome block(rows.size() * 9, '\0');
        _BITMAPINFOHEADER header = {};
        header.Width = kWidth;
        header.Height = kHeight;
        header.BitsPerPixel = 1;
        const auto bytes = [](Outcome& text) { return reinterpret_cast<unsigned char*>(text.data()); };
        unsigned long long size = block.size();
        const int saved = fltSaveBuffer(bytes(rows), &header, bytes(block), &size, 0,
                                        reversed ? FAX_REVERSE_BITS : 0, format, 0, 0);
        block.resize(size);
        Outcome pixels(rows.size(), '\0');
        const int loaded = fltLoadBuffer(bytes(block), size, bytes(pixels), format, kWidth, kHeight, 0, 0,
                                         reversed ? LOADINFO_REVERSED_BITS : 0);
        return std::to_string(saved) + ' ' + std::to_string(loaded) + ' ' + block + pixels;
    });
}

void Threads::AddBlockJobs(int format) {
    for (const bool tiled : {true, false})
        jobs.emplace_back([=, this](const std::string&) {
            const standin::BitmapPtr page = MakePage(3);
            standin::SaveOptions how;
            how.Format = format;
            standin::Blocks blocks;
            blocks.Tiled = tiled;
            blocks.Width = tiled ? 128 : kWidth;
            blocks.Height = 48;
            blocks.Padding = 2;
            const int saved = standin::SaveBlocks(filter, *page, how, blocks);
            const standin::LoadResult loaded =
                standin::LoadBlocks(filter, InfoOf(format, false), blocks, false);
            return std::to_string(saved) + ' ' + Outcome(blocks.Bytes.begin(), blocks.Bytes.end()) +
                   OutcomeOf(loaded);
        });
}

TEST_F(Threads, EndAsTheyDoAlone) {
    for (const int format : {66, 67, 68, 117, 162}) {
        for (const bool reversed : {false, true})
            ASSERT_NO_FATAL_FAILURE(AddJobs(format, reversed));
        AddBlockJobs(format);
    }
    std::vector<Outcome> alone;
    for (const Job& job : jobs)
        alone.push_back(job(Path("alone")));

    std::atomic<size_t> different = 0;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (size_t number = 0; number < kThreads; ++number)
        threads.emplace_back([&, number] {
            const std::string ownFile = Path("thread" + std::to_string(number));
            std::vector<size_t> order; // its own, now beside others in the same job, now not
            for (size_t i = 0; i < kRounds * jobs.size(); ++i)
                order.push_back(i % jobs.size());
            std::shuffle(order.begin(), order.end(), std::mt19937(static_cast<unsigned>(number)));
            start.arrive_and_wait();
            for (const size_t job : order)
                if (jobs[job](ownFile) != alone[job])
                    ++different;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(different, 0u);
    EXPECT_TRUE(standin::HeldAllocations().Blocks.empty());
}

} // namespace
