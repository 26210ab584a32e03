// Redirected files: a handle is either a POSIX descriptor or a block of memory.
//
// Data that is written goes to the caller's block. Once it no longer fits, all of it moves to a block of the
// kernel's own, which grows by doubling. The kernel keeps its block for as long as the caller may look at it:
// until the thread ends its next redirection, or ends.
#include "host/kernel.h"
#include "host/standin/thread_end.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

struct FreeBlock {
    void operator()(unsigned char* block) const { std::free(block); }
};
using OwnBlock = std::unique_ptr<unsigned char, FreeBlock>;

} // namespace

struct tagHANDLE {
    int Descriptor = -1; // -1: memory

    // Memory. Data is the caller's block or Own.
    unsigned Mode = 0;
    unsigned char* Data = nullptr;
    size_t Capacity = 0;
    size_t Size = 0; // bytes of data; what lies beyond is not defined
    size_t Position = 0;
    OwnBlock Own;
};

namespace {

// What this thread's last redirection that outgrew its block left behind.
thread_local unsigned char* outgrown = nullptr;

void FreeOutgrown(void* /*outgrown*/) {
    std::free(std::exchange(outgrown, nullptr));
}

const standin::ThreadEnd freeAtEnd(FreeOutgrown);

void KeepOutgrown(OwnBlock block) {
    std::free(outgrown);
    outgrown = block.release();
    freeAtEnd.Call(outgrown);
}

int ReadMemory(tagHANDLE& handle, void* buffer, size_t count) {
    if (handle.Position >= handle.Size)
        return 0;
    count = std::min({count, handle.Size - handle.Position, size_t{INT_MAX}});
    std::memcpy(buffer, handle.Data + handle.Position, count);
    handle.Position += count;
    return static_cast<int>(count);
}

bool Grow(tagHANDLE& handle, size_t needed) {
    size_t capacity = std::max(needed, size_t{4096});
    if (handle.Capacity <= SIZE_MAX / 4)
        capacity = std::max(capacity, handle.Capacity * 2);
    auto* block = static_cast<unsigned char*>(std::realloc(handle.Own.get(), capacity));
    if (!block)
        return false;
    const bool callers = !handle.Own;
    static_cast<void>(handle.Own.release());
    handle.Own.reset(block);
    if (callers && handle.Size != 0)
        std::memcpy(block, handle.Data, handle.Size);
    handle.Data = block;
    handle.Capacity = capacity;
    return true;
}

int WriteMemory(tagHANDLE& handle, const void* buffer, size_t count) {
    count = std::min(count, size_t{INT_MAX});
    if (count == 0 || handle.Mode != REDIRECT_WRITE)
        return 0;
    size_t end = 0;
    if (__builtin_add_overflow(handle.Position, count, &end) ||
        (end > handle.Capacity && !Grow(handle, end))) {
        errno = ENOMEM;
        return 0;
    }
    if (handle.Position > handle.Size) // a gap reads as zeros
        std::memset(handle.Data + handle.Size, 0, handle.Position - handle.Size);
    std::memcpy(handle.Data + handle.Position, buffer, count);
    handle.Position = end;
    handle.Size = std::max(handle.Size, end);
    return static_cast<int>(count);
}

// Calls transfer(done) for what is left until it is done, fails or meets the end.
template <typename Transfer>
int TransferAll(size_t count, Transfer transfer) {
    size_t done = 0;
    while (done < count) {
        const ssize_t part = transfer(done);
        if (part < 0 && errno == EINTR)
            continue;
        if (part <= 0)
            break;
        done += static_cast<size_t>(part);
    }
    return static_cast<int>(done);
}

} // namespace

extern "C" {

// Of permission, only whether the owner may write counts: everyone may read a new file, and who may write may
// all write, unless the process's umask says otherwise.
tagHANDLE* K_RedirectedOpen(const char* fileName, int flags, int permission) {
    if (!fileName) {
        errno = EINVAL;
        return INVALID_KERNEL_HANDLE;
    }
    const mode_t mode = (permission & S_IWUSR) != 0 ? 0666 : 0444;
    const int descriptor = open(fileName, flags | O_CLOEXEC, mode);
    if (descriptor < 0)
        return INVALID_KERNEL_HANDLE;
    struct stat about {};
    if (fstat(descriptor, &about) == 0 && S_ISDIR(about.st_mode)) {
        close(descriptor);
        errno = EISDIR;
        return INVALID_KERNEL_HANDLE;
    }
    auto* handle = new (std::nothrow) tagHANDLE;
    if (!handle) {
        close(descriptor);
        errno = ENOMEM;
        return INVALID_KERNEL_HANDLE;
    }
    handle->Descriptor = descriptor;
    return handle;
}

int K_RedirectedRead(tagHANDLE* handle, void* buffer, unsigned count) {
    if (handle->Descriptor < 0)
        return ReadMemory(*handle, buffer, count);
    auto* const bytes = static_cast<unsigned char*>(buffer);
    const size_t wanted = std::min<size_t>(count, INT_MAX);
    return TransferAll(wanted,
                       [&](size_t done) { return read(handle->Descriptor, bytes + done, wanted - done); });
}

int K_RedirectedWrite(tagHANDLE* handle, const void* buffer, unsigned count) {
    if (handle->Descriptor < 0)
        return WriteMemory(*handle, buffer, count);
    const auto* const bytes = static_cast<const unsigned char*>(buffer);
    const size_t wanted = std::min<size_t>(count, INT_MAX);
    return TransferAll(wanted,
                       [&](size_t done) { return write(handle->Descriptor, bytes + done, wanted - done); });
}

long long K_RedirectedSeek(tagHANDLE* handle, long long offset, int origin) {
    if (origin != SEEK_SET && origin != SEEK_CUR) {
        errno = EINVAL;
        return -1;
    }
    if (handle->Descriptor >= 0)
        return lseek(handle->Descriptor, offset, origin);
    long long position;
    const long long base = origin == SEEK_SET ? 0 : static_cast<long long>(handle->Position);
    if (__builtin_add_overflow(base, offset, &position) || position < 0) {
        errno = EINVAL;
        return -1;
    }
    handle->Position = static_cast<size_t>(position);
    return position;
}

void K_RedirectedClose(tagHANDLE* handle) {
    // A handle to memory ends with its redirection.
    if (!handle || handle == INVALID_KERNEL_HANDLE || handle->Descriptor < 0)
        return;
    close(handle->Descriptor);
    delete handle;
}

int K_OsGetLastError(int defaultStatus) {
    return errno == ENOMEM ? ERROR_NO_MEMORY : defaultStatus;
}

int K_StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode, unsigned char* buffer,
                            unsigned long long size) {
    if (!redirect || !handle)
        return ERROR_NULL_PTR;
    if ((mode != REDIRECT_READ && mode != REDIRECT_WRITE) || (!buffer && size != 0))
        return ERROR_INV_PARAMETER;
    auto* memory = new (std::nothrow) tagHANDLE;
    if (!memory)
        return ERROR_NO_MEMORY;
    memory->Mode = mode;
    memory->Data = buffer;
    memory->Capacity = size;
    memory->Size = mode == REDIRECT_READ ? size : 0;
    *redirect = memory;
    *handle = memory;
    return SUCCESS;
}

int K_StopRedirectToBuffer(void* redirect, unsigned char** buffer, unsigned long long* size) {
    if (!redirect)
        return ERROR_NULL_PTR;
    const std::unique_ptr<tagHANDLE> memory(static_cast<tagHANDLE*>(redirect));
    if (buffer)
        *buffer = memory->Data;
    if (size)
        *size = memory->Size;
    KeepOutgrown(std::move(memory->Own));
    return SUCCESS;
}

} // extern "C"
