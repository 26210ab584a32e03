// Runs the built kfax in a directory of its own, and the pictures that go in and come out.
#pragma once

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

struct Pixels {
    uint32_t width = 0;
    uint32_t height = 0;
    Bytes rows; // packed, 1 = black, the padding 0

    bool operator==(const Pixels&) const = default;
    size_t rowBytes() const { return (width + 7) / 8; }
    uint8_t* row(size_t y) { return rows.data() + y * rowBytes(); }
    bool black(size_t x, size_t y) const { return (rows[y * rowBytes() + x / 8] >> (7 - x % 8) & 1) != 0; }
    void blacken(size_t x, size_t y) { row(y)[x / 8] |= static_cast<uint8_t>(0x80 >> x % 8); }
};

// Text-like runs above, noise below.
Pixels testPicture(uint32_t width, uint32_t height);

Bytes readFile(const std::string& name);
std::string textOf(const std::string& name);
void writeFile(const std::string& name, const Bytes& bytes);
Pixels readPbm(const std::string& name);
void writePbm(const std::string& name, const Pixels& pixels);

struct Outcome {
    int code;         // exit code; 128 and more: a signal
    std::string said; // standard error
    std::string told; // standard output
};

// JSON as kfax prints it: an object a line.
std::vector<nlohmann::json> jsonLines(const std::string& told);

// A scratch directory, the current one while a test runs.
class KfaxRuns : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // kfax with the arguments, as the shell splits them.
    Outcome kfax(const std::string& arguments, const std::string& before = "");
    // The same, where one line of complaint and nothing new in the directory is expected.
    void expectRefused(int code, const std::string& arguments, const std::string& before = "");

private:
    std::filesystem::path came, scratch;
};
