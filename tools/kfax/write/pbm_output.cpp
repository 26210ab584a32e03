// Raw PBM (P4): packed rows, a set bit is black.
#include "tools/kfax/base/messages.h"
#include "tools/kfax/write/picture_output.h"

#include <cerrno>
#include <stdexcept>

namespace kfax {

void WritePbm(const Picture& picture, std::FILE* file) {
    if (std::fprintf(file, "P4\n%zu %zu\n", picture.Width, picture.Height) < 0 ||
        std::fwrite(picture.Pixels.data(), 1, picture.Pixels.size(), file) != picture.Pixels.size())
        throw std::runtime_error(SystemReason(errno));
}

} // namespace kfax
