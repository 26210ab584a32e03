// Runs a target over files, and over every file in directories: seeds and past finds, without a fuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void Replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    // A vector of characters converted, not of bytes read as such: the stream's type is char.
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

int main(int argc, char** argv) {
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            Replay(argv[i]);
            ++replayed;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i]))
            if (entry.is_regular_file()) {
                Replay(entry.path());
                ++replayed;
            }
    }
    std::printf("%zu inputs\n", replayed);
    return replayed != 0 ? 0 : 1;
}
