// What becomes of a page between its input and its output: coded data that is copied, resolutions and the
// shape of pixels, lines that are repaired, the memory of all pages together.
#include "tests/kfax_run.h"

#include <algorithm>
#include <cstdlib>

namespace {

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

int Shell(const std::string& command) {
    return std::system(("( " + command + " ) >/dev/null 2>&1").c_str());
}

class KfaxPages : public KfaxRuns {
protected:
    void SetUp() override {
        KfaxRuns::SetUp();
        writePbm("in.pbm", picture_);
    }

    // The picture as Ghostscript paints the page of a PDF file.
    static Pixels Painted(const std::string& file, int across, int down) {
        EXPECT_EQ(Shell("gs -q -dSAFER -dNOPAUSE -dBATCH -sDEVICE=pbmraw -r" + std::to_string(across) + "x" +
                        std::to_string(down) + " -sOutputFile=painted.pbm " + file),
                  0);
        EXPECT_EQ(Shell("LC_ALL=C sed 2d painted.pbm >plain.pbm"), 0); // the comment
        return readPbm("plain.pbm");
    }

    Pixels picture_ = testPicture(344, 90);
};

TEST_F(KfaxPages, PdfPagesShowWhatWasCodedInEveryOrientation) {
    ASSERT_EQ(kfax("save in.pbm in.tif --rows-per-strip 90 --dpi 200").code, 0);
    for (int orientation = 1; orientation <= 8; ++orientation)
        for (const bool copied : {true, false}) {
            SCOPED_TRACE(std::to_string(orientation) + (copied ? " copied" : " coded"));
            ASSERT_EQ(Shell("tiffset -s 274 " + std::to_string(orientation) + " in.tif"), 0);
            EXPECT_EQ(kfax("load in.tif upright.pbm").code, 0);
            EXPECT_EQ(kfax("load in.tif out.pdf" + std::string(copied ? "" : " --mirror")).code, 0);
            EXPECT_EQ(Shell("qpdf --check out.pdf"), 0);
            if (!copied) {
                EXPECT_EQ(kfax("load in.tif upright.pbm --mirror").code, 0);
            }
            EXPECT_TRUE(Painted("out.pdf", 200, 200) == readPbm("upright.pbm"));
            EXPECT_EQ(kfax("load out.pdf back.pbm").code, 0);
            EXPECT_TRUE(readPbm("back.pbm") == readPbm("upright.pbm"));
            const auto told = jsonLines(kfax("info --json out.pdf").told);
            EXPECT_EQ(told[0]["orientation"], copied ? orientation : 1);
        }
}

// TIFF to PDF to TIFF: the strip is the same bytes all the way, and so is a whole run.
TEST_F(KfaxPages, WholeGroup4DataIsCopied) {
    for (const char* polarity : {"", " --no-invert"}) {
        ASSERT_EQ(kfax("save in.pbm one.tif --rows-per-strip 90 --dpi 204x98" + std::string(polarity)).code,
                  0);
        ASSERT_EQ(kfax("load one.tif one.pdf").code, 0);
        ASSERT_EQ(kfax("load one.pdf two.tif").code, 0);
        ASSERT_EQ(kfax("load one.pdf two.pdf").code, 0);
        EXPECT_EQ(Shell("pdfimages -ccitt one.pdf strip"), 0);
        const Bytes strip = readFile("strip-000.ccitt");
        for (const char* file : {"one.tif", "two.tif", "two.pdf"}) {
            const Bytes bytes = readFile(file);
            EXPECT_NE(std::search(bytes.begin(), bytes.end(), strip.begin(), strip.end()), bytes.end())
                << file;
        }
        EXPECT_EQ(kfax("load two.tif out.pbm").code, 0);
        EXPECT_TRUE(readPbm("out.pbm") == picture_);
        EXPECT_TRUE(readFile("one.pdf") == readFile("two.pdf"));
    }
    ASSERT_EQ(kfax("save in.pbm strips.tif --rows-per-strip 16").code, 0);
    ASSERT_EQ(kfax("load strips.tif copy.tif").code, 0); // several strips stay so
    EXPECT_TRUE(readFile("strips.tif") == readFile("copy.tif"));
    ASSERT_EQ(kfax("load strips.tif joined.pdf").code, 0);
    ASSERT_EQ(kfax("load joined.pdf out.pbm").code, 0);
    EXPECT_TRUE(readPbm("out.pbm") == picture_);

    // A strip without EOFB: a reader of the PDF must not wait for one.
    ASSERT_EQ(kfax("save in.pbm open.tif --rows-per-strip 90 --dpi 200").code, 0);
    ASSERT_EQ(kfax("load open.tif open.pdf").code, 0);
    EXPECT_FALSE(Contains(textOf("open.pdf"), "/EndOfBlock"));
    ASSERT_EQ(Shell("pdfimages -ccitt open.pdf strip"), 0);
    Bytes file = readFile("open.tif");
    const size_t size = readFile("strip-000.ccitt").size();
    const Bytes tag{0x17, 1}; // StripByteCounts, the value of which is at its byte 8
    const auto entry = std::find_end(file.begin(), file.end(), tag.begin(), tag.end());
    ASSERT_EQ(entry[8] | entry[9] << 8, static_cast<int>(size));
    entry[8] = static_cast<uint8_t>(size - 3);
    entry[9] = static_cast<uint8_t>((size - 3) >> 8);
    writeFile("open.tif", file);
    ASSERT_EQ(kfax("load open.tif open.pdf").code, 0);
    EXPECT_TRUE(Contains(textOf("open.pdf"), "/EndOfBlock false"));
    EXPECT_TRUE(Painted("open.pdf", 200, 200) == picture_);

    Bytes damaged = readFile("strips.tif");
    std::fill_n(damaged.begin() + 40, 60, uint8_t{0});
    writeFile("damaged.tif", damaged);
    EXPECT_EQ(kfax("load damaged.tif coded.tif").code, 3);
    EXPECT_EQ(kfax("verify coded.tif").code, 0); // what was damaged is not copied
}

TEST_F(KfaxPages, ManyPagesBecomeOnePdf) {
    EXPECT_EQ(kfax("save in.pbm in.pbm in.pbm all.pdf").code, 0);
    EXPECT_EQ(Shell("qpdf --check all.pdf"), 0);
    EXPECT_EQ(jsonLines(kfax("info --json all.pdf").told).size(), 3u);
    EXPECT_EQ(kfax("save --to pdf --out-dir dir in.pbm", "SOURCE_DATE_EPOCH=86400").code, 0);
    EXPECT_TRUE(Contains(textOf("dir/in.pdf"), "(D:19700102000000Z)"));
    expectRefused(2, "save in.pbm out.pdf --format g3");
    expectRefused(1, "save in.pbm out.pdf", "SOURCE_DATE_EPOCH=soon");
    EXPECT_TRUE(Contains(kfax("save in.pbm out.pdf", "TMPDIR=/nowhere").said, "kfax: /nowhere: "));
}

TEST_F(KfaxPages, ResolutionsAreKeptAndPixelsMadeSquare) {
    for (const auto& [across, down] :
         {std::pair(204, 98), std::pair(204, 196), std::pair(200, 400), std::pair(100, 800)}) {
        const std::string dpi = std::to_string(across) + "x" + std::to_string(down);
        SCOPED_TRACE(dpi);
        ASSERT_EQ(kfax("save in.pbm in.tif --dpi " + dpi).code, 0);
        for (const char* kind : {"png", "pdf", "tif"}) {
            const std::string file = std::string("out.") + kind;
            ASSERT_EQ(kfax("load in.tif " + file).code, 0);
            ASSERT_EQ(kfax("save " + file + " again.tif").code, 0);
            const auto told = jsonLines(kfax("info --json again.tif").told);
            EXPECT_EQ(told[0]["x_resolution"], across) << kind;
            EXPECT_EQ(told[0]["y_resolution"], down) << kind;
        }
        ASSERT_EQ(kfax("load in.tif square.tif --square").code, 0);
        const auto told = jsonLines(kfax("info --json square.tif").told);
        EXPECT_EQ(told[0]["y_resolution"], across);
        const int height = (90 * across + down / 2) / down;
        EXPECT_EQ(told[0]["height"], height);
        ASSERT_EQ(kfax("load square.tif square.pbm").code, 0);
        Pixels square = readPbm("square.pbm");
        for (int y = 0; y < height; ++y) { // every line is there, none is lost where they are joined
            const int first = y * down / across;
            const int last = y + 1 == height ? 89 : std::max((y + 1) * down / across - 1, first);
            for (size_t x = 0; x < picture_.width; ++x) {
                bool black = false;
                for (int line = first; line <= std::min(last, 89); ++line)
                    black = black || picture_.black(x, static_cast<size_t>(line));
                ASSERT_EQ(square.black(x, static_cast<size_t>(y)), black) << x << " " << y;
            }
        }
    }
    for (const char* dpi : {"0", "98x", "x98", "98x0", "98x98x98", "98,98"})
        expectRefused(2, "save in.pbm no.tif --dpi " + std::string(dpi));
}

// A line of a G3 stream, of a TIFF's strip and of a tile becomes the line above; the message and JSON count
// it.
TEST_F(KfaxPages, DamagedLinesAreRepaired) {
    struct Case {
        const char* name;
        const char* saved;
        const char* loaded;
    };
    constexpr Case kCases[] = {{"lines.g3", "", " --format g3 --width 344 --height 90"},
                               {"lines.tif", " --rows-per-strip 30", ""},
                               {"lines.tif", " --tile 176x48", ""}};
    for (const Case& one : kCases) {
        SCOPED_TRACE(one.name + std::string(one.saved));
        const std::string name = one.name;
        ASSERT_EQ(kfax("save in.pbm " + name + " --format g3" + one.saved).code, 0);
        const Bytes bytes = readFile(name);
        bool found = false; // a bit whose change makes one line too short
        for (size_t bit = bytes.size() * 3; bit < bytes.size() * 5 && !found; ++bit) {
            Bytes changed = bytes;
            changed[bit / 8] = static_cast<uint8_t>(changed[bit / 8] ^ 1u << bit % 8);
            writeFile("bad" + name, changed);
            const auto verdict = jsonLines(kfax("verify --json --quiet bad" + name + one.loaded).told);
            if (verdict.size() != 1 || verdict[0]["lines"].size() != 1)
                continue;
            const auto fault = verdict[0]["lines"][0];
            const size_t line = fault["first"].get<size_t>() - 1;
            if (fault["fault"] != "ends before its right edge" || fault["last"] != line + 1 || line == 0)
                continue;
            found = true;
            const Outcome load =
                kfax("load --repair bad" + name + one.loaded + " --out-dir dir --to pbm --json");
            EXPECT_EQ(load.code, 3);
            EXPECT_EQ(jsonLines(load.told)[0]["repaired"], 1);
            EXPECT_TRUE(Contains(load.said, "1 line is repeated from the line above"));
            Pixels expected = picture_;
            const bool isTile = fault.contains("block") && Contains(fault["block"], "tile");
            const bool isRight = isTile && std::stoi(fault["block"].get<std::string>().substr(5)) % 2 == 0;
            const size_t from = isRight ? 176 / 8 : 0;
            const size_t count = (isTile && !isRight ? 176 / 8 : expected.rowBytes()) - from;
            std::copy_n(picture_.row(line - 1) + from, count, expected.row(line) + from);
            EXPECT_TRUE(readPbm("dir/badlines.pbm") == expected);
        }
        EXPECT_TRUE(found);
    }
}

// A stream whose writer left out the EOL in front of the first line.
TEST_F(KfaxPages, ShortLinesAreFoundWithoutAnEolInFront) {
    // Per line of 16 white pixels 101010 and an EOL; the third has 8 (10011).
    const std::string full = "101010000000000001", cut = "10011000000000001";
    std::string bits = full + full + cut + full;
    bits.resize((bits.size() + 7) / 8 * 8, '0');
    Bytes bytes;
    for (size_t i = 0; i < bits.size(); i += 8)
        bytes.push_back(static_cast<uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2)));
    writeFile("short.g3", bytes);
    EXPECT_EQ(kfax("verify short.g3 --format g3 --width 16 --height 4").told,
              "short.g3: line 3: ends before its right edge\n");
}

void Put(Bytes& to, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

// One row a strip, all strips with the same bytes.
Bytes OverlappingStrips(uint32_t count, uint32_t bytes) {
    Bytes file{'I', 'I', 42, 0};
    const uint32_t offsets = 8 + bytes, counts = offsets + 4 * count, directory = counts + 4 * count;
    Put(file, directory, 4);
    file.resize(offsets, 0x9A);
    for (uint32_t i = 0; i < count; ++i)
        Put(file, 8, 4);
    for (uint32_t i = 0; i < count; ++i)
        Put(file, bytes, 4);
    const uint32_t entries[][4] = {{256, 4, 1, 1728}, {257, 4, 1, count}, {258, 3, 1, 1},
                                   {259, 3, 1, 4},    {262, 3, 1, 0},     {273, 4, count, offsets},
                                   {277, 3, 1, 1},    {278, 4, 1, 1},     {279, 4, count, counts}};
    Put(file, std::size(entries), 2);
    for (const auto& entry : entries) {
        Put(file, entry[0], 2);
        Put(file, entry[1], 2);
        Put(file, entry[2], 4);
        Put(file, entry[3], 4);
    }
    Put(file, 0, 4);
    return file;
}

// Files of some bytes that stand for gigabytes. None takes more than the limit of the shell.
TEST_F(KfaxPages, MemoryIsAskedForBeforeItIsTaken) {
#ifdef __SANITIZE_ADDRESS__ // takes terabytes of addresses
    const std::string limit;
#else
    const std::string limit = "ulimit -v 400000;";
#endif
    writeFile("overlap.tif", OverlappingStrips(20000, 300000));
    EXPECT_NE(kfax("info overlap.tif", limit).code, 1);
    EXPECT_NE(kfax("load overlap.tif out.tif", limit).code, 1);
    EXPECT_LT(std::filesystem::file_size("out.tif"), 20u << 20); // and not 20,000 times the bytes

    ASSERT_EQ(kfax("save in.pbm sparse.g3 --format g3").code, 0);
    std::filesystem::resize_file("sparse.g3", uint64_t{3} << 30);
    EXPECT_EQ(kfax("verify sparse.g3 --format g3 --width 344 --height 10", limit).code, 0);

    ASSERT_EQ(Shell("head -c 12500000 /dev/zero | (printf 'P4 10000 10000\n'; cat) >large.pbm"), 0);
    ASSERT_EQ(Shell("pnmtopng -interlace large.pbm >large.png"), 0);
    expectRefused(1, "save large.png no.g4 --memory 90"); // a byte a pixel
    expectRefused(1, "save large.pbm no.g4 --memory 20");
    EXPECT_EQ(kfax("save large.pbm large.g4 --memory 30").code, 0);
    // Together they do not fit in: one after the other is worked on alone.
    for (const char* name : {"a", "b", "c", "d"})
        std::filesystem::copy_file("large.pbm", std::string(name) + ".pbm");
    const Outcome many = kfax("save --out-dir dir --jobs 4 --memory 30 a.pbm b.pbm c.pbm d.pbm");
    EXPECT_EQ(many.code, 0);
    EXPECT_EQ(many.said, "");
}

TEST_F(KfaxPages, NamesInMessagesAndJsonCannotBeMistaken) {
    writeFile("a\xFF.g4", {0});
    writeFile("a\xFE.g4", {0});
    const auto told = jsonLines(kfax("info --json a\xFF.g4 a\xFE.g4").told);
    EXPECT_EQ(told[0]["file_percent_encoded"], "a%FF.g4");
    EXPECT_EQ(told[1]["file_percent_encoded"], "a%FE.g4");
    EXPECT_TRUE(Contains(kfax("info 'a\xC2\x9B.g4' 'a\xFF.g4' 'a\x1B[2J'").said, "a\\xc2\\x9b.g4"));
    EXPECT_EQ(kfax("'\x1B[2J\xC2\x9B'").said.find('\x1B'), std::string::npos);
}

} // namespace
