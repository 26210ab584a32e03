#include "tests/trace_kernel.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <set>

namespace {

thread_local std::set<const void*> memoryHandles;
thread_local TestKernel* borrowedKernel = nullptr;

MemoryFile* FileOfHandle(tagHANDLE* handle) {
    return memoryHandles.count(handle) != 0 ? reinterpret_cast<MemoryFile*>(handle) : nullptr;
}

template <typename Function>
Function* kernelFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define FORWARD(function) kernelFunction<decltype(function)>(#function)

std::string Joined(const char* name, long long a, long long b) {
    return std::string(name) + ' ' + std::to_string(a) + ' ' + std::to_string(b);
}

int ReadMemory(MemoryFile& file, void* buffer, unsigned count) {
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

int WriteMemory(MemoryFile& file, const void* buffer, unsigned count) {
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

TestKernel& KernelInUse() {
    thread_local TestKernel kernel;
    return borrowedKernel ? *borrowedKernel : kernel;
}

void RunOnThread(const std::function<void()>& operation) {
    struct Work {
        const std::function<void()>& operation;
        TestKernel* kernel;
    } work{operation, &KernelInUse()};
    const auto run = [](void* argument) -> void* {
        borrowedKernel = static_cast<Work*>(argument)->kernel;
        static_cast<Work*>(argument)->operation();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, run, &work), 0);
    pthread_join(thread, nullptr);
}

void ResetTestKernel() {
    mallopt(M_MMAP_THRESHOLD, 1 << 26); // large blocks stay mapped: thousands of loads take them
    mallopt(M_TRIM_THRESHOLD, 1 << 28);
    for (const auto& [block, size] : KernelInUse().blocks)
        std::free(block);
    KernelInUse() = TestKernel();
}

bool NothingHeld() {
    const TestKernel& kernel = KernelInUse();
    return kernel.blocks.empty() && kernel.open.empty() && kernel.badFrees == 0 && kernel.badCloses == 0;
}

bool EnterCall(const std::string& entry) {
    TestKernel& kernel = KernelInUse();
    if (entry.rfind("Memory", 0) != 0)
        kernel.trace.push_back(entry);
    if (kernel.inside)
        kernel.inside(entry);
    if (++kernel.calls != kernel.faultAt)
        return false;
    kernel.faulted = entry;
    if (kernel.fault == Fault::Throw)
        throw KernelFault();
    if (kernel.fault == Fault::EndThread)
        pthread_exit(nullptr);
    return true;
}

Trace CallsNamed(const std::string& name) {
    Trace calls;
    for (const std::string& entry : KernelInUse().trace)
        if (entry.rfind(name, 0) == 0)
            calls.push_back(entry);
    return calls;
}

extern "C" {

tagHANDLE* K_RedirectedOpen(const char* fileName, int flags, int permission) {
    if (EnterCall(Joined("Open", flags, permission)))
        return INVALID_KERNEL_HANDLE;
    TestKernel& kernel = KernelInUse();
    const auto found = kernel.files.find(fileName);
    if (found == kernel.files.end()) {
        tagHANDLE* handle = FORWARD(K_RedirectedOpen)(fileName, flags, permission);
        if (handle != INVALID_KERNEL_HANDLE)
            kernel.open.emplace(handle, nullptr);
        return handle;
    }
    auto file = std::make_unique<MemoryFile>(found->second);
    tagHANDLE* handle = file->Handle();
    kernel.open.emplace(handle, std::move(file));
    return handle;
}

int K_RedirectedRead(tagHANDLE* handle, void* buffer, unsigned count) {
    if (EnterCall("Read " + std::to_string(count))) {
        if (KernelInUse().fault == Fault::Fail)
            return -1;
        count /= 2;
    }
    if (MemoryFile* file = FileOfHandle(handle))
        return ReadMemory(*file, buffer, count);
    return FORWARD(K_RedirectedRead)(handle, buffer, count);
}

int K_RedirectedWrite(tagHANDLE* handle, const void* buffer, unsigned count) {
    if (EnterCall("Write " + std::to_string(count)))
        return KernelInUse().fault == Fault::Fail ? -1 : static_cast<int>(count / 2);
    if (MemoryFile* file = FileOfHandle(handle))
        return WriteMemory(*file, buffer, count);
    return FORWARD(K_RedirectedWrite)(handle, buffer, count);
}

long long K_RedirectedSeek(tagHANDLE* handle, long long offset, int origin) {
    if (EnterCall(Joined("Seek", offset, origin)))
        return -1;
    if (MemoryFile* file = FileOfHandle(handle)) {
        const long long from = origin == 1 ? static_cast<long long>(file->position) : 0;
        file->position = static_cast<size_t>(std::max(0LL, from + offset));
        return static_cast<long long>(file->position);
    }
    return FORWARD(K_RedirectedSeek)(handle, offset, origin);
}

// A release that throws has still released.
void K_RedirectedClose(tagHANDLE* handle) {
    TestKernel& kernel = KernelInUse();
    const auto found = kernel.open.find(handle);
    if (found == kernel.open.end())
        ++kernel.badCloses;
    else {
        if (found->second)
            kernel.closed = found->second->bytes;
        else
            FORWARD(K_RedirectedClose)(handle);
        kernel.open.erase(found);
    }
    EnterCall("Close");
}

void* K_LocalAlloc(size_t count, size_t elementSize, int line, const char* path) {
    if (line <= 0 || std::strcmp(path, "API/Filters/Fax/Common/Tif_faxx") != 0)
        EnterCall("Alloc with a wrong source tag");
    if (EnterCall(Joined("Alloc", static_cast<long long>(count), static_cast<long long>(elementSize))))
        return nullptr;
    void* block = std::malloc(count * elementSize);
    std::memset(block, 0xA5, count * elementSize); // nobody may count on zeros
    TestKernel& kernel = KernelInUse();
    kernel.blocks.emplace(block, count * elementSize);
    kernel.held += count * elementSize;
    kernel.mostHeld = std::max(kernel.mostHeld, kernel.held);
    return block;
}

void K_LocalFree(void* block, int line, const char* path) {
    if (line <= 0 || std::strcmp(path, "API/Filters/Fax/Common/Tif_faxx") != 0)
        EnterCall("Free with a wrong source tag");
    TestKernel& kernel = KernelInUse();
    const auto found = kernel.blocks.find(block);
    const size_t size = found == kernel.blocks.end() ? 0 : found->second;
    if (found == kernel.blocks.end())
        ++kernel.badFrees;
    else {
        std::free(block);
        kernel.held -= size;
        kernel.blocks.erase(found);
    }
    EnterCall("Free " + std::to_string(size));
}

void K_MemorySet(void* destination, int value, size_t count) {
    EnterCall("MemorySet");
    std::memset(destination, value, count);
}

void K_MemoryCopy(void* destination, const void* source, size_t count) {
    EnterCall("MemoryCopy");
    std::memmove(destination, source, count);
}

int K_OsGetLastError(int defaultStatus) {
    EnterCall("OsGetLastError");
    return FORWARD(K_OsGetLastError)(defaultStatus);
}

#define TRACED(function, failure, entry, parameters, arguments)                                              \
    auto function parameters->decltype(function arguments) {                                                 \
        if (EnterCall(entry) && !std::is_void_v<decltype(function arguments)>)                               \
            return decltype(function arguments)(failure);                                                    \
        return FORWARD(function) arguments;                                                                  \
    }

TRACED(K_InitBitmap, 0, Joined("InitBitmap", width, height),
       (_BITMAPHANDLE * bitmap, unsigned recordSize, int width, int height, int bitsPerPixel),
       (bitmap, recordSize, width, height, bitsPerPixel))
TRACED(K_AllocateBitmap, ERROR_NO_MEMORY, "AllocateBitmap " + std::to_string(memoryKind),
       (_BITMAPHANDLE * bitmap, int memoryKind), (bitmap, memoryKind))
TRACED(K_IntAccessBitmap, FAILURE, "IntAccessBitmap", (_BITMAPHANDLE * bitmap, int zero), (bitmap, zero))
TRACED(K_IntReleaseBitmap, FAILURE, Joined("IntReleaseBitmap", one, status),
       (_BITMAPHANDLE * bitmap, int one, int status), (bitmap, one, status))
TRACED(K_GetBitmapRowCompressed, FAILURE, Joined("GetBitmapRowCompressed", row, rowCount),
       (_BITMAPHANDLE * bitmap, unsigned char* work, unsigned short* runs, unsigned row, unsigned rowCount),
       (bitmap, work, runs, row, rowCount))
TRACED(K_PutBitmapRowColCompressed, FAILURE,
       Joined("PutBitmapRowColCompressed", row, column) + ' ' + std::to_string(pixels) + ", runs " +
           std::to_string(runs[0] | runs[1] << 16),
       (_BITMAPHANDLE * bitmap, unsigned char* work, const unsigned short* runs, unsigned row,
        unsigned column, unsigned pixels),
       (bitmap, work, runs, row, column, pixels))
TRACED(K_ExpandRows, FAILURE, Joined("ExpandRows", width, rowCount),
       (const unsigned short* runs, unsigned char* destination, unsigned width, unsigned rowCount),
       (runs, destination, width, rowCount))
TRACED(K_CompressRow, FAILURE, "CompressRow " + std::to_string(width),
       (unsigned short* runs, const unsigned char* row, int zero, unsigned width), (runs, row, zero, width))
TRACED(K_MirrorCompressedBuffer, 0, "Mirror " + std::to_string(rowCount),
       (const unsigned short* source, unsigned short* destination, unsigned rowCount),
       (source, destination, rowCount))
TRACED(K_StartRedirectToBuffer, FAILURE, Joined("StartRedirect", mode, static_cast<long long>(size)),
       (void** redirect, tagHANDLE** handle, unsigned mode, unsigned char* buffer, unsigned long long size),
       (redirect, handle, mode, buffer, size))

void K_FreeBitmap(_BITMAPHANDLE* bitmap) {
    FORWARD(K_FreeBitmap)(bitmap);
    EnterCall("FreeBitmap");
}

int K_SetBitmapNewPalette(_BITMAPHANDLE* bitmap, const _PALETTEENTRY* twoEntries, unsigned paletteParam,
                          int normal) {
    const auto colour = [](const _PALETTEENTRY& e) {
        return (e.Red << 24) | (e.Green << 16) | (e.Blue << 8) | e.Reserved;
    };
    if (EnterCall(Joined("Palette", colour(twoEntries[0]), colour(twoEntries[1])) +
                  Joined("", paletteParam, normal)))
        return FAILURE;
    return FORWARD(K_SetBitmapNewPalette)(bitmap, twoEntries, paletteParam, normal);
}

int K_StopRedirectToBuffer(void* redirect, unsigned char** buffer, unsigned long long* size) {
    const int status = FORWARD(K_StopRedirectToBuffer)(redirect, buffer, size);
    EnterCall("StopRedirect");
    return status;
}

} // extern "C"
