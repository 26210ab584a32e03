// An open TIFF file whose library's messages become lines of kfax.
#pragma once

#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <tiffio.h>

namespace kfax {

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

// It stays where it was opened: the library keeps its address.
struct TiffFile {
    TiffFile(const std::string& name, const char* mode); // throws std::runtime_error with the reason
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;
    ~TiffFile() = default;

    std::string Name;
    std::string Shown;              // the name in messages
    std::string Error;              // the library's first one since TakeError
    std::set<std::string> Warnings; // told already
    std::unique_ptr<TIFF, CloseTiff> Tiff;
    uint64_t Size = 0;    // of a file that is read
    int64_t PageRead = 1; // whose directory the library holds; 0: none
    unsigned Pages = 0;   // once they were counted
};

constexpr const char* kDamagedTiff = "; the file is damaged or cut off, fetch it again";

// Reads bytes of the file; returns how many there were. error: an errno where the system refused more, else
// 0.
size_t ReadAt(const TiffFile& file, uint64_t offset, unsigned char* bytes, size_t count, int& error);

// The reason for the failure of the last call, or otherwise where the library gave none; and where it was not
// the system's refusal, what can be done about it.
std::string TakeError(TiffFile& file, const char* otherwise, const char* remedy = "");

// The value of a tag, or the library's default for it, or otherwise.
template <typename Value>
Value TiffTag(const TiffFile& file, uint32_t tag, Value otherwise) {
    Value value{};
    return TIFFGetFieldDefaulted(file.Tiff.get(), tag, &value) == 1 ? value : otherwise;
}

} // namespace kfax
