// kfax on many files: what it writes and says, in which order, and what is left when it is stopped.
#include "tests/kfax_run.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::map<std::string, Bytes> treeOf(const std::string& directory) {
    std::map<std::string, Bytes> files;
    if (fs::exists(directory))
        for (const auto& entry : fs::recursive_directory_iterator(directory))
            if (entry.is_regular_file())
                files[fs::relative(entry.path(), directory)] = readFile(entry.path());
    return files;
}

std::string namesIn(const std::string& directory) {
    std::string names;
    for (const auto& [name, bytes] : treeOf(directory))
        names.append(names.empty() ? "" : " ").append(name);
    return names;
}

class KfaxBatch : public KfaxRuns {
protected:
    // a.g3, b.g3 and two.tif with two pages are good; cut.hdr is damaged; no.g3 is none; sub/a.g3 is a.g3.
    void SetUp() override {
        KfaxRuns::SetUp();
        writePbm("a.pbm", testPicture(300, 150));
        writePbm("b.pbm", testPicture(500, 120));
        ASSERT_EQ(kfax("save a.pbm a.g3 --format g3").code, 0);
        ASSERT_EQ(kfax("save b.pbm b.g3 --format g3").code, 0);
        ASSERT_EQ(kfax("save a.pbm b.pbm two.tif --rows-per-strip 40").code, 0);
        ASSERT_EQ(kfax("save a.pbm a.g4").code, 0);
        Bytes header{0xDC, 0xDC, 0, 0, 0, 0, 150, 0, 44, 1, 0, 0, 0, 1, 0, 0, 98, 0, 204, 0};
        header.resize(512);
        const Bytes stream = readFile("a.g4");
        header.insert(header.end(), stream.begin(),
                      stream.begin() + static_cast<ptrdiff_t>(stream.size() / 2));
        writeFile("cut.hdr", header);
        writeFile("no.g3", Bytes(3000, 'x'));
        fs::create_directory("sub");
        fs::copy("a.g3", "sub/a.g3");
    }
};

TEST_F(KfaxBatch, CommandLines) {
    const struct {
        const char* before; // of kfax, what feeds its standard input
        const char* arguments;
        int code;
        const char* written; // in out/
        const char* said;    // on standard error, somewhere
        const char* told = "";
    } cases[] = {
        {"", "load --out-dir out a.g3 b.g3", 0, "a.png b.png", ""},
        {"", "load --out-dir out/deep --to tif a.g3 two.tif", 0, "deep/a.tif deep/two.tif", ""},
        {"", "load --out-dir out two.tif", 0, "two-001.png two-002.png", ""},
        {"", "load --out-dir out two.tif --page 2 --to pbm", 0, "two.pbm", ""},
        {"", "load --out-dir out a.g3 sub/a.g3", 1, "", "sub/a.g3: would be out/a.png, as would a.g3"},
        {"", "load --out-dir out a.g3 sub/a.g3 --keep-tree", 0, "a.png sub/a.png", ""},
        {"", "load --out-dir out ../x/a.g3 --keep-tree", 1, "", "lies above the current directory"},
        {"", "load --out-dir out a.g3 a.pbm --keep-ext --to raw --code g3", 0, "a.g3.g3 a.pbm.g3", ""},
        {"", "load --out-dir sub sub/a.g3 --to raw --code g3", 1, "", "an output would have its name"},
        {"", "load --out-dir out a.g3 b.g3 a.g3", 1, "", "a.g3: is listed twice"},
        {"", "load two.tif ./two.tif --page 1", 1, "", "two.tif: is its own output"},
        {"", "load --out-dir a.g3 b.g3", 1, "", "kfax: a.g3: "},
        {"", "load --out-dir out a.g3 cut.hdr", 3, "a.png cut.png",
         "2 files: 1 converted, 1 damaged, 0 failed"},
        {"", "load --out-dir out missing a.g3 no.g3", 1, "a.png",
         "3 files: 1 converted, 0 damaged, 2 failed"},
        {"", "load --out-dir out missing a.g3 --fail-fast -j 1", 1, "*", "kfax: missing: No such file"},
        {"", "load --out-dir out missing a.g3 --fail-fast --keep-going", 2, "", "excludes"},
        {"", "save --out-dir out a.pbm two.tif --format g3-2d", 0, "a.tif two.tif", ""},
        {"", "save --out-dir out a.pbm two.tif --to raw", 0, "a.g4 two-001.g4 two-002.g4", ""},
        {"printf 'a.g3\\nb.g3' |", "load --out-dir out -", 0, "a.png b.png", ""},
        {"printf 'a.g3\\0b.g3\\0' |", "load --out-dir out -0", 0, "a.png b.png", ""},
        {"printf 'b.g3\\n' |", "load --out-dir out a.g3 - two.tif --to tif", 0, "a.tif b.tif two.tif", ""},
        {"printf 'a.g3\\n' |", "load --out-dir out - -0", 2, "", "give - or -0 once"},
        {"true |", "load --out-dir out -", 0, "", ""},
        {"", "load a.g3 out.png -0", 2, "", "--out-dir"},
        {"", "load a.g3 out.png --skip-existing", 2, "", "requires --out-dir"},
        {"", "load a.g3", 2, "", "name a file to read and one to write"},
        {"", "load a.g3 b.g3 out.png", 2, "", "--out-dir DIR converts several"},
        {"cat a.g3 |", "load - - --to pbm", 0, "", "", "P4\n300 15"},
        {"cat two.tif |", "load - - --to png", 0, "", "standard input: page 1 of 2", "\x89PNG"},
        {"cat two.tif |", "load - - --to png --quiet", 0, "", "", "\x89PNG"},
        {"cat two.tif |", "load - - --to png --all-pages", 2, "", "as a TIFF or PDF file only"},
        {"cat a.pbm |", "save - - --to tif", 0, "", "", "II"},
        {"cat no.g3 |", "load - - --to png", 1, "", "kfax: standard input: no fax stream"},
        {"printf 'a.g3\\nb.g3\\n' |", "info -", 0, "", "", "b.g3\n  format       66"},
        {"cat a.g3 |", "verify -", 1, "", "kfax: standard input: no list of names"},
        {"", "verify a.g3 b.g3 two.tif", 0, "", "", "a.g3: good\nb.g3: good\ntwo.tif: page 1: good\n"},
        {"", "verify a.g3 b.g3 two.tif --quiet", 0, "", ""},
        {"", "verify \"$(printf 'no\\nfile')\"", 1, "", "kfax: no\\x0afile: No such file"},
        {"", "verify a.g3 a.pbm", 1, "", "a.pbm: a picture", "a.g3: good"},
        {"", "verify", 2, "", "name the files"},
        {"", "load a.g3 two.tif missing out.png --thumbnail 8", 2, "", "--thumbnail must be"},
        {"", "load a.g3 two.tif out.tif --thumbnail 80", 2, "", ".png"},
        {"", "load no.g3 missing out.png --thumbnail 80", 1, "", "nothing is written"},
    };
    for (const auto& line : cases) {
        SCOPED_TRACE(std::string(line.before) + " kfax " + line.arguments);
        fs::remove_all("out");
        const Outcome outcome = kfax(line.arguments, line.before);
        EXPECT_EQ(outcome.code, line.code) << outcome.said;
        if (std::string(line.written) != "*") {
            EXPECT_EQ(namesIn("out"), line.written);
        }
        EXPECT_NE(outcome.said.find(line.said), std::string::npos) << outcome.said;
        EXPECT_EQ(outcome.said.empty(), *line.said == '\0') << outcome.said;
        EXPECT_NE(outcome.told.find(line.told), std::string::npos) << outcome.told.substr(0, 200);
        EXPECT_EQ(outcome.told.empty(), *line.told == '\0') << outcome.told.substr(0, 200);
        EXPECT_FALSE(fs::exists("out.png"));
    }
    EXPECT_EQ(kfax("verify a.g3 two.tif >/dev/full").code, 1);
}

// Every kind of result, in more files than threads: bytes, lines and their order are those of one thread.
TEST_F(KfaxBatch, JobsChangeNothing) {
    std::string inputs;
    for (int i = 0; i < 60; ++i) {
        const char* const kinds[] = {"a.g3", "two.tif", "cut.hdr", "no.g3", "b.g3", "missing", "a.g3"};
        const char* const kind = kinds[i % 7];
        const std::string name = std::to_string(i) + kind;
        if (fs::exists(kind))
            fs::copy(kind, name);
        inputs += name + " ";
    }
    for (const std::string command : {"load --json --to pbm --out-dir ", "save --json --out-dir "}) {
        const Outcome one = kfax(command + "one -j 1 " + inputs);
        const Outcome many = kfax(command + "many -j 7 " + inputs);
        EXPECT_EQ(one.code, 1);
        EXPECT_EQ(many.code, 1);
        EXPECT_EQ(one.said, many.said);
        EXPECT_TRUE(treeOf("one") == treeOf("many"));
        const auto lines = jsonLines(one.told), others = jsonLines(many.told);
        ASSERT_EQ(lines.size(), 60u);
        ASSERT_EQ(others.size(), 60u);
        for (size_t i = 0; i < lines.size(); ++i) {
            static constexpr const char* kStatuses[] = {"good", "good",   "damaged", "failed",
                                                        "good", "failed", "good"};
            EXPECT_EQ(lines[i]["file"].get<std::string>().find(std::to_string(i)), 0u);
            EXPECT_EQ(lines[i]["status"], kStatuses[i % 7]);
            EXPECT_EQ(lines[i]["file"], others[i]["file"]);
            EXPECT_EQ(lines[i]["status"], others[i]["status"]);
            EXPECT_EQ(lines[i].contains("error"), i % 7 == 3 || i % 7 == 5);
        }
        EXPECT_EQ(kfax("verify -j 1 " + inputs).told, kfax("verify -j 7 " + inputs).told);
        fs::remove_all("one");
        fs::remove_all("many");
    }
}

TEST_F(KfaxBatch, InterruptedAndResumed) {
    writePbm("large.pbm", testPicture(2000, 2000));
    ASSERT_EQ(kfax("save large.pbm large.tif").code, 0);
    constexpr size_t kFiles = 80;
    fs::create_directory("in");
    for (size_t i = 0; i < kFiles; ++i)
        fs::create_hard_link("large.tif", std::string("in/") + std::to_string(i) + ".tif");

    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGINT, SIG_DFL); // whatever the tests run in
        execl("/bin/sh", "sh", "-c", "exec '" KFAX_PROGRAM "' load --to pbm --out-dir out -j 3 in/*.tif",
              nullptr);
        _exit(127);
    }
    const auto finished = [] { // the others have names that begin with a dot
        const auto names = treeOf("out");
        return std::count_if(names.begin(), names.end(),
                             [](const auto& file) { return file.first[0] != '.'; });
    };
    while (finished() < 4 && waitpid(child, nullptr, WNOHANG) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    kill(child, SIGINT);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);

    const auto before = treeOf("out");
    EXPECT_GE(before.size(), 4u);
    EXPECT_LT(before.size(), kFiles);
    std::map<std::string, fs::file_time_type> times;
    const Bytes whole = readFile("large.pbm");
    for (const auto& [name, bytes] : before) {
        EXPECT_TRUE(name.ends_with(".pbm") && name[0] != '.') << name;
        EXPECT_TRUE(bytes == whole) << name;
        times[name] = fs::last_write_time(std::string("out/") + name);
    }

    const Outcome resumed = kfax("load --to pbm --out-dir out --skip-existing --json in/*.tif");
    EXPECT_EQ(resumed.code, 0) << resumed.said;
    size_t skipped = 0;
    for (const auto& line : jsonLines(resumed.told))
        skipped += line["status"] == "skipped";
    EXPECT_EQ(skipped, before.size());
    for (const auto& [name, time] : times)
        EXPECT_EQ(fs::last_write_time(std::string("out/") + name), time) << name << " was written twice";
    const auto after = treeOf("out");
    EXPECT_EQ(after.size(), kFiles);
    for (const auto& [name, bytes] : after)
        EXPECT_TRUE(bytes == whole) << name;
    // All pages of a file count, and its numbered outputs.
    EXPECT_EQ(kfax("load --out-dir out two.tif").code, 0);
    EXPECT_NE(kfax("load --out-dir out two.tif --skip-existing --json").told.find("skipped"),
              std::string::npos);
    fs::remove("out/two-002.png");
    EXPECT_NE(kfax("load --out-dir out two.tif --skip-existing --json").told.find("good"), std::string::npos);
}

size_t firstDifferentRow(Pixels one, Pixels other) {
    size_t y = 0;
    while (y < one.height && std::equal(one.row(y), one.row(y) + one.rowBytes(), other.row(y)))
        ++y;
    return y;
}

// Streams with one bit changed: the first line that verify names is where the picture goes wrong.
TEST_F(KfaxBatch, VerifyNamesTheLines) {
    const Pixels page = testPicture(3000, 800); // more than the decoder's input buffer holds
    writePbm("page.pbm", page);
    const std::string size = " --width 3000 --height 800 --format ";
    std::mt19937 random(5);
    const struct {
        const char* format;
        int leastFound; // of 30
    } formats[] = {{"g3", 24}, {"g3-2d", 20}, {"g4", 20}, {"g3-all2d", 20}, {"g3-noeol", 12}};
    for (const auto& [format, leastFound] : formats) {
        SCOPED_TRACE(format);
        ASSERT_EQ(kfax(std::string("save page.pbm page.fax --format ") + format).code, 0);
        const Outcome good = kfax("verify page.fax" + size + format);
        EXPECT_EQ(good.told, "page.fax: good\n") << good.said;
        EXPECT_EQ(kfax("verify page.fax").said.find("see whether it is two-dimensional") != std::string::npos,
                  std::string(format) == "g3-2d");
        const Bytes stream = readFile("page.fax");
        EXPECT_GT(stream.size(), 160000u);
        std::string names;
        for (int i = 0; i < 30; ++i) {
            Bytes flipped = stream;
            flipped[random() % (stream.size() - 100)] ^= static_cast<uint8_t>(1 << random() % 8);
            writeFile(std::to_string(i) + ".fax", flipped);
            names += std::to_string(i) + ".fax ";
        }
        kfax("load --to pbm --out-dir flipped " + names + size + format);
        const auto verdicts = jsonLines(kfax("verify --json " + names + size + format).told);
        ASSERT_EQ(verdicts.size(), 30u);
        int found = 0, exact = 0;
        for (int i = 0; i < 30; ++i) {
            const auto& lines = verdicts[static_cast<size_t>(i)]["lines"];
            if (lines.empty())
                continue;
            ++found;
            const auto row = static_cast<int>(
                firstDifferentRow(page, readPbm(std::string("flipped/") + std::to_string(i) + ".pbm")));
            exact += std::abs(lines[0]["first"].get<int>() - 1 - row) <= 1;
        }
        EXPECT_GE(found, leastFound);
        const bool lineEndsTell = std::string(format) == "g3" || std::string(format) == "g3-2d";
        EXPECT_GE(exact, lineEndsTell ? found * 9 / 10 : 0);
    }
}

TEST_F(KfaxBatch, VerifyTellsWhatAndWhere) {
    // Half a Group 4 stream: the line in which it ends is the first that the picture lacks.
    EXPECT_EQ(kfax("load cut.hdr cut.pbm").code, 3);
    const size_t row = firstDifferentRow(readPbm("a.pbm"), readPbm("cut.pbm"));
    const Outcome cut = kfax("verify cut.hdr");
    EXPECT_EQ(cut.code, 3);
    EXPECT_EQ(cut.told,
              std::string("cut.hdr: lines ") + std::to_string(row + 1) + " to 150: the data ends\n");
    EXPECT_EQ(cut.said, "");
    // Strips count by the page's lines. Those of the first page lie in front, 40 lines each.
    Bytes file = readFile("two.tif");
    for (size_t at = 60; at < 120; ++at)
        file[at] = 0;
    writeFile("bad.tif", file);
    const auto verdicts = jsonLines(kfax("verify --json bad.tif").told);
    ASSERT_EQ(verdicts.size(), 2u);
    EXPECT_EQ(verdicts[0]["status"], "damaged");
    EXPECT_EQ(verdicts[0]["page"], 1);
    for (const auto& lines : verdicts[0]["lines"]) {
        EXPECT_EQ(lines["block"], "strip 1 of 4");
        EXPECT_LE(lines["last"], 40);
    }
    EXPECT_FALSE(verdicts[0]["lines"].empty());
    EXPECT_EQ(verdicts[1]["status"], "good");
}

TEST_F(KfaxBatch, ThumbnailsShowEveryPage) {
    Pixels black = testPicture(400, 400), stripes = black, white = black;
    for (size_t i = 0; i < black.rows.size(); ++i) {
        black.rows[i] = 0xFF;
        stripes.rows[i] = 0xAA;
        white.rows[i] = 0;
    }
    writePbm("black.pbm", black);
    writePbm("stripes.pbm", stripes);
    writePbm("white.pbm", white);
    EXPECT_EQ(kfax("save black.pbm stripes.pbm white.pbm three.tif").code, 0);
    const Outcome outcome = kfax("load three.tif missing white.pbm sheet.png --thumbnail 50");
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(kfax("save sheet.png dark.pbm --to pbm --threshold 100").code, 0);
    EXPECT_EQ(kfax("save sheet.png grey.pbm --to pbm --threshold 160").code, 0);
    const Pixels dark = readPbm("dark.pbm"), grey = readPbm("grey.pbm");
    EXPECT_EQ(dark.width, 3 * 58 + 8u); // five cells in three columns
    EXPECT_EQ(dark.height, 2 * 58 + 8u);
    const auto shade = [&](size_t column, size_t row) { // 2: black, 1: grey, 0: light
        const size_t x = 8 + column * 58 + 25, y = 8 + row * 58 + 20;
        return (dark.black(x, y) ? 1 : 0) + (grey.black(x, y) ? 1 : 0);
    };
    EXPECT_EQ(shade(0, 0), 2);
    EXPECT_EQ(shade(1, 0), 1);
    EXPECT_EQ(shade(2, 0), 0);
    EXPECT_TRUE(grey.black(8 + 10, 8 + 58 + 10)); // crossed out
    EXPECT_EQ(shade(1, 1), 0);
}

} // namespace
