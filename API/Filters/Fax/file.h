// A file that an entry point opens.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/streams/cleanup.h"

namespace faxx {

struct OpenMode {
    int flags;      // as of POSIX open()
    int permission; // the same
};

inline constexpr OpenMode kForReading{0, 0x100};   // O_RDONLY; S_IRUSR
inline constexpr OpenMode kForWriting{0x42, 0x80}; // O_RDWR | O_CREAT, an existing file is not cut; S_IWUSR

// An open file, closed on every way out of the call.
class File {
public:
    File(const char* name, OpenMode mode) : handle_(K_RedirectedOpen(name, mode.flags, mode.permission)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        RunGuarded([this] { Close(); });
    }

    bool IsOpen() const { return handle_ != INVALID_KERNEL_HANDLE; }
    tagHANDLE* Handle() const { return handle_; }
    bool Read(void* bytes, unsigned count) {
        return K_RedirectedRead(handle_, bytes, count) == static_cast<int>(count);
    }
    // Nothing happens when it is closed already.
    void Close() {
        if (IsOpen())
            K_RedirectedClose(std::exchange(handle_, INVALID_KERNEL_HANDLE));
    }

private:
    tagHANDLE* handle_;
};

} // namespace faxx
