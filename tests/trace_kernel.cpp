#include "tests/trace_kernel.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>

namespace {

thread_local std::set<const void*> memoryHandles;

MemoryFile* memoryFile(tagHANDLE* handle) {
    return memoryHandles.count(handle) != 0 ? reinterpret_cast<MemoryFile*>(handle) : nullptr;
}

template <typename Function>
Function* kernelFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define FORWARD(function) kernelFunction<decltype(function)>(#function)

std::string joined(const char* name, long long a, long long b) {
    return std::string(name) + ' ' + std::to_string(a) + ' ' + std::to_string(b);
}

int readMemory(MemoryFile& file, void* buffer, unsigned count) {
    const size_t index = file.reads++;
    size_t n = std::min<size_t>(count, file.bytes.size() - std::min(file.position, file.bytes.size()));
    if (index < file.script.size()) {
        if (file.script[index] < 0)
            return file.script[index];
        n = std::min(n, static_cast<size_t>(file.script[index]));
    }
    if (n != 0)
        std::memcpy(buffer, file.bytes.data() + file.position, n);
    file.position += n;
    return static_cast<int>(n);
}

int writeMemory(MemoryFile& file, const void* buffer, unsigned count) {
    const auto* const data = static_cast<const uint8_t*>(buffer);
    file.bytes.resize(std::max(file.bytes.size(), file.position + count));
    std::copy_n(data, count, file.bytes.begin() + static_cast<ptrdiff_t>(file.position));
    file.position += count;
    return static_cast<int>(count);
}

} // namespace

MemoryFile::MemoryFile(Bytes contents) : bytes(std::move(contents)) {
    memoryHandles.insert(this);
}
MemoryFile::~MemoryFile() {
    memoryHandles.erase(this);
}

TestKernel& testKernel() {
    thread_local TestKernel kernel;
    return kernel;
}

void resetTestKernel() {
    mallopt(M_MMAP_THRESHOLD, 1 << 26); // large blocks stay mapped: thousands of loads take them
    mallopt(M_TRIM_THRESHOLD, 1 << 28);
    for (const auto& [block, size] : testKernel().blocks)
        std::free(block);
    testKernel() = TestKernel();
}

bool nothingHeld() {
    const TestKernel& kernel = testKernel();
    return kernel.blocks.empty() && kernel.open.empty() && kernel.badFrees == 0 && kernel.badCloses == 0;
}

bool enterCall(const std::string& entry) {
    TestKernel& kernel = testKernel();
    if (entry.rfind("Memory", 0) != 0)
        kernel.trace.push_back(entry);
    if (++kernel.calls != kernel.faultAt)
        return false;
    kernel.faulted = entry;
    if (kernel.fault == Fault::Throw)
        throw KernelFault();
    return true;
}

extern "C" {

tagHANDLE* K_RedirectedOpen(const char* fileName, int flags, int permission) {
    if (enterCall(joined("Open", flags, permission)))
        return INVALID_KERNEL_HANDLE;
    TestKernel& kernel = testKernel();
    const auto found = kernel.files.find(fileName);
    if (found == kernel.files.end()) {
        tagHANDLE* handle = FORWARD(K_RedirectedOpen)(fileName, flags, permission);
        if (handle != INVALID_KERNEL_HANDLE)
            kernel.open.emplace(handle, nullptr);
        return handle;
    }
    auto file = std::make_unique<MemoryFile>(found->second);
    tagHANDLE* handle = file->handle();
    kernel.open.emplace(handle, std::move(file));
    return handle;
}

int K_RedirectedRead(tagHANDLE* handle, void* buffer, unsigned count) {
    if (enterCall("Read " + std::to_string(count))) {
        if (testKernel().fault == Fault::Fail)
            return -1;
        count /= 2;
    }
    if (MemoryFile* file = memoryFile(handle))
        return readMemory(*file, buffer, count);
    return FORWARD(K_RedirectedRead)(handle, buffer, count);
}

int K_RedirectedWrite(tagHANDLE* handle, const void* buffer, unsigned count) {
    if (enterCall("Write " + std::to_string(count)))
        return testKernel().fault == Fault::Fail ? -1 : static_cast<int>(count / 2);
    if (MemoryFile* file = memoryFile(handle))
        return writeMemory(*file, buffer, count);
    return FORWARD(K_RedirectedWrite)(handle, buffer, count);
}

long long K_RedirectedSeek(tagHANDLE* handle, long long offset, int origin) {
    if (enterCall(joined("Seek", offset, origin)))
        return -1;
    if (MemoryFile* file = memoryFile(handle)) {
        const long long from = origin == 1 ? static_cast<long long>(file->position) : 0;
        file->position = static_cast<size_t>(std::max(0LL, from + offset));
        return static_cast<long long>(file->position);
    }
    return FORWARD(K_RedirectedSeek)(handle, offset, origin);
}

// A release that throws has still released.
void K_RedirectedClose(tagHANDLE* handle) {
    TestKernel& kernel = testKernel();
    const auto found = kernel.open.find(handle);
    if (found == kernel.open.end())
        ++kernel.badCloses;
    else {
        if (!found->second)
            FORWARD(K_RedirectedClose)(handle);
        kernel.open.erase(found);
    }
    enterCall("Close");
}

void* K_LocalAlloc(size_t count, size_t elementSize, int line, const char* path) {
    if (line <= 0 || std::strcmp(path, "API/Filters/Fax/Common/Tif_faxx") != 0)
        enterCall("Alloc with a wrong source tag");
    if (enterCall(joined("Alloc", static_cast<long long>(count), static_cast<long long>(elementSize))))
        return nullptr;
    void* block = std::malloc(count * elementSize);
    std::memset(block, 0xA5, count * elementSize); // nobody may count on zeros
    testKernel().blocks.emplace(block, count * elementSize);
    return block;
}

void K_LocalFree(void* block, int line, const char* path) {
    if (line <= 0 || std::strcmp(path, "API/Filters/Fax/Common/Tif_faxx") != 0)
        enterCall("Free with a wrong source tag");
    TestKernel& kernel = testKernel();
    const auto found = kernel.blocks.find(block);
    const size_t size = found == kernel.blocks.end() ? 0 : found->second;
    if (found == kernel.blocks.end())
        ++kernel.badFrees;
    else {
        std::free(block);
        kernel.blocks.erase(found);
    }
    enterCall("Free " + std::to_string(size));
}

void K_MemorySet(void* destination, int value, size_t count) {
    enterCall("MemorySet");
    std::memset(destination, value, count);
}

void K_MemoryCopy(void* destination, const void* source, size_t count) {
    enterCall("MemoryCopy");
    std::memmove(destination, source, count);
}

int K_OsGetLastError(int defaultStatus) {
    enterCall("OsGetLastError");
    return FORWARD(K_OsGetLastError)(defaultStatus);
}

void K_InitBitmap(_BITMAPHANDLE* bitmap, unsigned recordSize, int width, int height, int bitsPerPixel) {
    enterCall(joined("InitBitmap", width, height));
    FORWARD(K_InitBitmap)(bitmap, recordSize, width, height, bitsPerPixel);
}

int K_AllocateBitmap(_BITMAPHANDLE* bitmap, int memoryKind) {
    if (enterCall("AllocateBitmap " + std::to_string(memoryKind)))
        return ERROR_NO_MEMORY;
    return FORWARD(K_AllocateBitmap)(bitmap, memoryKind);
}

int K_IntAccessBitmap(_BITMAPHANDLE* bitmap, int zero) {
    if (enterCall("IntAccessBitmap"))
        return FAILURE;
    return FORWARD(K_IntAccessBitmap)(bitmap, zero);
}

int K_IntReleaseBitmap(_BITMAPHANDLE* bitmap, int one, int status) {
    if (enterCall(joined("IntReleaseBitmap", one, status)))
        return FAILURE;
    return FORWARD(K_IntReleaseBitmap)(bitmap, one, status);
}

void K_FreeBitmap(_BITMAPHANDLE* bitmap) {
    FORWARD(K_FreeBitmap)(bitmap);
    enterCall("FreeBitmap");
}

int K_SetBitmapNewPalette(_BITMAPHANDLE* bitmap, const _PALETTEENTRY* twoEntries, unsigned paletteParam,
                          int normal) {
    const auto colour = [](const _PALETTEENTRY& e) {
        return (e.Red << 24) | (e.Green << 16) | (e.Blue << 8) | e.Reserved;
    };
    if (enterCall(joined("Palette", colour(twoEntries[0]), colour(twoEntries[1])) +
                  joined("", paletteParam, normal)))
        return FAILURE;
    return FORWARD(K_SetBitmapNewPalette)(bitmap, twoEntries, paletteParam, normal);
}

int K_GetBitmapRowCompressed(_BITMAPHANDLE* bitmap, unsigned char* work, unsigned short* runs, unsigned row,
                             unsigned rowCount) {
    if (enterCall(joined("GetBitmapRowCompressed", row, rowCount)))
        return FAILURE;
    return FORWARD(K_GetBitmapRowCompressed)(bitmap, work, runs, row, rowCount);
}

int K_PutBitmapRowColCompressed(_BITMAPHANDLE* bitmap, unsigned char* work, const unsigned short* runs,
                                unsigned row, unsigned column, unsigned pixels) {
    if (enterCall(joined("PutBitmapRowColCompressed", row, column) + ' ' + std::to_string(pixels)))
        return FAILURE;
    return FORWARD(K_PutBitmapRowColCompressed)(bitmap, work, runs, row, column, pixels);
}

int K_ExpandRows(const unsigned short* runs, unsigned char* destination, unsigned width, unsigned rowCount) {
    if (enterCall(joined("ExpandRows", width, rowCount)))
        return FAILURE;
    return FORWARD(K_ExpandRows)(runs, destination, width, rowCount);
}

int K_CompressRow(unsigned short* runs, const unsigned char* row, int zero, unsigned width) {
    if (enterCall("CompressRow " + std::to_string(width)))
        return FAILURE;
    return FORWARD(K_CompressRow)(runs, row, zero, width);
}

void K_MirrorCompressedBuffer(const unsigned short* source, unsigned short* destination, unsigned rowCount) {
    enterCall("Mirror " + std::to_string(rowCount));
    FORWARD(K_MirrorCompressedBuffer)(source, destination, rowCount);
}

int K_StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode, unsigned char* buffer,
                            unsigned long long size) {
    if (enterCall(joined("StartRedirect", mode, static_cast<long long>(size))))
        return FAILURE;
    return FORWARD(K_StartRedirectToBuffer)(redirect, handle, mode, buffer, size);
}

int K_StopRedirectToBuffer(void* redirect, unsigned char** buffer, unsigned long long* size) {
    const int status = FORWARD(K_StopRedirectToBuffer)(redirect, buffer, size);
    enterCall("StopRedirect");
    return status;
}

} // extern "C"
