#include "tests/kfax_run.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <sys/wait.h>

namespace {

std::set<std::string> filesHere() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("."))
        names.insert(entry.path().filename());
    return names;
}

} // namespace

std::string textOf(const std::string& name) {
    const Bytes bytes = readFile(name);
    return {bytes.begin(), bytes.end()};
}

Pixels testPicture(uint32_t width, uint32_t height) {
    std::mt19937 random(width * 31 + height);
    Pixels pixels{width, height, {}};
    pixels.rows.resize(pixels.rowBytes() * height);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            if (y < height * 3 / 4 ? (x / 7 + y / 11) % 3 == 0 : random() % 4 == 0)
                pixels.blacken(x, y);
    return pixels;
}

Bytes readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& name, const Bytes& bytes) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Pixels readPbm(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::string magic;
    Pixels pixels;
    file >> magic >> pixels.width >> pixels.height;
    file.get();
    EXPECT_EQ(magic, "P4") << name;
    pixels.rows.assign(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(pixels.rows.size(), pixels.rowBytes() * pixels.height) << name;
    return pixels;
}

void writePbm(const std::string& name, const Pixels& pixels) {
    const std::string header =
        "P4\n" + std::to_string(pixels.width) + " " + std::to_string(pixels.height) + "\n";
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), pixels.rows.begin(), pixels.rows.end());
    writeFile(name, bytes);
}

std::vector<nlohmann::json> jsonLines(const std::string& told) {
    std::vector<nlohmann::json> objects;
    std::istringstream lines(told);
    for (std::string line; std::getline(lines, line);)
        objects.push_back(nlohmann::json::parse(line));
    return objects;
}

void KfaxRuns::SetUp() {
    came = std::filesystem::current_path();
    std::string pattern = std::filesystem::temp_directory_path() / ("kfax-test-" + std::string(6, 'X'));
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    scratch = pattern;
    std::filesystem::current_path(scratch);
}

void KfaxRuns::TearDown() {
    std::filesystem::current_path(came);
    std::filesystem::remove_all(scratch);
}

Outcome KfaxRuns::kfax(const std::string& arguments, const std::string& before) {
    const std::string said = scratch.string() + ".said", told = scratch.string() + ".told";
    const std::string command =
        "( " + before + " '" KFAX_PROGRAM "' " + arguments + " ) 2>" + said + " >" + told;
    const int status = std::system(command.c_str());
    Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : 128, textOf(said), textOf(told)};
    std::filesystem::remove(said);
    std::filesystem::remove(told);
    return outcome;
}

void KfaxRuns::expectRefused(int code, const std::string& arguments, const std::string& before) {
    const auto there = filesHere();
    const Outcome outcome = kfax(arguments, before);
    EXPECT_EQ(outcome.code, code) << arguments << ": " << outcome.said;
    EXPECT_TRUE(outcome.said.starts_with("kfax: ")) << arguments << ": " << outcome.said;
    EXPECT_EQ(std::count(outcome.said.begin(), outcome.said.end(), '\n'), 1) << outcome.said;
    EXPECT_EQ(filesHere(), there) << arguments;
}
