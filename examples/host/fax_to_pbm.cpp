// A host in small: loads the filter with dlopen, has it describe a file, loads the picture through a row
// callback of its own, and writes it as PBM. Nothing of the filter is linked.
//
// The kernel, libktkrn.so.19, comes with the filter, which is linked with it. A host that is a kernel, or has
// it loaded already, is the one that the filter then calls.
#include "API/Filters/Fax/Fax.h"
#include "host/kernel.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A kernel's records are larger than what is declared of them, and a filter may rely on that.
template <typename Record>
struct Padded {
    Record record{};
    unsigned char rest[4096]{};
};

struct Filter {
    decltype(&fltInfo) info;
    decltype(&fltLoad) load;
    decltype(&K_InitBitmap) initBitmap;
};

template <typename Function>
void Find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (!function)
        throw std::runtime_error(std::string(name) + " is missing");
}

Filter LoadFilter(const char* path) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!library)
        throw std::runtime_error(dlerror());
    Filter filter{};
    Find(library, "fltInfo", filter.info);
    Find(library, "fltLoad", filter.load);
    Find(library, "K_InitBitmap", filter.initBitmap); // of the kernel, which the filter depends on
    return filter;
}

struct Picture {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<unsigned char> rows; // packed, 1 = black
    size_t RowBytes() const { return (size_t{width} + 7) / 8; }
};

void Blacken(unsigned char* row, size_t first, size_t end) {
    for (size_t x = first; x < end; ++x)
        row[x / 8] = static_cast<unsigned char>(row[x / 8] | 0x80 >> x % 8);
}

// Run-length rows one after another: a 32-bit count of runs in two words, then the runs, white first.
extern "C" int TakeRows(_FILEINFOA* /*fileInfo*/, _BITMAPHANDLE* /*bitmap*/, unsigned short* rows,
                        unsigned /*flags*/, int firstLine, int rowCount, void* userData) {
    auto& picture = *static_cast<Picture*>(userData);
    for (int line = firstLine; line < firstLine + rowCount; ++line) {
        const uint32_t runs = rows[0] | static_cast<uint32_t>(rows[1]) << 16;
        rows += 2;
        if (static_cast<unsigned>(line) < picture.height) {
            unsigned char* const row = picture.rows.data() + picture.RowBytes() * static_cast<unsigned>(line);
            size_t x = 0;
            for (uint32_t i = 0; i < runs; ++i) {
                const size_t end = std::min<size_t>(x + rows[i], picture.width);
                if (i % 2 == 1)
                    Blacken(row, x, end);
                x = end;
            }
        }
        rows += runs;
    }
    return SUCCESS;
}

struct Description {
    Padded<_FILEINFOA> fileInfo;
    _LOADINFO stream{};
};

// By the filter, which knows Group 3 and files with a header by themselves.
Description Describe(const Filter& filter, const char* fileName) {
    Description description;
    Padded<_LOADDISPATCH> load;
    load.record.FileInfo = &description.fileInfo.record;
    load.record.LoadInfoValid = 1; // a stream without a header may be looked for
    Padded<_INFODISPATCH> info;
    info.record.FileName = fileName;
    info.record.FileInfo = &description.fileInfo.record;
    info.record.LoadDispatch = &load.record;
    const int status = filter.info(&info.record);
    if (status != SUCCESS)
        throw std::runtime_error("not recognised, status " + std::to_string(status) +
                                 "; a Group 4 stream needs its width and height");
    description.stream = load.record.LoadInfo;
    return description;
}

// By the caller, for a Group 4 stream, which does not say what it is.
Description DescribeGroup4(int width, int height) {
    Description description;
    _LOADINFO& stream = description.stream;
    stream.Format = FORMAT_FAX_G4;
    stream.Width = width;
    stream.Height = height;
    stream.BitsPerPixel = 1;
    stream.Flags = LOADINFO_ORIENTATION_1;
    _FILEINFOA& info = description.fileInfo.record;
    info.Format = stream.Format;
    info.Width = static_cast<uint32_t>(width);
    info.Height = height;
    info.BitsPerPixel = 1;
    return description;
}

Picture Load(const Filter& filter, const char* fileName, Description& description) {
    _FILEINFOA& info = description.fileInfo.record;
    if (info.Width == 0 || info.Width > MAX_IMAGE_WIDTH || info.Height <= 0 || info.Height > 1000000)
        throw std::runtime_error("the picture is empty or too large");
    Picture picture{info.Width, static_cast<unsigned>(info.Height), {}};
    picture.rows.resize(picture.RowBytes() * picture.height);

    _BITMAPHANDLE bitmap; // without row memory: the rows go to the callback
    filter.initBitmap(&bitmap, sizeof bitmap, static_cast<int>(info.Width), info.Height, 1);
    Padded<_LOADDISPATCH> load;
    load.record.FileName = fileName;
    load.record.Bitmap = &bitmap;
    load.record.RowCallback = TakeRows;
    load.record.UserData = &picture;
    load.record.FileInfo = &info;
    load.record.LoadInfoValid = 1;
    load.record.LoadInfo = description.stream;
    const int status = filter.load(&load.record);
    if (status != SUCCESS)
        throw std::runtime_error("cannot be loaded, status " + std::to_string(status));
    if (load.record.Status != 0)
        std::cerr << "fax_to_pbm: " << fileName << ": damaged, status " << load.record.Status << '\n';
    return picture;
}

void WritePbm(const char* name, const Picture& picture) {
    std::ofstream file(name, std::ios::binary);
    file << "P4\n" << picture.width << ' ' << picture.height << '\n';
    file.write(reinterpret_cast<const char*>(picture.rows.data()),
               static_cast<std::streamsize>(picture.rows.size()));
    if (!file.flush())
        throw std::runtime_error(std::string(name) + " cannot be written");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 6) {
        std::cerr << "usage: fax_to_pbm FILTER IN.fax OUT.pbm [WIDTH HEIGHT]\n"
                     "FILTER is libkffax.so.19, or its path; the size is for a Group 4 stream.\n";
        return 2;
    }
    try {
        const Filter filter = LoadFilter(argv[1]);
        Description description =
            argc == 6 ? DescribeGroup4(std::atoi(argv[4]), std::atoi(argv[5])) : Describe(filter, argv[2]);
        const Picture picture = Load(filter, argv[2], description);
        WritePbm(argv[3], picture);
        std::cout << argv[3] << ": " << picture.width << " x " << picture.height << " pixels\n";
    } catch (const std::exception& failure) {
        std::cerr << "fax_to_pbm: " << argv[2] << ": " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
