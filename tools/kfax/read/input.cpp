// Opening an input once before the filter does, because an errno says more than the filter's status.
#include "tools/kfax/read/input.h"
#include "tools/kfax/base/messages.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace kfax {

namespace {

// Does not wait for somebody to write to a pipe.
int OpenWithoutWaiting(const std::string& file) {
    return open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

std::string SizeText(unsigned width, int height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

// Twice: the bitmap, and beside it the upright picture or the coded one.
uint64_t PictureMemory(unsigned width, int height) {
    return 2 * (uint64_t{width} / 8 + 4) * static_cast<uint64_t>(height);
}

} // namespace

FileHandle OpenInput(const std::string& file) {
    const int descriptor = OpenWithoutWaiting(file);
    if (descriptor < 0)
        return nullptr;
    struct stat about {};
    std::FILE* opened = nullptr;
    if (fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode))
        opened = fdopen(descriptor, "rb");
    else
        errno = EINVAL;
    if (!opened)
        close(descriptor);
    return FileHandle(opened);
}

uint64_t CheckInput(const std::string& file) {
    const int descriptor = OpenWithoutWaiting(file);
    if (descriptor < 0)
        throw std::runtime_error(SystemReason(errno));
    struct stat about {};
    const int failed = fstat(descriptor, &about);
    close(descriptor);
    if (failed != 0)
        throw std::runtime_error(SystemReason(errno));
    if (S_ISDIR(about.st_mode))
        throw std::runtime_error(SystemReason(EISDIR));
    if (!S_ISREG(about.st_mode))
        throw std::runtime_error(
            "not a regular file; send a stream through standard input (kfax load - OUT)");
    if (about.st_size == 0)
        throw std::runtime_error("the file is empty; fetch it again");
    return static_cast<uint64_t>(about.st_size);
}

standin::Description DescribeInput(const standin::Filter& filter, const std::string& file) {
    CheckInput(file);
    standin::Description description = standin::Describe(filter, file);
    switch (description.Status) {
    case SUCCESS:
        return description;
    case FAILURE:
        throw std::runtime_error("no fax stream found (a raw stream such as Group 4 needs "
                                 "--format, --width and --height)");
    case ERROR_FILE_READ:
        throw std::runtime_error("too short for a fax file; fetch it again, or give a raw stream its "
                                 "--format, --width and --height");
    default:
        throw std::runtime_error(standin::StatusText(description.Status));
    }
}

void CheckPictureSize(unsigned width, int height) {
    if (width == 0 || height <= 0)
        throw std::runtime_error("the picture has no pixels (" + SizeText(width, height) +
                                 "); the file is damaged or no fax");
    if (PictureMemory(width, height) > MemoryBudget())
        throw std::runtime_error("a picture of " + SizeText(width, height) + " pixels takes " +
                                 std::to_string(PictureMemory(width, height) >> 20) +
                                 " MB of memory, and kfax is to use at most " +
                                 std::to_string(MemoryBudget() >> 20) +
                                 " MB; see whether the file's size is true (--memory MB allows more)");
}

void ReservePicture(MemoryShare& memory, unsigned width, int height) {
    CheckPictureSize(width, height);
    memory.Add(PictureMemory(width, height));
}

uint32_t OrientationFlag(int orientation) {
    static constexpr uint32_t kFlags[] = {LOADINFO_ORIENTATION_1, LOADINFO_ORIENTATION_2,
                                          LOADINFO_ORIENTATION_3, 0, // 4, bottom to top, has no bit
                                          LOADINFO_ORIENTATION_5, LOADINFO_ORIENTATION_6,
                                          LOADINFO_ORIENTATION_7, LOADINFO_ORIENTATION_8};
    return orientation >= 1 && orientation <= 8 ? kFlags[orientation - 1] : LOADINFO_ORIENTATION_1;
}

} // namespace kfax
