// kfax on raw fax streams and pictures: what it says of them, what it makes of them, and what it refuses.
#include "tests/kfax_run.h"

#include <sys/stat.h>

namespace {

const Pixels kPage = testPicture(1001, 300);

struct RawFormat {
    const char* name;
    int number;
};
constexpr RawFormat kRawFormats[] = {
    {"g3", 66}, {"g3-2d", 67}, {"g4", 68}, {"g3-all2d", 117}, {"g3-noeol", 162}};

class Kfax : public KfaxRuns {
protected:
    void SetUp() override {
        KfaxRuns::SetUp();
        writePbm("page.pbm", kPage);
    }
};

TEST_F(Kfax, EveryFormatComesBack) {
    const std::string size = " --width 1001 --height 300 --format ";
    for (const RawFormat& format : kRawFormats)
        for (const char* order : {"", " --reverse-bits"}) {
            SCOPED_TRACE(std::string(format.name) + order);
            EXPECT_EQ(kfax(std::string("save page.pbm page.fax --format ") + format.name + order).code, 0);
            for (const std::string& name : {std::string(format.name), std::to_string(format.number)}) {
                const Outcome load = kfax("load page.fax back.pbm" + size + name + order);
                EXPECT_EQ(load.code, 0) << load.said;
                EXPECT_EQ(load.said, "");
                EXPECT_TRUE(readPbm("back.pbm") == kPage);
            }
        }
}

TEST_F(Kfax, MirrorInvertAndBatch) {
    ASSERT_EQ(kfax("save page.pbm page.g4").code, 0);
    const std::string how = " --width 1001 --height 300 --format g4";
    Pixels expected{kPage.width, kPage.height, Bytes(kPage.rows.size())};
    for (uint32_t y = 0; y < kPage.height; ++y)
        for (uint32_t x = 0; x < kPage.width; ++x)
            if (!kPage.black(kPage.width - 1 - x, y))
                expected.blacken(x, y);
    // By the loader on the stream, and by kfax on the picture.
    EXPECT_EQ(kfax("load page.g4 back.pbm --batch --mirror --invert" + how).code, 0);
    EXPECT_TRUE(readPbm("back.pbm") == expected);
    EXPECT_EQ(kfax("load page.pbm back2.pbm --mirror --invert").code, 0);
    EXPECT_TRUE(readPbm("back2.pbm") == expected);
}

// Through every kind of file and back, chosen by extension or by --to.
TEST_F(Kfax, KindsConvertIntoOneAnother) {
    const char* const chain[] = {"save page.pbm a.png",
                                 "load a.png b.TIFF --code g3-2d --tile 64x48",
                                 "save b.TIFF c.fax --format g4",
                                 "load c.fax d.xyz --to tif --format g4 --width 1001 --height 300 --code g3",
                                 "save d.xyz e --to png --dpi 98",
                                 "load e f.pbm"};
    for (const char* step : chain) {
        const Outcome outcome = kfax(step);
        EXPECT_EQ(outcome.code, 0) << step << ": " << outcome.said;
        EXPECT_EQ(outcome.said, "") << step;
    }
    EXPECT_TRUE(readPbm("f.pbm") == kPage);
    const auto told = jsonLines(kfax("info --json b.TIFF").told);
    EXPECT_EQ(told[0]["coding"], "g3-2d");
    EXPECT_EQ(told[0]["layout"], "tiles of 64 x 48");
}

TEST_F(Kfax, InfoTellsWhatTheFilesAre) {
    ASSERT_EQ(kfax("save page.pbm page.g3 --format g3 --reverse-bits").code, 0);
    Bytes header{0xDC, 0xDC, 0, 0, 0, 0, 44, 1, 0xE9, 3, 0, 0, 0, 1, 0, 0, 98, 0, 204, 0};
    header.resize(512);
    ASSERT_EQ(kfax("save page.pbm page.g4").code, 0);
    for (const uint8_t byte : readFile("page.g4"))
        header.push_back(byte);
    writeFile("page.hdr", header);

    const Outcome info = kfax("info --json page.g3 page.hdr page.pbm");
    EXPECT_EQ(info.code, 1); // a picture is not a fax file
    const auto told = jsonLines(info.told);
    ASSERT_EQ(told.size(), 3u);
    EXPECT_EQ(told[0]["format"], 66);
    EXPECT_EQ(told[0]["width"], 1001);
    EXPECT_EQ(told[0]["bit_order"], "reversed");
    EXPECT_EQ(told[1]["format"], 121);
    EXPECT_EQ(told[1]["height"], 300);
    EXPECT_EQ(told[1]["y_resolution"], 98);
    EXPECT_EQ(told[1]["damaged"], false);
    EXPECT_TRUE(told[2].contains("error"));
    EXPECT_EQ(kfax("load page.hdr back.pbm").code, 0);
    EXPECT_TRUE(readPbm("back.pbm") == kPage);
}

TEST_F(Kfax, DamageIsReportedAndTheRestLoaded) {
    ASSERT_EQ(kfax("save page.pbm page.g4").code, 0);
    Bytes stream = readFile("page.g4");
    stream.resize(stream.size() / 2);
    writeFile("cut.g4", stream);
    const Outcome load = kfax("load cut.g4 back.pbm --format g4 --width 1001 --height 300");
    EXPECT_EQ(load.code, 3);
    EXPECT_TRUE(load.said.starts_with("kfax: cut.g4: damaged: ")) << load.said;
    const Pixels back = readPbm("back.pbm");
    ASSERT_EQ(back.rows.size(), kPage.rows.size());
    const auto firstRows = static_cast<ptrdiff_t>(kPage.rowBytes() * 100);
    EXPECT_TRUE(std::equal(kPage.rows.begin(), kPage.rows.begin() + firstRows, back.rows.begin()));
}

TEST_F(Kfax, WhatCannotBeIsRefused) {
    writeFile("empty", {});
    writeFile("text", Bytes(5000, 'x'));
    writeFile("short.pbm", {'P', '4', '\n', '9', ' ', '9', '\n', 0});
    const struct {
        int code;
        const char* arguments;
    } cases[] = {
        {1, "load missing out.png"},
        {1, "load empty out.png"},
        {1, "load . out.png"},
        {1, "load text out.png"},
        {1, "load short.pbm out.png"},
        {1, "load page.pbm nowhere/out.png"},
        {1, "load page.pbm out.png --page 2"},
        {2, "load page.pbm out.png --page 1 --all-pages"},
        {2, "load page.pbm out.xyz"},
        {2, "load page.pbm out --to gif"},
        {2, "load page.pbm out.png --format g4"},
        {2, "load text out.png --format g4 --width 100"},
        {2, "load text out.png --format g4 --width 250000 --height 1"},
        {2, "load text out.png --format g5 --width 10 --height 1"},
        {2, "load page.pbm out.png --tile 16x16"},
        {2, "save page.pbm out.tif --tile 15x16"},
        {2, "save page.pbm out.tif --tile 16"},
        {2, "save page.pbm out.tif --tile 16x16 --rows-per-strip 5"},
        {2, "save page.pbm out.tif --rows-per-strip 0"},
        {2, "save page.pbm out.tif --format g3-all2d"},
        {2, "save page.pbm page.pbm out.g4"},
        {2, "save page.pbm out.g4 --format header"},
        {1, "save text out.g4"},
        {1, "save page.pbm missing out.tif"},
    };
    for (const auto& refused : cases)
        expectRefused(refused.code, refused.arguments);
    for (const char* full : {"save page.pbm out.tif", "save page.pbm out.g4", "load page.pbm out.pbm"})
        expectRefused(1, full, "ulimit -f 1;");
    // What stood under the name stays.
    writeFile("out.tif", {1, 2, 3});
    expectRefused(1, "save page.pbm missing out.tif");
    EXPECT_EQ(readFile("out.tif"), (Bytes{1, 2, 3}));
}

// What exists and is no regular file is written in place: a file put where it was would lose the data.
TEST_F(Kfax, OutputsThatAreNoRegularFiles) {
    ASSERT_EQ(kfax("load page.pbm plain.pbm && '" KFAX_PROGRAM "' save page.pbm plain.tif").code, 0);
    for (const std::string& kind : {std::string("pbm"), std::string("tif")}) {
        SCOPED_TRACE(kind);
        const std::string load = "load page.pbm --to " + kind + ' ';
        ASSERT_EQ(mkfifo("pipe", 0600), 0);
        EXPECT_EQ(kfax(load + "pipe", "timeout 20 cat pipe >got & timeout 20").code, 0);
        ASSERT_EQ(std::system("sleep 0.2"), 0); // the reader's last write
        EXPECT_TRUE(std::filesystem::is_fifo("pipe"));
        EXPECT_TRUE(readFile("got") == readFile("plain." + kind));
        std::filesystem::remove("pipe");

        std::filesystem::create_symlink("/dev/stdout", "link");
        for (const char* output : {"-", "/dev/stdout", "/proc/self/fd/1", "link"})
            EXPECT_EQ(kfax(load + output).told, textOf("plain." + kind)) << output;
        EXPECT_TRUE(std::filesystem::is_symlink("link"));
        std::filesystem::remove("link");
    }
    std::filesystem::create_symlink("two", "one");
    std::filesystem::create_symlink("one", "two");
    expectRefused(1, "load page.pbm one --to pbm");
    EXPECT_TRUE(std::filesystem::is_symlink("one"));
}

TEST_F(Kfax, InputsThatAreNoRegularFiles) {
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char* arguments : {"load pipe a.png", "save pipe a.tif", "info pipe", "verify pipe"})
        expectRefused(1, arguments, "timeout 20");
    const Outcome copy = kfax("load /dev/stdin a.pbm <page.pbm");
    EXPECT_EQ(copy.code, 0) << copy.said;
    EXPECT_TRUE(readPbm("a.pbm") == kPage);
}

// No output of any kind takes the place of an input, whichever of them comes first.
TEST_F(Kfax, InputsAreNotOverwritten) {
    ASSERT_EQ(kfax("save page.pbm page.pbm two.tif").code, 0);
    const Bytes whole = readFile("two.tif");
    for (const char* input : {"two-2.png", "sheet.png"})
        writeFile(input, whole);
    for (const char* arguments :
         {"load --out-dir . two.tif two-2.png", "load --thumbnail 40 two.tif sheet.png sheet.png"}) {
        EXPECT_EQ(kfax(arguments).code, 1) << arguments;
        for (const char* input : {"two.tif", "two-2.png", "sheet.png"})
            EXPECT_TRUE(readFile(input) == whole) << arguments << ": " << input;
    }
}

} // namespace
